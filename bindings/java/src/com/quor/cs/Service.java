package com.quor.cs;

import java.util.Map;
import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/**
 * One customer service with one desk. Call its methods on the app's main thread; its observer is
 * called there too. Operations the service refuses throw {@link RefusedException} (nothing was
 * sent); a null argument where one is required throws IllegalArgumentException. Close it when
 * the screen goes: a running service ends (the desk gets its suspend when it asked for one), and
 * no observer call comes after close() returned.
 */
public final class Service extends NativeHandle {
  public Service(@NotNull String deskId, @NotNull Observer observer) {
    super(create(deskId, observer), "service");
  }

  private static long create(String deskId, Observer observer) {
    if (deskId == null || observer == null) throw new IllegalArgumentException("deskId, observer");
    long handle = Native.serviceCreate(Utf8.bytes(deskId), new ObserverBridge(observer));
    if (handle == 0) {
      throw new IllegalStateException(
          "a service for desk " + deskId + " is open already: close it first");
    }
    return handle;
  }

  /** Sends the handshake with the customer's information (may be null); timeoutMillis > 0:
   * no answer in that time ends in Failed(Timeout). */
  public void start(@Nullable Customer customer, long timeoutMillis) {
    Native.check(Native.serviceStart(
        live(), customer == null ? null : Utf8.bytes(customer.toJson()), timeoutMillis));
  }

  public void start() {
    start(null, 0);
  }

  public void askForAgent() {
    Native.check(Native.serviceAskForAgent(live()));
  }

  public void chooseGroup(@NotNull String groupId) {
    Native.check(Native.serviceChooseGroup(live(), Utf8.bytes(groupId)));
  }

  /** knowledgeId and suggestion may be null. */
  public void rateRobot(
      boolean resolved, @Nullable String knowledgeId, @Nullable String suggestion) {
    Native.check(Native.serviceRateRobot(
        live(), Utf8.bytes(knowledgeId), resolved, Utf8.bytes(suggestion)));
  }

  public void rateAgent(@NotNull AgentRating rating) {
    Native.check(Native.serviceRateAgent(live(), Utf8.bytes(rating.dialogId), rating.stars,
        Utf8.bytes(rating.suggestion), rating.resolved, Utf8.bytes(rating.tags),
        Utf8.bytes(rating.extraJson)));
  }

  /**
   * Checks the values (field name to value) against the desk's form and sends them. Returns
   * null when sent (the outcome comes to onMessageLeft), or the URL of the desk's web form, where
   * the customer leaves messages instead (nothing was sent). Throws {@link
   * InvalidFormException} with the field errors when the values fail the form.
   */
  public @Nullable String leaveMessage(@NotNull Map<String, String> values) {
    byte[][] out = new byte[2][];
    int code = Native.serviceLeaveMessage(live(), Utf8.bytes(Json.write(values)), out);
    if (code == Result.INVALID_FORM.ordinal()) {
      throw new InvalidFormException(Json.readStrings(out[0] == null ? null : Utf8.text(out[0])));
    }
    Native.check(code);
    return out[1] == null ? null : Utf8.text(out[1]);
  }

  public void end() {
    Native.check(Native.serviceEnd(live()));
  }

  /**
   * A line of text to the robot or the agent (from Connected on). Its delivery comes to
   * onMessageDelivery: SENT, FAILED, or UNCONFIRMED (sent once more by itself; SENT when
   * confirmed). A text that is not UTF-8 (a lone surrogate) is refused with INVALID_TEXT, one
   * over {@link #maxTextBytes()} once encoded with TOO_LARGE; null throws
   * IllegalArgumentException.
   */
  public void sendText(@NotNull String text) {
    if (text == null) throw new IllegalArgumentException("text is null");
    Native.check(Native.serviceSendText(live(), Utf8.bytes(text)));
  }

  /**
   * Sends the customer's line {@code sequence} (FAILED or UNCONFIRMED) once more under its
   * original id, so that the desk takes it once; NOT_RETRYABLE for another line.
   */
  public void retry(long sequence) {
    Native.check(Native.serviceRetry(live(), sequence));
  }

  /** The largest encoded text sendText sends, in bytes (65536 by default). */
  public long maxTextBytes() {
    return Native.serviceMaxTextBytes(live());
  }

  public void setMaxTextBytes(long bytes) {
    if (bytes < 0) throw new IllegalArgumentException("bytes < 0");
    Native.serviceSetMaxTextBytes(live(), bytes);
  }

  public long unreadCount() {
    return Native.serviceUnreadCount(live());
  }

  public void markRead() {
    Native.serviceMarkRead(live());
  }

  /**
   * The customer is typing (true, at each change of the input) or left the input (false): the
   * desk hears "typing" at most once per 5 s, and "stopped" after 5 s without a keystroke.
   * Throws RefusedException (NOT_CONNECTED) when the service does not run.
   */
  public void setTyping(boolean typing) {
    Native.check(Native.serviceSetTyping(live(), typing));
  }

  /**
   * Sends a picture or other file, read from {@code path} as it uploads; {@code name} (null: the
   * path's last part) and {@code mimeType} (null: what the first bytes show) may be null. Its
   * line comes to onMessage, its progress to onFileProgress, one outcome to onMessageDelivery.
   * Throws RefusedException at once, with nothing sent: FILES_NOT_OFFERED, FILE_UNREADABLE,
   * TOO_LARGE (over {@link QuorCS#maxFileBytes}), TYPE_NOT_ACCEPTED.
   */
  public void sendFile(@NotNull java.nio.file.Path path, @Nullable String name,
      @Nullable String mimeType) {
    if (path == null) throw new IllegalArgumentException("path is null");
    Native.check(Native.serviceSendFile(live(), Utf8.bytes(path.toString()),
        name == null ? null : Utf8.bytes(name), mimeType == null ? null : Utf8.bytes(mimeType)));
  }

  /** Stops line {@code sequence}'s upload (it ends FAILED) or download; NO_SUCH_FILE else. */
  public void cancelFile(long sequence) {
    Native.check(Native.serviceCancelFile(live(), sequence));
  }

  /**
   * Fetches the desk's file of line {@code sequence} into the host's file cache (never by
   * itself): onFileProgress, then onFileDownloaded. Throws RefusedException (NO_SUCH_FILE).
   */
  public void downloadFile(long sequence) {
    Native.check(Native.serviceDownloadFile(live(), sequence));
  }

  /** The MIME types sendFile takes: "application/pdf", "image/*", "*&#47;*". */
  public void setAcceptedFileTypes(@NotNull java.util.List<String> types) {
    byte[][] encoded = new byte[types.size()][];
    for (int i = 0; i < encoded.length; ++i) {
      if (types.get(i) == null) throw new IllegalArgumentException("a type is null");
      encoded[i] = Utf8.bytes(types.get(i));
    }
    Native.check(Native.serviceSetAcceptedFileTypes(live(), encoded));
  }

  /** The last state reported (or about to be). */
  public @NotNull Status status() {
    return Native.serviceStatus(live());
  }

  @Override
  void destroy(long handle) {
    Native.serviceDestroy(handle);
  }
}
