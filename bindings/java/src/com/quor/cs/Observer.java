package com.quor.cs;

import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/**
 * What a service reports. Every method runs on the app's main thread (the executor given to
 * {@link QuorCS#setMainThreadExecutor}, else the thread that settles the installed host), one at
 * a time, in order, and none after {@link Service#close()} returned. An exception a method throws
 * goes to {@link QuorCS#setObserverExceptionHandler}'s handler and never reaches the library.
 */
public interface Observer {
  default void onStateChanged(@NotNull Status status) {}

  /** The desk asks for a rating of the agent; dialogId may be null. */
  default void onRatingRequested(@Nullable String dialogId) {}

  /** The desk's evaluation settings, a JSON object. */
  default void onEvaluationSettings(@NotNull String settingsJson) {}

  /** The outcome of {@link Service#leaveMessage}: sent (message id) or not (error code). */
  default void onMessageLeft(boolean sent, long messageIdOrErrorCode) {}

  default void onMessage(@NotNull Message message) {}

  default void onMessageDelivery(@NotNull Message message) {}

  default void onUnreadCountChanged(long unread) {}

  /** The desk is typing, or stopped (also when its line arrives and at the end). */
  default void onDeskTyping(boolean typing) {}

  /** A file of line {@code sequence} moves (an upload, or a download), about 100 times at most. */
  default void onFileProgress(long sequence, long done, long total) {}

  /**
   * {@link Service#downloadFile} ended: {@code file} with its localPath and the type its bytes
   * show, or {@code errorCode} (the host's) and an empty localPath.
   */
  default void onFileDownloaded(long sequence, @NotNull Attachment file, long errorCode) {}
}
