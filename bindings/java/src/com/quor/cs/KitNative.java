package com.quor.cs;

// The JNI functions over the test kit (quor_cs_kit.h), in their own library (quor_cs_kit_jni,
// or the file the system property quor.cs.kit.library names), loaded when a Kit is first made.
final class KitNative {
  private KitNative() {}

  static {
    Native.version(); // the binding's own library first: the kit's depends on it
    String path = System.getProperty("quor.cs.kit.library");
    if (path != null && !path.isEmpty()) {
      System.load(path);
    } else {
      System.loadLibrary("quor_cs_kit_jni");
    }
  }

  static native long kitCreate(byte[] profileJson, byte[][] error);

  static native void kitDestroy(long kit);

  static native byte[] kitDeskId(long kit);

  static native void kitSettle(long kit);

  static native int kitDeskSay(long kit, byte[] text);

  static native int kitDeskRequestRating(long kit);

  static native int kitDeskEnd(long kit, byte[] text, int code);

  static native int kitDeskInviteLeaveMessage(long kit, byte[] text);

  static native int kitDeskTyping(long kit, boolean typing);

  static native int kitDeskRead(long kit);

  static native int kitSetMaxFileBytes(long kit, long bytes);

  static native int kitHoldUploads(long kit, boolean held);

  static native int kitSetFileCache(long kit, byte[] directory);

  static native int kitDeskFile(long kit, byte[] name, byte[] mimeType, byte[] data);

  static native int kitCustomerTyping(long kit);
}
