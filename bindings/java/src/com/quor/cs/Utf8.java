package com.quor.cs;

import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;

// Strings cross the native border as UTF-8 bytes: JNI's own string functions speak modified
// UTF-8, which mangles characters outside the BMP (emoji) and NUL.
final class Utf8 {
  private Utf8() {}

  // A String with a lone surrogate has no UTF-8 form: it is refused (INVALID_TEXT), as the
  // library refuses such bytes, never sent with a replacement character.
  static byte[] bytes(String text) {
    if (text == null) return null;
    try {
      ByteBuffer encoded = StandardCharsets.UTF_8.newEncoder()
          .onMalformedInput(CodingErrorAction.REPORT)
          .onUnmappableCharacter(CodingErrorAction.REPORT)
          .encode(CharBuffer.wrap(text));
      byte[] bytes = new byte[encoded.remaining()];
      encoded.get(bytes);
      return bytes;
    } catch (CharacterCodingException e) {
      throw new RefusedException(Result.INVALID_TEXT);
    }
  }

  static String text(byte[] bytes) {
    return bytes == null ? "" : new String(bytes, StandardCharsets.UTF_8);
  }
}
