package com.quor.cs;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

// The little JSON the binding writes (maps, lists, strings, numbers, booleans) and reads (what
// the library writes: the configuration, the form's field errors). Iterative and linear in the
// text's length; the library's own JSON is well-formed, and anything else reads as far as it
// makes sense.
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

  // Any value: a Map (insertion order), a List, a String, a Long or a Double, a Boolean, or null.
  static Object read(String text) {
    if (text == null) return null;
    Reading reading = new Reading();
    int[] at = {skip(text, 0)};
    while (at[0] < text.length() && !reading.done) {
      char c = text.charAt(at[0]);
      if (c == ',' || c == ':') {
        at[0] = skip(text, at[0] + 1);
      } else if (c == '}' || c == ']') {
        at[0] = skip(text, at[0] + 1);
        if (reading.open.isEmpty()) break;
        // Delivered when it opened: closing it only ends it (and the text, at the top).
        reading.expectKey.pop();
        reading.open.pop();
        reading.done = reading.open.isEmpty();
      } else if (c == '"' && reading.wantsKey()) {
        String key = string(text, at);
        at[0] = skip(text, at[0]);
        reading.keys.push(key);
        reading.expectKey.pop();
        reading.expectKey.push(false);
      } else if (c == '{' || c == '[') {
        at[0] = skip(text, at[0] + 1);
        Object container =
            c == '{' ? new LinkedHashMap<String, Object>() : new ArrayList<Object>();
        reading.deliver(container, true);
        reading.open.push(container);
        reading.expectKey.push(c == '{');
      } else if (c == '"') {
        reading.deliver(string(text, at), false);
        at[0] = skip(text, at[0]);
      } else {
        int end = at[0];
        while (end < text.length() && ",:}] \t\r\n".indexOf(text.charAt(end)) < 0) ++end;
        reading.deliver(scalar(text.substring(at[0], Math.max(end, at[0] + 1))), false);
        at[0] = skip(text, Math.max(end, at[0] + 1));
      }
    }
    return reading.result;
  }

  // What read() keeps: the open containers, whether each Map wants a key next, the keys whose
  // values are awaited, and the top-level value.
  private static final class Reading {
    final Deque<Object> open = new ArrayDeque<>();
    final Deque<Boolean> expectKey = new ArrayDeque<>();
    final Deque<String> keys = new ArrayDeque<>();
    Object result;
    boolean done;

    boolean wantsKey() {
      return !open.isEmpty() && open.peek() instanceof Map && expectKey.peek();
    }

    @SuppressWarnings("unchecked")
    void deliver(Object value, boolean opening) {
      if (open.isEmpty()) {
        result = value;
        done = !opening; // a scalar is the whole text
        return;
      }
      Object container = open.peek();
      if (container instanceof Map) {
        ((Map<String, Object>) container).put(keys.isEmpty() ? "" : keys.pop(), value);
        expectKey.pop();
        expectKey.push(true);
      } else {
        ((List<Object>) container).add(value);
      }
    }
  }

  private static Object scalar(String word) {
    switch (word) {
      case "true": return Boolean.TRUE;
      case "false": return Boolean.FALSE;
      case "null": return null;
      default:
        try {
          return Long.parseLong(word);
        } catch (NumberFormatException notLong) {
          try {
            return Double.parseDouble(word);
          } catch (NumberFormatException notNumber) {
            return null;
          }
        }
    }
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
