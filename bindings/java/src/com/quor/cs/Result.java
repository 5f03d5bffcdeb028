package com.quor.cs;

/** Why the service refused an operation (nothing was sent); {@link #OK} when it went out. */
public enum Result {
  OK,
  ALREADY_STARTED,
  NOT_CONNECTED,
  AGENT_NOT_OFFERED,
  ALREADY_WITH_AGENT,
  BLOCKED,
  NOT_CHOOSING_GROUP,
  GROUP_NOT_OFFERED,
  RATING_NOT_OFFERED,
  NO_DIALOG_TO_RATE,
  STARS_NOT_OFFERED,
  INVALID_FORM,
  EMPTY_TEXT,
  /** A text that is not UTF-8 (a String with a lone surrogate). */
  INVALID_TEXT,
  /** sendText over the service's maxTextBytes once encoded. */
  TOO_LARGE,
  /** retry of a line that is not FAILED or UNCONFIRMED. */
  NOT_RETRYABLE,
  /** The host carries no files (or not now). */
  FILES_NOT_OFFERED,
  /** Not a readable, non-empty file. */
  FILE_UNREADABLE,
  /** A file type outside the accepted types. */
  TYPE_NOT_ACCEPTED,
  /** No such file transfer on that line. */
  NO_SUCH_FILE,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  /** The value the C API gave, or UNKNOWN for one this binding does not know. */
  static Result of(int code) {
    return NativeEnums.of(values(), code, UNKNOWN);
  }
}
