package com.quor.cs;

import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/**
 * The test kit: an in-process host with a scripted desk (the desk simulator), so that an app's
 * screens can be tested against a desk without a server. Its services' observers are called by
 * {@link #settle()}, on the calling thread. One kit at a time; close its services first.
 */
public final class Kit extends NativeHandle {
  /** The default desk profile. */
  public Kit() {
    this(null);
  }

  /** A desk made from profileJson, merged into the default profile; a bad profile throws
   * IllegalArgumentException with the reason. */
  public Kit(@Nullable String profileJson) {
    super(create(profileJson), "kit");
  }

  private static long create(String profileJson) {
    byte[][] error = new byte[1][];
    long handle = KitNative.kitCreate(Utf8.bytes(profileJson), error);
    if (handle == 0) {
      String reason = error[0] == null ? "no kit" : Utf8.text(error[0]);
      if (reason.startsWith("another kit or host")) throw new IllegalStateException(reason);
      throw new IllegalArgumentException(reason);
    }
    return handle;
  }

  public @NotNull String deskId() {
    return Utf8.text(KitNative.kitDeskId(live()));
  }

  /** Runs the host and its main queue until nothing more happens. */
  public void settle() {
    KitNative.kitSettle(live());
  }

  /** A text from whoever serves (robot or agent). */
  public void deskSay(@NotNull String text) {
    Native.check(KitNative.kitDeskSay(live(), Utf8.bytes(text)));
  }

  public void deskRequestRating() {
    Native.check(KitNative.kitDeskRequestRating(live()));
  }

  /** The end (code 0) or a hand-back to the robot (code 1), with a closing text. */
  public void deskEnd(@Nullable String text, int code) {
    Native.check(KitNative.kitDeskEnd(live(), Utf8.bytes(text), code));
  }

  /** The desk invites the customer to leave a message: a line by LEAVE_MESSAGE_INVITATION. */
  public void deskInviteLeaveMessage(@NotNull String text) {
    Native.check(KitNative.kitDeskInviteLeaveMessage(live(), Utf8.bytes(text)));
  }

  /** The desk is typing, or stopped. */
  public void deskTyping(boolean typing) {
    Native.check(KitNative.kitDeskTyping(live(), typing));
  }

  /** Files, kept in memory: none until a limit is set (0: none). */
  public void setMaxFileBytes(long limit) {
    Native.check(KitNative.kitSetMaxFileBytes(live(), limit));
  }

  /** While held, uploads wait (a test cancels one meanwhile). */
  public void holdUploads(boolean held) {
    Native.check(KitNative.kitHoldUploads(live(), held));
  }

  /** Where downloadFile writes the desk's files. */
  public void setFileCache(@NotNull java.nio.file.Path directory) {
    Native.check(KitNative.kitSetFileCache(live(), Utf8.bytes(directory.toString())));
  }

  /** The desk sends a file (kept by the kit) from whoever serves. */
  public void deskFile(@NotNull String name, @NotNull String mimeType, byte @NotNull [] data) {
    Native.check(KitNative.kitDeskFile(live(), Utf8.bytes(name), Utf8.bytes(mimeType), data));
  }

  /** The desk read the customer's lines so far: they become READ. */
  public void deskRead() {
    Native.check(KitNative.kitDeskRead(live()));
  }

  /** What the library last told the desk: true typing, false stopped, null nothing yet. */
  public @Nullable Boolean customerTyping() {
    int told = KitNative.kitCustomerTyping(live());
    return told < 0 ? null : told == 1;
  }

  @Override
  void destroy(long handle) {
    KitNative.kitDestroy(handle);
  }
}
