package com.quor.cs;

import java.util.LinkedHashMap;
import java.util.Map;

/**
 * The whole stack for an app without an IM core of its own: an XMPP client with a SQLite store
 * as the library's host. Its services' observers are called by {@link #settle} on the calling
 * thread, unless the app set a main-thread executor.
 */
public final class XmppHost extends NativeHandle {
  /** How to reach the account. jid and password are required. */
  public static final class Options {
    private final Map<String, Object> values = new LinkedHashMap<>();

    public Options(String jid, String password) {
      values.put("jid", jid);
      values.put("password", password);
    }

    /** The server's address (default: the JID's domain). */
    public Options server(String server) {
      values.put("server", server);
      return this;
    }

    public Options port(int port) {
      values.put("port", port);
      return this;
    }

    /** "whenOffered" (default), "required" or "disabled". */
    public Options tls(String tls) {
      values.put("tls", tls);
      return this;
    }

    public Options trustSelfSignedCertificate(boolean trust) {
      values.put("trustSelfSignedCertificate", trust);
      return this;
    }

    /** The SQLite file of the store (default: in memory). */
    public Options storePath(String path) {
      values.put("storePath", path);
      return this;
    }

    /** The domain of desk ids (default: the account's). */
    public Options deskDomain(String domain) {
      values.put("deskDomain", domain);
      return this;
    }

    public Options resource(String resource) {
      values.put("resource", resource);
      return this;
    }

    /**
     * The device's push registration: the push service's JID, the device's node there ("" for
     * the connection's resource), its FCM or APNs token and a secret ("" for none).
     */
    public Options push(String service, String node, String token, String secret) {
      Map<String, Object> push = new LinkedHashMap<>();
      push.put("service", service);
      push.put("node", node);
      push.put("token", token);
      push.put("secret", secret);
      values.put("push", push);
      return this;
    }
  }

  public XmppHost(Options options) {
    super(create(options), "host");
  }

  private static long create(Options options) {
    byte[][] error = new byte[1][];
    long handle = Native.xmppCreate(Utf8.bytes(Json.write(options.values)), error);
    if (handle == 0) {
      throw new IllegalArgumentException(error[0] == null ? "no host" : Utf8.text(error[0]));
    }
    return handle;
  }

  /** Installs the host as the library's and logs in; it reconnects until logout. */
  public void connect() {
    Native.check(Native.xmppConnect(live()));
  }

  public void logout() {
    Native.xmppLogout(live());
  }

  /** True once online within the time; false at once when the login was refused or replaced. */
  public boolean waitOnline(long timeoutMillis) {
    return Native.xmppWaitOnline(live(), timeoutMillis);
  }

  /** The connection's status. */
  public XmppStatus status() {
    return XmppStatus.of(Native.xmppStatus(live()));
  }

  /**
   * Tells the host where the app stands (any thread): in the background the server holds back
   * what can wait and push is enabled; suspended, the link is cut and the server keeps the
   * session; back in the foreground the host resumes it.
   */
  public void setAppState(AppState state) {
    if (state == null || state == AppState.UNKNOWN) {
      throw new IllegalArgumentException("setAppState takes FOREGROUND, BACKGROUND or SUSPENDED");
    }
    Native.check(Native.xmppSetAppState(live(), state.ordinal()));
  }

  public AppState appState() {
    return AppState.of(Native.xmppAppState(live()));
  }

  /**
   * The device's push registration (any thread; the token often comes after the start); an
   * empty service registers none. Enabled whenever the app leaves the foreground; logout
   * disables it.
   */
  public void setPush(String service, String node, String token, String secret) {
    Native.check(
        Native.xmppSetPush(
            live(), Utf8.bytes(service), Utf8.bytes(node), Utf8.bytes(token), Utf8.bytes(secret)));
  }

  /** Runs the host's main queue on this thread until nothing arrived for quietMillis. */
  public void settle(long quietMillis) {
    Native.xmppSettle(live(), quietMillis);
  }

  /** A plain text to a desk outside any service's bookkeeping. */
  public void sendText(String deskId, String text) {
    Native.check(Native.xmppSendText(live(), Utf8.bytes(deskId), Utf8.bytes(text)));
  }

  /**
   * Where the service with the desk stood at its newest control message, on any device of the
   * account: what an app opened (or installed) again shows until a service reports its own.
   */
  public State lastServiceState(String deskId) {
    int state = Native.xmppLastServiceState(live(), Utf8.bytes(deskId));
    Native.check(Math.min(state, 0));
    return State.of(state);
  }

  /** One page of a desk's stored conversation, newest first, as a JSON array. */
  public String history(String deskId, long beforeMessageId, int count) {
    byte[][] out = new byte[1][];
    Native.check(Native.xmppHistory(live(), Utf8.bytes(deskId), beforeMessageId, count, out));
    return out[0] == null ? "[]" : Utf8.text(out[0]);
  }

  @Override
  void destroy(long handle) {
    Native.xmppDestroy(handle);
  }
}
