package com.quor.cs;

/**
 * What the library needs of an IM core written in Java or Kotlin: implement it and install it
 * with {@link InstalledHost#install}. Every method may be called from any thread, concurrently;
 * bodies are the contents' bytes. An exception a method throws goes to the observer exception
 * handler; the library then sees a failed send, nothing stored or false.
 */
public interface Host {
  /**
   * Sends body under objectName to targetId in the customer-service conversation. Later, complete
   * {@code send} exactly once: the message id and the server's sent time (never 0, never after
   * the time of a reply the desk sends later), or the error code.
   */
  void send(String targetId, String objectName, byte[] body, PendingSend send);

  /** Stores a local message of targetId's conversation as received from senderId, read;
   * returns its message id, or -1 when it could not be stored. */
  default long insertIncoming(String targetId, String senderId, String objectName, byte[] body) {
    return -1;
  }

  /** Shows a local message (one insertIncoming stored, or an unstored notice, id 0) to the app
   * as if received. */
  default void deliverLocal(long messageId, String targetId, String objectName, byte[] body) {}

  /** A content type to decode by name from now on; persistentFlag bit 1: store it. */
  default void registerType(String objectName, int persistentFlag) {}

  /** A log line of the library: level 2 errors ... 5 debug. */
  default void log(int level, String tag, String text) {}

  /** The local setting csSuspendWhenLeave: true sends a suspend when a service stops. */
  default boolean suspendWhenLeave() {
    return false;
  }
}
