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
  FAILED
}
