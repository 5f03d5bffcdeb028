package com.quor.cs;

/** How far a line got: received from the desk, or the customer's sending, sent or failed. */
public enum Delivery {
  RECEIVED,
  SENDING,
  SENT,
  FAILED
}
