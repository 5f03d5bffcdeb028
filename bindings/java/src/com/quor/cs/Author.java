package com.quor.cs;

/** Who wrote a line of the conversation. */
public enum Author {
  CUSTOMER,
  ROBOT,
  AGENT,
  NOTICE,
  /** The desk invites the customer to leave a message: show the form. */
  LEAVE_MESSAGE_INVITATION,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  /** The value the C API gave, or UNKNOWN for one this binding does not know. */
  static Author of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
