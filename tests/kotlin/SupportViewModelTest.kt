// The Android sample's ViewModel (examples/android) against the test kit.
import com.example.support.SupportViewModel
import com.quor.cs.Author
import com.quor.cs.Kit
import com.quor.cs.State
import com.quor.cs.coroutines.SupportRefusal
import org.junit.jupiter.api.Assertions.assertEquals
import org.junit.jupiter.api.Test

class SupportViewModelTest {
    @Test
    fun theSampleViewModelOpensTalksAndTurnsARefusalIntoState() {
        Kit().use { kit ->
            val model = SupportViewModel(kit.deskId(), "k-9")
            model.send("too early")
            assertEquals(SupportRefusal.NOT_CONNECTED, model.lastRefusal.value)
            model.refusalShown()
            model.open()
            kit.settle()
            assertEquals(State.ROBOT, model.status.value.state)
            model.send("Where is my order?")
            kit.settle()
            assertEquals(Author.CUSTOMER, model.conversation.value[1].author)
            model.askForAgent()
            kit.settle()
            assertEquals(State.CHOOSING_GROUP, model.status.value.state)
            model.clear()
        }
    }
}
