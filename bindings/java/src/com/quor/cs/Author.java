package com.quor.cs;

/** Who wrote a line of the conversation. */
public enum Author {
  CUSTOMER,
  ROBOT,
  AGENT,
  NOTICE,
  /** The desk invites the customer to leave a message: show the form. */
  LEAVE_MESSAGE_INVITATION
}
