// The JVM package from Kotlin, as an Android app would write it: the Java API, and the coroutine
// face (SupportSession) whose flows a screen collects.
import com.quor.cs.Author
import com.quor.cs.Customer
import com.quor.cs.Delivery
import com.quor.cs.Kit
import com.quor.cs.Message
import com.quor.cs.Observer
import com.quor.cs.RefusedException
import com.quor.cs.Result
import com.quor.cs.Service
import com.quor.cs.State
import com.quor.cs.Status
import com.quor.cs.AppState
import com.quor.cs.XmppHost
import com.quor.cs.coroutines.SupportPushNotifications
import com.quor.cs.coroutines.FileTransfer
import com.quor.cs.coroutines.SupportSession
import java.nio.file.Files
import kotlinx.coroutines.Deferred
import kotlinx.coroutines.CoroutineStart
import kotlinx.coroutines.async
import kotlinx.coroutines.flow.first
import kotlinx.coroutines.flow.take
import kotlinx.coroutines.flow.toList
import kotlinx.coroutines.runBlocking
import kotlinx.coroutines.yield
import org.junit.jupiter.api.Assertions.assertEquals
import org.junit.jupiter.api.Assertions.assertThrows
import org.junit.jupiter.api.Assertions.assertTrue
import org.junit.jupiter.api.Test

class KotlinJourneyTest {
    private class Screen : Observer {
        val states = mutableListOf<State>()
        val lines = mutableListOf<Pair<Author, String>>()
        override fun onStateChanged(status: Status) { states += status.state }
        override fun onMessage(message: Message) { lines += message.author to message.text }
    }

    @Test
    fun aCustomerReachesTheRobotAndAnAgent() {
        Kit().use { kit ->
            val screen = Screen()
            Service(kit.deskId(), screen).use { service ->
                val refused = assertThrows(RefusedException::class.java) { service.askForAgent() }
                assertEquals(Result.NOT_CONNECTED, refused.result())
                service.start(Customer().userInfo("userId", "k-1"), 15_000)
                kit.settle()
                service.sendText("Where is my order?")
                kit.settle()
                service.askForAgent()
                kit.settle()
                service.chooseGroup("after-sales")
                kit.settle()
            }
            assertEquals(listOf(State.CONNECTING, State.CONNECTED, State.ROBOT,
                State.CHOOSING_GROUP, State.WAITING_FOR_AGENT, State.AGENT), screen.states.take(6))
            assertTrue(screen.lines.contains(Author.CUSTOMER to "Where is my order?"))
            assertTrue(screen.lines.any { it.first == Author.AGENT })
        }
    }

    // The kit's settle() is the main thread: each suspended operation resumes once it has run.
    @Test
    fun aSessionsOperationsSuspendUntilTheDeskAnsweredAndItsFlowsFollow() = runBlocking {
        Kit().use { kit ->
            SupportSession(kit.deskId()).use { session ->
                // A StateFlow hands a collector the latest state: what a screen shows.
                val states = async(start = CoroutineStart.UNDISPATCHED) {
                    session.status.take(2).toList().map { it.state }
                }
                val started = async(start = CoroutineStart.UNDISPATCHED) { session.start() }
                kit.settle()
                assertEquals(State.ROBOT, started.await().state)
                assertEquals(listOf(State.NOT_STARTED, State.ROBOT), states.await())

                session.sendText("Where is my order?")
                kit.settle()
                yield()
                val lines = session.conversation.value
                assertEquals(Author.CUSTOMER, lines[1].author)
                assertEquals(Delivery.SENT, lines[1].delivery) // updated in place
                assertEquals(2L, session.unreadCount.value)
                kit.deskTyping(true)
                kit.settle()
                assertTrue(session.deskTyping.value)
                kit.deskRead()
                kit.settle()
                assertEquals(Delivery.READ, session.conversation.value[1].delivery)
                kit.deskInviteLeaveMessage("Leave us a message")
                kit.settle()
                assertEquals(Author.LEAVE_MESSAGE_INVITATION, session.conversation.value.last().author)

                val groups = async(start = CoroutineStart.UNDISPATCHED) { session.askForAgent() }
                kit.settle()
                assertEquals(State.CHOOSING_GROUP, groups.await().state)
                val served = async(start = CoroutineStart.UNDISPATCHED) {
                    session.chooseGroup("sales")
                }
                kit.settle() // the wait and the agent come in one turn: the latest is shown
                assertEquals(State.AGENT, served.await().state)
                session.markRead()
                kit.settle()
                assertEquals(0L, session.unreadCount.value)
            }
        }
    }

    // Runs the kit (the main thread) until `work` is done.
    private suspend fun <T> settled(kit: Kit, work: Deferred<T>, step: String,
                                    seen: () -> String = { "" }): T {
        repeat(1000) {
            if (work.isCompleted) return work.await()
            yield()
            kit.settle()
        }
        work.cancel()
        throw AssertionError("never done: $step ${seen()}")
    }

    @Test
    fun aFileGoesUpAsAFlowAndTheDesksComesDownIntoTheCache() = runBlocking {
        val folder = Files.createTempDirectory("quor-cs-kotlin-files")
        try {
            Kit().use { kit ->
                SupportSession(kit.deskId()).use { session ->
                    settled(kit, async(start = CoroutineStart.UNDISPATCHED) { session.start() }, "start")
                    val photo = folder.resolve("parcel.png")
                    Files.write(photo, byteArrayOf(0x89.toByte(), 'P'.code.toByte(), 'N'.code.toByte(),
                        'G'.code.toByte(), 13, 10, 26, 10) + ByteArray(40))
                    val refused = settled(kit, async(start = CoroutineStart.UNDISPATCHED) {
                        runCatching { session.sendFile(photo).toList() }
                    }, "the refusal")
                    assertEquals(Result.FILES_NOT_OFFERED,
                        (refused.exceptionOrNull() as RefusedException).result())

                    kit.setMaxFileBytes(1000)
                    kit.setFileCache(folder.resolve("cache"))
                    val sent = settled(kit, async(start = CoroutineStart.UNDISPATCHED) {
                        session.sendFile(photo).toList()
                    }, "the upload") { session.conversation.value.joinToString() }
                    assertEquals(FileTransfer.Progress(48, 48), sent.first())
                    val outcome = sent.last() as FileTransfer.Sent
                    assertEquals(Delivery.SENT, outcome.line.delivery)
                    assertEquals("image/png", outcome.line.attachment!!.mimeType)

                    kit.deskFile("../label.gif", "image/gif", "GIF89a\u0002\u0000\u0003\u0000".toByteArray())
                    kit.settle()
                    val line = session.conversation.value.last { it.attachment != null }
                    assertEquals(Author.ROBOT, line.author)
                    val fetched = settled(kit, async(start = CoroutineStart.UNDISPATCHED) {
                        session.downloadFile(line.sequence).toList()
                    }, "the download")
                    val saved = (fetched.last() as FileTransfer.Downloaded).file
                    assertEquals("image/gif", saved.mimeType)
                    assertEquals(folder.resolve("cache"), java.nio.file.Path.of(saved.localPath).parent)
                }
            }
        } finally {
            folder.toFile().deleteRecursively()
        }
    }

    @Test
    fun theAppStateAndAnOpenedNotificationReachTheAppWithoutALink() {
        XmppHost(XmppHost.Options("mei@localhost", "pw").push("push.localhost", "", "t1", "")).use { host ->
            assertEquals(AppState.FOREGROUND, host.appState())
            host.setAppState(AppState.BACKGROUND)
            assertEquals(AppState.BACKGROUND, host.appState())
            assertThrows(IllegalArgumentException::class.java) { host.setAppState(AppState.UNKNOWN) }
            host.setPush("push.localhost", "", "t2", "")
        }
        val notifications = SupportPushNotifications()
        assertEquals(null, notifications.open("{\"unread\": 1}"))
        val opened = notifications.open("{\"desk\": \"shop\", \"unread\": 3, \"account\": \"mei@localhost\"}")
        assertEquals("shop", opened?.deskId())
        runBlocking {
            val first = notifications.opened.first()
            assertEquals(3L, first.unread())
            assertEquals("mei@localhost", first.account())
        }
    }
}
