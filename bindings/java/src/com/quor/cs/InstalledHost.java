package com.quor.cs;

/**
 * A {@link Host} installed as the library's, with the library's module loaded. The IM core hands
 * it each received message; the library's main-thread work waits for {@link #runMain()} unless
 * the app set a main-thread executor. One host at a time; close it to uninstall.
 */
public final class InstalledHost extends NativeHandle {
  private InstalledHost(long handle) {
    super(handle, "host");
  }

  public static InstalledHost install(Host host) {
    if (host == null) throw new IllegalArgumentException("host");
    long handle = Native.hostInstall(new HostBridge(host));
    if (handle == 0) {
      throw new IllegalStateException("another kit or host is installed: close it first");
    }
    return new InstalledHost(handle);
  }

  /**
   * Hands one received message to the library, on the IM core's delivery thread, in arrival
   * order (after the outcomes of the sends before it). Returns true when the library held it or
   * it is a signal type: then the core neither stores nor shows it.
   */
  public boolean receive(String objectName, byte[] body, String targetId, String senderId,
      long sentTime, boolean offline) {
    int held = Native.hostReceive(live(), Utf8.bytes(objectName), body, Utf8.bytes(targetId),
        Utf8.bytes(senderId), sentTime, offline);
    if (held < 0) Native.check(held);
    return held == 1;
  }

  /** Runs the library's main-thread work waiting in the host's queue; how many tasks ran. */
  public long runMain() {
    return Native.hostRunMain(live());
  }

  @Override
  void destroy(long handle) {
    Native.hostUninstall(handle);
  }
}
