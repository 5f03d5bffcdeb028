package com.quor.cs;

import java.util.concurrent.Executor;
import java.util.concurrent.RejectedExecutionException;
import java.util.function.Consumer;

/**
 * The library as a whole: its version, the app's main thread, where observer exceptions go.
 *
 * <p>The native library is loaded from java.library.path ({@code quor_cs_jni}, which loads
 * {@code libquor_cs}), or from the file the system property {@code quor.cs.library} names.
 */
public final class QuorCS {
  private QuorCS() {}

  private static volatile Executor executor;
  private static volatile Consumer<Throwable> observerExceptionHandler =
      Throwable::printStackTrace;

  /** "1.0.0": the library's version. */
  public static String version() {
    return Utf8.text(Native.version());
  }

  /**
   * Runs the library's main-thread work, and so every observer and host callback of the main
   * thread, on {@code executor} (on Android, the main looper's: {@code
   * ContextCompat.getMainExecutor(context)}). Null goes back to the installed host's own queue
   * (the test kit's settle(), the XMPP host's settle()). Install it before services start.
   */
  /** The largest file the installed host sends now (its server's limit); 0: no files. */
  public static long maxFileBytes() {
    return Native.maxFileBytes();
  }

  public static void setMainThreadExecutor(Executor executor) {
    QuorCS.executor = executor;
    Native.setDispatcher(executor != null);
  }

  /** Where an exception thrown by an observer or a host goes (default: printed to stderr). */
  public static void setObserverExceptionHandler(Consumer<Throwable> handler) {
    observerExceptionHandler = handler != null ? handler : Throwable::printStackTrace;
  }

  static void report(Throwable thrown) {
    try {
      observerExceptionHandler.accept(thrown);
    } catch (Throwable ignored) {
      // The handler's own failure stays here too.
    }
  }

  // Called by the native dispatcher on any thread: queues one library task on the executor.
  static void post(long task) {
    Executor current = executor;
    try {
      if (current == null) throw new RejectedExecutionException("no executor");
      current.execute(() -> Native.runTask(task));
    } catch (Throwable rejected) {
      Native.dropTask(task);
      report(rejected);
    }
  }
}
