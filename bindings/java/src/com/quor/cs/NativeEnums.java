package com.quor.cs;

// The C API's enumerators as Java enums: each enum lists the C values in order and ends with
// UNKNOWN, which stands for any value a newer library adds (never an exception).
final class NativeEnums {
  private NativeEnums() {}

  static <E extends Enum<E>> E of(E[] values, int value, E unknown) {
    return value >= 0 && value < values.length - 1 ? values[value] : unknown;
  }
}
