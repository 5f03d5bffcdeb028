package com.quor.cs;

/**
 * The XMPP host's connection status. REPLACED (another login took the device's resource) and
 * REFUSED (the server refused the login: a wrong password, no such account) are for good: no
 * reconnection until logout() and connect() again.
 */
public enum XmppStatus {
  CONNECTED,
  CONNECTING,
  /** The link went; reconnecting. */
  DISCONNECTED,
  SIGNED_OUT,
  REPLACED,
  REFUSED,
  /** A value of a newer library that this one does not know. */
  UNKNOWN;

  static XmppStatus of(int value) {
    return NativeEnums.of(values(), value, UNKNOWN);
  }
}
