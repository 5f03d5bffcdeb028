import com.quor.cs.Kit;
import com.quor.cs.Message;
import com.quor.cs.Observer;
import com.quor.cs.QuorCS;
import com.quor.cs.Service;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.atomic.AtomicLong;

// A text of the desk reaching a Java observer: the same round as the C benchmark
// BM_DeskTextToObserver_C (the kit's desk says a text, the host delivers it), plus the JNI call
// and, with an executor, the hand-over to the app's main thread. Prints one JSON object.
public final class CallbackBenchmark {
  private static final int WARMUP = 3_000;
  private static final int ROUNDS = 20_000;

  private static double nanosPerRound(Kit kit, AtomicLong seen, boolean waitForExecutor) {
    try (Service service = new Service(kit.deskId(), new Observer() {
      @Override
      public void onMessage(Message message) {
        seen.incrementAndGet();
      }
    })) {
      service.start();
      kit.settle();
      long best = Long.MAX_VALUE;
      for (int pass = 0; pass < 2; ++pass) {
        int rounds = pass == 0 ? WARMUP : ROUNDS;
        long start = System.nanoTime();
        for (int i = 0; i < rounds; ++i) {
          long before = seen.get();
          kit.deskSay("Orders ship within 24 hours.");
          kit.settle();
          while (waitForExecutor && seen.get() == before) Thread.onSpinWait();
        }
        if (pass == 1) best = (System.nanoTime() - start) / rounds;
      }
      return best;
    }
  }

  public static void main(String[] args) {
    try (Kit kit = new Kit()) {
      AtomicLong seen = new AtomicLong();
      double settled = nanosPerRound(kit, seen, false);
      ExecutorService main = Executors.newSingleThreadExecutor();
      QuorCS.setMainThreadExecutor(main);
      double executed = nanosPerRound(kit, seen, true);
      QuorCS.setMainThreadExecutor(null);
      main.shutdown();
      System.out.printf("{\"jni_settle_ns_per_text\": %.0f, \"jni_executor_ns_per_text\": %.0f}%n",
          settled, executed);
    }
  }
}
