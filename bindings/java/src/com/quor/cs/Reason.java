package com.quor.cs;

/** Why a service failed, ended or went back to the robot. */
public enum Reason {
  NONE,
  CONNECTION_FAILED,
  HANDSHAKE_REFUSED,
  TIMEOUT,
  DESK_ENDED,
  BLOCKED,
  NO_AGENT_AVAILABLE,
  STOPPED_BY_APP,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  /** The value the C API gave, or UNKNOWN for one this binding does not know. */
  static Reason of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
