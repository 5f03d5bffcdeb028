// The Java binding from Kotlin: a journey against the test kit, as an Android app would write it.
import com.quor.cs.Author
import com.quor.cs.Customer
import com.quor.cs.Kit
import com.quor.cs.Message
import com.quor.cs.Observer
import com.quor.cs.RefusedException
import com.quor.cs.Result
import com.quor.cs.Service
import com.quor.cs.State
import com.quor.cs.Status
import org.junit.Assert.assertEquals
import org.junit.Assert.assertTrue
import org.junit.Test

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
                val refused = try {
                    service.askForAgent(); null
                } catch (e: RefusedException) { e.result() }
                assertEquals(Result.NOT_CONNECTED, refused)
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
}
