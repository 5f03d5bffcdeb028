package com.quor.cs;

// The JNI functions over the C API (quor_cs.h), one per C function. Strings cross as UTF-8
// bytes; handles are the C pointers as long; results are the C codes.
final class Native {
  private Native() {}

  static {
    String path = System.getProperty("quor.cs.library");
    if (path != null && !path.isEmpty()) {
      System.load(path);
    } else {
      System.loadLibrary("quor_cs_jni");
    }
  }

  static native byte[] version();

  static native void setDispatcher(boolean install);

  static native void runTask(long task);

  static native void dropTask(long task);

  static native long serviceCreate(byte[] deskId, ObserverBridge observer);

  static native void serviceDestroy(long service);

  static native int serviceStart(long service, byte[] customerJson, long timeoutMillis);

  static native int serviceAskForAgent(long service);

  static native int serviceChooseGroup(long service, byte[] groupId);

  static native int serviceRateRobot(
      long service, byte[] knowledgeId, boolean resolved, byte[] suggestion);

  static native int serviceRateAgent(long service, byte[] dialogId, int stars, byte[] suggestion,
      long resolved, byte[] tags, byte[] extraJson);

  // out[0]: the field errors (JSON), out[1]: the web form's URL; null when none.
  static native int serviceLeaveMessage(long service, byte[] valuesJson, byte[][] out);

  static native int serviceEnd(long service);

  static native int serviceSendText(long service, byte[] text);

  static native int serviceRetry(long service, long sequence);

  static native long serviceMaxTextBytes(long service);

  static native void serviceSetMaxTextBytes(long service, long bytes);

  static native long serviceUnreadCount(long service);

  static native void serviceMarkRead(long service);

  static native int serviceSetTyping(long service, boolean typing);

  static native int serviceSendFile(long service, byte[] path, byte[] name, byte[] mimeType);

  static native int serviceCancelFile(long service, long sequence);

  static native int serviceDownloadFile(long service, long sequence);

  static native int serviceSetAcceptedFileTypes(long service, byte[][] types);

  static native long maxFileBytes();

  static native Status serviceStatus(long service);

  static native long hostInstall(HostBridge host);

  static native void hostUninstall(long host);

  // 1 held, 0 not, or a negative C code.
  static native int hostReceive(long host, byte[] objectName, byte[] body, byte[] targetId,
      byte[] senderId, long sentTime, boolean offline);

  static native long hostRunMain(long host);

  static native void sendSucceeded(long send, long messageId, long sentTime);

  static native void sendFailed(long send, long errorCode);

  static native long xmppCreate(byte[] optionsJson, byte[][] error);

  static native void xmppDestroy(long host);

  static native int xmppConnect(long host);

  static native void xmppLogout(long host);

  static native boolean xmppWaitOnline(long host, long timeoutMillis);

  static native int xmppStatus(long host);

  static native void xmppSettle(long host, long quietMillis);

  static native int xmppSendText(long host, byte[] deskId, byte[] text);

  static native int xmppHistory(
      long host, byte[] deskId, long beforeMessageId, int count, byte[][] out);

  static native int xmppSetAppState(long host, int state);

  static native int xmppAppState(long host);

  static native int xmppLastServiceState(long host, byte[] desk);

  static native int xmppSetPush(long host, byte[] service, byte[] node, byte[] token, byte[] secret);

  // out: the desk's id and the account; unread: the count.
  static native int pushRead(byte[] json, byte[][] out, long[] unread);

  // The C result code as the binding's exception, or nothing for OK.
  static void check(int code) {
    if (code == 0) return;
    if (code > 0) throw new RefusedException(Result.of(code)); // UNKNOWN: a newer result
    if (code == -1) throw new IllegalArgumentException("a required argument is missing or invalid");
    if (code == -2) throw new OutOfMemoryError("the library ran out of memory");
    if (code == -4) {
      throw new IllegalStateException("not now: another kit or host is installed (close it first)");
    }
    throw new IllegalStateException("the library failed (code " + code + "); see its log");
  }
}
