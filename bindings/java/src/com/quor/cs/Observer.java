package com.quor.cs;

/**
 * What a service reports. Every method runs on the app's main thread (the executor given to
 * {@link QuorCS#setMainThreadExecutor}, else the thread that settles the installed host), one at
 * a time, in order, and none after {@link Service#close()} returned. An exception a method throws
 * goes to {@link QuorCS#setObserverExceptionHandler}'s handler and never reaches the library.
 */
public interface Observer {
  default void onStateChanged(Status status) {}

  /** The desk asks for a rating of the agent; dialogId may be null. */
  default void onRatingRequested(String dialogId) {}

  /** The desk's evaluation settings, a JSON object. */
  default void onEvaluationSettings(String settingsJson) {}

  /** The outcome of {@link Service#leaveMessage}: sent (message id) or not (error code). */
  default void onMessageLeft(boolean sent, long messageIdOrErrorCode) {}

  default void onMessage(Message message) {}

  default void onMessageDelivery(Message message) {}

  default void onUnreadCountChanged(long unread) {}
}
