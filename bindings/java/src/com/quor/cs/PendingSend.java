package com.quor.cs;

import java.util.concurrent.atomic.AtomicLong;

/** One send of the library waiting for its outcome: complete it once, from any thread. A second
 * completion is ignored. */
public final class PendingSend {
  private final AtomicLong handle;

  PendingSend(long handle) {
    this.handle = new AtomicLong(handle);
  }

  public void succeeded(long messageId, long sentTime) {
    long taken = handle.getAndSet(0);
    if (taken != 0) Native.sendSucceeded(taken, messageId, sentTime);
  }

  public void failed(long errorCode) {
    long taken = handle.getAndSet(0);
    if (taken != 0) Native.sendFailed(taken, errorCode);
  }
}
