package com.quor.cs;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayDeque;
import java.util.Queue;
import java.util.concurrent.Executor;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

// The app's executor as the main thread: every callback runs there, and none after close().
public class ExecutorTest {
  // An app's main loop: tasks wait in a queue until the app runs them on its own thread.
  static final class Loop implements Executor {
    final Queue<Runnable> tasks = new ArrayDeque<>();
    Thread runner;

    @Override
    public synchronized void execute(Runnable task) {
      tasks.add(task);
    }

    synchronized Runnable next() {
      return tasks.poll();
    }

    int run(Kit kit) {
      runner = Thread.currentThread();
      int ran = 0;
      for (;;) {
        kit.settle();
        Runnable task = next();
        if (task == null) return ran;
        task.run();
        ++ran;
      }
    }
  }

  private Kit kit;
  private final Loop loop = new Loop();

  @BeforeEach
  public void install() {
    kit = new Kit();
    QuorCS.setMainThreadExecutor(loop);
  }

  @AfterEach
  public void uninstall() {
    QuorCS.setMainThreadExecutor(null);
    kit.close();
  }

  @Test
  public void callbacksRunOnTheAppsExecutorOnly() {
    Thread[] seen = new Thread[1];
    int[] wrong = {0};
    Screen screen = new Screen() {
      @Override
      public void onStateChanged(Status status) {
        super.onStateChanged(status);
        if (Thread.currentThread() != loop.runner) ++wrong[0];
        seen[0] = Thread.currentThread();
      }
    };
    try (Service service = new Service(kit.deskId(), screen)) {
      service.start();
      kit.settle();
      assertTrue(screen.states.isEmpty());  // nothing until the app's loop runs
      assertTrue(loop.run(kit) > 0);
      assertEquals(State.ROBOT, screen.last.state);
      assertEquals(0, wrong[0]);
    }
  }

  @Test
  public void noCallbackAfterCloseEvenWithTasksStillQueued() {
    Screen screen = new Screen();
    Service service = new Service(kit.deskId(), screen);
    service.start();
    kit.settle();
    assertTrue(!loop.tasks.isEmpty());
    service.close();
    loop.run(kit);
    assertEquals(0, screen.calls);
  }
}
