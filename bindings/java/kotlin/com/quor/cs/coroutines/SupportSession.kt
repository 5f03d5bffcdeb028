package com.quor.cs.coroutines

import com.quor.cs.AgentRating
import com.quor.cs.Attachment
import com.quor.cs.Customer
import com.quor.cs.State
import com.quor.cs.Status
import java.nio.file.Path
import kotlinx.coroutines.channels.awaitClose
import kotlinx.coroutines.flow.Flow
import kotlinx.coroutines.flow.MutableStateFlow
import kotlinx.coroutines.flow.callbackFlow
import kotlinx.coroutines.flow.StateFlow
import kotlinx.coroutines.flow.asStateFlow
import kotlinx.coroutines.flow.first
import kotlinx.coroutines.withTimeoutOrNull

/**
 * One customer service with one desk, as Kotlin code holds it: its [status] and its
 * [conversation] are [StateFlow]s, and the operations that wait for the desk suspend until it
 * answered and return the status it reached.
 *
 * Threads: make it, call it and collect its flows on the app's main thread (the binding's
 * Executor: Android's main Looper, or the test kit's settle()); the flows change there, in the
 * order the library reports. Refused operations throw [com.quor.cs.RefusedException], as the
 * Java API's do. Close it (or use `use {}`) when the screen goes.
 */
class SupportSession(deskId: String) : AutoCloseable {
    private val mutableStatus: MutableStateFlow<Status>
    private val lines = ArrayList<SupportLine>()
    private val mutableConversation = MutableStateFlow<List<SupportLine>>(LinesSoFar(lines, 0))
    private val mutableUnread = MutableStateFlow(0L)
    private val mutableDeskTyping = MutableStateFlow(false)
    private val transfers = FileTransfers()
    private val service: SupportService

    init {
        val observer = object : SupportObserver {
            override fun onStateChanged(status: Status) {
                mutableStatus.value = status
            }

            override fun onMessage(message: SupportLine) {
                transfers.line(message)
                lines.add(message)
                mutableConversation.value = LinesSoFar(lines, lines.size)
            }

            // A delivery update replaces its line: the lines are numbered 1, 2, 3 ... in order.
            override fun onMessageDelivery(message: SupportLine) {
                transfers.delivery(message)
                val first = lines.firstOrNull() ?: return
                val index = (message.sequence - first.sequence).toInt()
                if (index !in lines.indices) return
                lines[index] = message
                mutableConversation.value = LinesSoFar(lines, lines.size)
            }

            override fun onUnreadCountChanged(unread: Long) {
                mutableUnread.value = unread
            }

            override fun onDeskTyping(typing: Boolean) {
                mutableDeskTyping.value = typing
            }

            override fun onFileProgress(sequence: Long, done: Long, total: Long) =
                transfers.progress(sequence, done, total)

            override fun onFileDownloaded(sequence: Long, file: Attachment, errorCode: Long) =
                transfers.downloaded(sequence, file, errorCode)
        }
        service = SupportService(deskId, observer)
        mutableStatus = MutableStateFlow(service.status())
    }

    /** The service's state as the library reported it last. */
    val status: StateFlow<Status> = mutableStatus.asStateFlow()

    /**
     * Every line of the conversation, oldest first; a line's delivery changes in place. Each
     * value is a new read-only view of one growing list, so a line costs the same however long
     * the conversation is; two values are equal only when they are the same value.
     */
    val conversation: StateFlow<List<SupportLine>> = mutableConversation.asStateFlow()

    /** The desk's lines not yet marked read. */
    val unreadCount: StateFlow<Long> = mutableUnread.asStateFlow()

    /** Whether the desk (its agent or robot) is typing: "the agent is typing". */
    val deskTyping: StateFlow<Boolean> = mutableDeskTyping.asStateFlow()

    /** The largest encoded text [sendText] sends. */
    var maxTextBytes: Long
        get() = service.maxTextBytes()
        set(value) = service.setMaxTextBytes(value)

    /**
     * Sends the handshake and suspends until the desk answered: the status reached (the robot,
     * an agent, the group choice) or Failed, with its reason. The desk's answer and its first
     * mode may come in two main-thread turns; a desk that sends no mode within the timeout
     * leaves the service Connected, and that is returned.
     */
    suspend fun start(customer: Customer? = null, timeoutMillis: Long = 15_000): Status {
        service.start(customer, timeoutMillis)
        val answered = suspend { status.first { it.state !in answering } }
        if (timeoutMillis <= 0) return answered()
        return withTimeoutOrNull(timeoutMillis) { answered() } ?: status.value
    }

    /** Asks for a human agent; suspends until the desk answered (the groups, a wait, an agent). */
    suspend fun askForAgent(): Status = afterChange { service.askForAgent() }

    /** Chooses one of the offered groups; suspends until the desk answered. */
    suspend fun chooseGroup(groupId: String): Status = afterChange { service.chooseGroup(groupId) }

    fun sendText(text: String) = service.sendText(text)

    fun retry(sequence: Long) = service.retry(sequence)

    fun rateAgent(rating: AgentRating) = service.rateAgent(rating)

    fun rateRobot(resolved: Boolean, knowledgeId: String? = null, suggestion: String? = null) =
        service.rateRobot(resolved, knowledgeId, suggestion)

    fun markRead() = service.markRead()

    /** The customer is typing (at each change of the input) or left it; throttled by the library. */
    fun setTyping(typing: Boolean) = service.setTyping(typing)

    /**
     * Sends a picture or other file when collected: [FileTransfer.Progress] as it uploads, then
     * [FileTransfer.Sent] with its line's outcome, and the flow ends. A refusal (FILES_NOT_OFFERED,
     * FILE_UNREADABLE, TOO_LARGE, TYPE_NOT_ACCEPTED) is thrown to the collector, with nothing
     * sent; a collector that goes before the end cancels the upload.
     */
    fun sendFile(path: Path, name: String? = null, mimeType: String? = null): Flow<FileTransfer> =
        callbackFlow {
            transfers.uploadStarts(channel)
            try {
                service.sendFile(path, name, mimeType)
            } catch (refused: Throwable) {
                transfers.forget(channel) // a refused file never gets a line
                throw refused
            }
            awaitClose { transfers.forget(channel)?.let { runCatching { service.cancelFile(it) } } }
        }

    /**
     * Fetches the desk's file of line [sequence] into the host's cache when collected:
     * [FileTransfer.Progress], then [FileTransfer.Downloaded]; a failure is thrown as
     * [FileTransferException].
     */
    fun downloadFile(sequence: Long): Flow<FileTransfer> = callbackFlow {
        transfers.downloadStarts(sequence, channel)
        try {
            service.downloadFile(sequence)
        } catch (refused: Throwable) {
            transfers.forget(channel)
            throw refused
        }
        awaitClose { transfers.forget(channel)?.let { runCatching { service.cancelFile(it) } } }
    }

    fun end() = service.end()

    override fun close() = service.close()

    // The states of a start that the desk has not finished answering.
    private val answering = setOf(State.NOT_STARTED, State.CONNECTING, State.CONNECTED)

    // Runs `operation` and waits for the next reported state, whatever it is.
    private suspend fun afterChange(operation: () -> Unit): Status {
        val before = status.value
        operation()
        return status.first { it !== before }
    }
}

// The first `size` lines of the session's growing list, read-only. Equal only to itself, so that
// the StateFlow hands on every new value without comparing the lines.
private class LinesSoFar(private val all: List<SupportLine>, override val size: Int) :
    AbstractList<SupportLine>() {
    override fun get(index: Int): SupportLine {
        if (index !in 0 until size) throw IndexOutOfBoundsException("line $index of $size")
        return all[index]
    }

    override fun equals(other: Any?): Boolean = this === other

    override fun hashCode(): Int = System.identityHashCode(this)
}
