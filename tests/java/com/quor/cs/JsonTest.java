package com.quor.cs;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

// The binding's JSON reader: what the library writes reads back whole, nesting costs no stack,
// and text that is not JSON never throws.
public class JsonTest {
  @Test
  public void readsWhatTheLibraryWrites() {
    Map<String, Object> expected = new LinkedHashMap<>();
    expected.put("name", "梅 \"q\"\n");
    expected.put("n", 5L);
    expected.put("x", 1.5);
    expected.put("on", true);
    expected.put("none", null);
    expected.put("list", Arrays.asList(1L, Collections.singletonMap("k", "v"),
        Collections.emptyList()));
    assertEquals(expected, Json.read(Json.write(expected)));
  }

  @Test
  public void deepNestingReadsWithoutRecursion() {
    int depth = 200_000;
    StringBuilder text = new StringBuilder();
    for (int i = 0; i < depth; ++i) text.append("{\"a\":[");
    for (int i = 0; i < depth; ++i) text.append("]}");
    Object value = Json.read(text.toString());
    for (int i = 0; i < 3; ++i) {
      @SuppressWarnings("unchecked")
      List<Object> inner = (List<Object>) ((Map<?, ?>) value).get("a");
      value = inner.get(0);
    }
    assertEquals(LinkedHashMap.class, value.getClass());
  }

  @Test
  public void textThatIsNotJsonReadsAsFarAsItGoes() {
    for (String text : new String[] {"", "}", "{\"a\":", "[1,,2", "{\"a\" 1}", "nul", "\"open"}) {
      Json.read(text); // never throws
    }
    assertNull(Json.read(null));
    assertEquals(Arrays.asList(1L, 2L), Json.read("[1,,2"));
    assertNull(Configuration.fromJson("[1]"));
  }
}
