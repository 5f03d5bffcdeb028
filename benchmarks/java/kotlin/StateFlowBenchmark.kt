// A desk's text reaching the app: a Java observer's call, against a Kotlin collector of the
// session's conversation StateFlow. A status change takes the same path (the binding's observer
// sets the flow's value; the collector resumes on the main thread's dispatcher). Both through
// the test kit, on one thread. Prints one JSON object.
import com.quor.cs.Kit
import com.quor.cs.Message
import com.quor.cs.Observer
import com.quor.cs.Service
import com.quor.cs.coroutines.SupportSession
import kotlinx.coroutines.CoroutineStart
import kotlinx.coroutines.async
import kotlinx.coroutines.launch
import kotlinx.coroutines.runBlocking
import kotlinx.coroutines.yield

private const val WARMUP = 3_000
private const val ROUNDS = 20_000
private const val TEXT = "Orders ship within 24 hours."

// Nanoseconds per round, of the measured pass after a warm-up pass.
private inline fun perRound(round: () -> Unit): Long {
    repeat(WARMUP) { round() }
    val start = System.nanoTime()
    repeat(ROUNDS) { round() }
    return (System.nanoTime() - start) / ROUNDS
}

private fun javaObserver(kit: Kit): Long {
    var seen = 0L
    val observer = object : Observer {
        override fun onMessage(message: Message) {
            ++seen
        }
    }
    return Service(kit.deskId(), observer).use { service ->
        service.start()
        kit.settle()
        perRound {
            val before = seen
            kit.deskSay(TEXT)
            kit.settle()
            check(seen > before)
        }
    }
}

private fun stateFlowCollector(kit: Kit): Long = runBlocking {
    SupportSession(kit.deskId()).use { session ->
        val started = async(start = CoroutineStart.UNDISPATCHED) { session.start() }
        kit.settle()
        started.await()
        var seen = 0
        val collector = launch(start = CoroutineStart.UNDISPATCHED) {
            session.conversation.collect { seen = it.size }
        }
        var result = 0L
        // The collector runs when this coroutine yields, as on a main thread's dispatcher.
        repeat(2) { pass ->
            val rounds = if (pass == 0) WARMUP else ROUNDS
            val start = System.nanoTime()
            repeat(rounds) {
                val before = seen
                kit.deskSay(TEXT)
                kit.settle()
                while (seen == before) yield()
            }
            result = (System.nanoTime() - start) / rounds
        }
        collector.cancel()
        result
    }
}

// Three rounds of each, interleaved, so that the machine's changing load falls on both; the
// lowest of each is printed.
fun main() {
    Kit().use { kit ->
        var java = Long.MAX_VALUE
        var flow = Long.MAX_VALUE
        repeat(3) {
            java = minOf(java, javaObserver(kit))
            flow = minOf(flow, stateFlowCollector(kit))
        }
        println("{\"java_observer_ns_per_text\": $java, \"kotlin_stateflow_ns_per_text\": $flow}")
    }
}
