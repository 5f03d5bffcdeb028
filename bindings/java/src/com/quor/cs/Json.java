package com.quor.cs;

import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

// The little JSON the binding writes (maps, lists, strings, numbers, booleans) and reads (an
// object of strings: the form's field errors). Iterative and linear in the text's length.
final class Json {
  private Json() {}

  static String write(Object value) {
    StringBuilder out = new StringBuilder();
    append(out, value);
    return out.toString();
  }

  private static void append(StringBuilder out, Object value) {
    if (value == null) {
      out.append("null");
    } else if (value instanceof Map) {
      out.append('{');
      Iterator<? extends Map.Entry<?, ?>> entries = ((Map<?, ?>) value).entrySet().iterator();
      while (entries.hasNext()) {
        Map.Entry<?, ?> entry = entries.next();
        quote(out, String.valueOf(entry.getKey()));
        out.append(':');
        append(out, entry.getValue());
        if (entries.hasNext()) out.append(',');
      }
      out.append('}');
    } else if (value instanceof List) {
      out.append('[');
      List<?> items = (List<?>) value;
      for (int i = 0; i < items.size(); ++i) {
        if (i > 0) out.append(',');
        append(out, items.get(i));
      }
      out.append(']');
    } else if (value instanceof Number || value instanceof Boolean) {
      out.append(value);
    } else {
      quote(out, value.toString());
    }
  }

  private static void quote(StringBuilder out, String text) {
    out.append('"');
    for (int i = 0; i < text.length(); ++i) {
      char c = text.charAt(i);
      if (c == '"' || c == '\\') {
        out.append('\\').append(c);
      } else if (c < 0x20) {
        out.append(String.format("\\u%04x", (int) c));
      } else {
        out.append(c);
      }
    }
    out.append('"');
  }

  // A flat object of strings, as the library writes it; anything else gives an empty map.
  static Map<String, String> readStrings(String text) {
    Map<String, String> result = new LinkedHashMap<>();
    if (text == null) return result;
    int[] at = {skip(text, 0)};
    if (at[0] >= text.length() || text.charAt(at[0]) != '{') return result;
    at[0] = skip(text, at[0] + 1);
    while (at[0] < text.length() && text.charAt(at[0]) == '"') {
      String key = string(text, at);
      at[0] = skip(text, at[0]);
      if (at[0] >= text.length() || text.charAt(at[0]) != ':') break;
      at[0] = skip(text, at[0] + 1);
      if (at[0] >= text.length() || text.charAt(at[0]) != '"') break;
      result.put(key, string(text, at));
      at[0] = skip(text, at[0]);
      if (at[0] < text.length() && text.charAt(at[0]) == ',') at[0] = skip(text, at[0] + 1);
    }
    return result;
  }

  private static int skip(String text, int at) {
    while (at < text.length() && Character.isWhitespace(text.charAt(at))) ++at;
    return at;
  }

  // The string starting at the quote at[0]; at[0] ends after its closing quote.
  private static String string(String text, int[] at) {
    StringBuilder out = new StringBuilder();
    int i = at[0] + 1;
    while (i < text.length() && text.charAt(i) != '"') {
      char c = text.charAt(i++);
      if (c != '\\' || i >= text.length()) {
        out.append(c);
        continue;
      }
      char escaped = text.charAt(i++);
      switch (escaped) {
        case 'n': out.append('\n'); break;
        case 't': out.append('\t'); break;
        case 'r': out.append('\r'); break;
        case 'b': out.append('\b'); break;
        case 'f': out.append('\f'); break;
        case 'u':
          if (i + 4 <= text.length()) {
            out.append((char) Integer.parseInt(text.substring(i, i + 4), 16));
            i += 4;
          }
          break;
        default: out.append(escaped);
      }
    }
    at[0] = i + 1;
    return out.toString();
  }
}
