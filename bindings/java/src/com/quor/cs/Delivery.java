package com.quor.cs;

/**
 * How far a line got: received from the desk, or the customer's sending, sent (the server took
 * it), failed (it cannot have arrived) or unconfirmed (written, may have arrived: sent once more
 * under its id by itself, and SENT when that is confirmed), or read (sent, and the desk read it).
 */
public enum Delivery {
  RECEIVED,
  SENDING,
  SENT,
  FAILED,
  UNCONFIRMED,
  READ,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  /** The value the C API gave, or UNKNOWN for one this binding does not know. */
  static Delivery of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
