package com.quor.cs;

/** Who wrote a line of the conversation. */
public enum Author {
  CUSTOMER,
  ROBOT,
  AGENT,
  NOTICE
}
