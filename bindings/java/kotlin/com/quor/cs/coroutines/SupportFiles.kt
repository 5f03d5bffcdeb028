package com.quor.cs.coroutines

import com.quor.cs.Attachment
import com.quor.cs.Author
import com.quor.cs.Delivery
import kotlinx.coroutines.channels.SendChannel

/** What a file's transfer reports, as [SupportSession.sendFile] and [SupportSession.downloadFile] emit it. */
sealed interface FileTransfer {
    /** How far it got, in bytes (about a hundred of these at most). */
    data class Progress(val done: Long, val total: Long) : FileTransfer

    /** The upload's one outcome: its line, [SupportLine.delivery] SENT, FAILED or UNCONFIRMED. */
    data class Sent(val line: SupportLine) : FileTransfer

    /** The file is in the host's cache: [Attachment.localPath], the type its bytes show. */
    data class Downloaded(val file: Attachment) : FileTransfer
}

/** A download that ended without the file; [errorCode] is the host's. */
class FileTransferException(val errorCode: Long) :
    RuntimeException("the file's transfer failed ($errorCode)")

// The flows of the running transfers, fed by the session's observer on the main thread: an
// upload is known by its line's number once the line is reported, a download by its line's.
internal class FileTransfers {
    private val unnumbered = ArrayDeque<SendChannel<FileTransfer>>()
    private val bySequence = HashMap<Long, SendChannel<FileTransfer>>()

    fun uploadStarts(channel: SendChannel<FileTransfer>) = unnumbered.addLast(channel)

    fun downloadStarts(sequence: Long, channel: SendChannel<FileTransfer>) {
        bySequence[sequence] = channel
    }

    // The collector went: its transfer's number, if it has one, to cancel.
    fun forget(channel: SendChannel<FileTransfer>): Long? {
        unnumbered.remove(channel)
        val sequence = bySequence.entries.firstOrNull { it.value === channel }?.key ?: return null
        bySequence.remove(sequence)
        return sequence
    }

    fun line(message: SupportLine) {
        if (message.author == Author.CUSTOMER && message.attachment != null) {
            unnumbered.removeFirstOrNull()?.let { bySequence[message.sequence] = it }
        }
    }

    fun delivery(message: SupportLine) {
        if (message.delivery == Delivery.SENDING) return
        val channel = bySequence.remove(message.sequence) ?: return
        channel.trySend(FileTransfer.Sent(message))
        channel.close()
    }

    fun progress(sequence: Long, done: Long, total: Long) {
        bySequence[sequence]?.trySend(FileTransfer.Progress(done, total))
    }

    fun downloaded(sequence: Long, file: Attachment, errorCode: Long) {
        val channel = bySequence.remove(sequence) ?: return
        if (errorCode != 0L) {
            channel.close(FileTransferException(errorCode))
            return
        }
        channel.trySend(FileTransfer.Downloaded(file))
        channel.close()
    }
}
