package com.quor.cs;

/** Where the app stands in its platform's life cycle (docs/push.md). */
public enum AppState {
  FOREGROUND,
  /** Off screen: the server holds back what can wait, and push is enabled. */
  BACKGROUND,
  /** About to be frozen: the link is cut, the server keeps the session and pushes. */
  SUSPENDED,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  static AppState of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
