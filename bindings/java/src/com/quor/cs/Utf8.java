package com.quor.cs;

import java.nio.charset.StandardCharsets;

// Strings cross the native border as UTF-8 bytes: JNI's own string functions speak modified
// UTF-8, which mangles characters outside the BMP (emoji) and NUL.
final class Utf8 {
  private Utf8() {}

  static byte[] bytes(String text) {
    return text == null ? null : text.getBytes(StandardCharsets.UTF_8);
  }

  static String text(byte[] bytes) {
    return bytes == null ? "" : new String(bytes, StandardCharsets.UTF_8);
  }
}
