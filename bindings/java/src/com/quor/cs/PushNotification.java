package com.quor.cs;

/**
 * A push notification as quor-cs-push hands it on (docs/push.md): which desk wrote, how many of
 * its messages came since the app went to the background, and for which account. Read without
 * a link, to open the right conversation. Immutable; any thread.
 */
public final class PushNotification {
  private final String deskId;
  private final long unread;
  private final String account;

  private PushNotification(String deskId, long unread, String account) {
    this.deskId = deskId;
    this.unread = unread;
    this.account = account;
  }

  /**
   * Reads a notification's JSON (an FCM data field, an APNs payload's key).
   *
   * @throws IllegalArgumentException for text that is not such a notification
   */
  public static PushNotification read(String json) {
    byte[][] out = new byte[2][];
    long[] unread = new long[1];
    if (json == null || Native.pushRead(Utf8.bytes(json), out, unread) != 0) {
      throw new IllegalArgumentException("not a push notification");
    }
    return new PushNotification(Utf8.text(out[0]), unread[0], Utf8.text(out[1]));
  }

  public String deskId() {
    return deskId;
  }

  public long unread() {
    return unread;
  }

  public String account() {
    return account;
  }

  @Override
  public String toString() {
    return "PushNotification(" + deskId + ", unread=" + unread + ", " + account + ")";
  }
}
