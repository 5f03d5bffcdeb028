package com.quor.cs;

/** Where a service stands. */
public enum State {
  NOT_STARTED,
  CONNECTING,
  CONNECTED,
  ROBOT,
  CHOOSING_GROUP,
  WAITING_FOR_AGENT,
  AGENT,
  ENDED,
  FAILED,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  /** The value the C API gave, or UNKNOWN for one this binding does not know. */
  static State of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
