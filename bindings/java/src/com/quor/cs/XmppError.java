package com.quor.cs;

/** The XMPP host's error codes, as a failed line's {@link Message#errorCode} carries them. */
public enum XmppError {
  /** No link came within the outbox timeout: never written. */
  NOT_ONLINE(31001),
  /** Written, the link dropped before the server confirmed it: it may have arrived. */
  CONNECTION_LOST(31002),
  /** Written on a live link, not confirmed in time: it may have arrived. */
  TIMEOUT(31003),
  /** The server returned an error for it. */
  REJECTED(31004),
  /** The recipient does not exist or cannot take it. */
  NO_SUCH_RECIPIENT(31005),
  /** It could not be written (no body, a body that is not XML text, no JID for the target). */
  NOT_SENDABLE(31006),
  /** The host was closed or logged out while it waited. */
  STOPPED(31007),
  /** Larger than the server takes: never written. */
  TOO_LARGE(31008),
  /** A file was not sent: no upload service, a refused slot, a failed upload. */
  UPLOAD_FAILED(31009),
  /** The file's transfer was cancelled (or the host stopped during it). */
  CANCELLED(31010),
  /** A received file could not be fetched; nothing is left in the cache. */
  DOWNLOAD_FAILED(31011),
  /** Another code: a newer library's, or another host's. */
  UNKNOWN(0);

  /** The code, as the C API and the error callbacks carry it. */
  public final long code;

  XmppError(long code) {
    this.code = code;
  }

  /** The error with this code, or UNKNOWN. */
  public static XmppError of(long code) {
    for (XmppError error : values()) {
      if (error.code == code && error != UNKNOWN) return error;
    }
    return UNKNOWN;
  }
}
