package com.quor.cs;

// The native layer's view of a Host: UTF-8 bytes in, every exception caught.
final class HostBridge {
  private final Host host;

  HostBridge(Host host) {
    this.host = host;
  }

  void send(byte[] targetId, byte[] objectName, byte[] body, long send) {
    PendingSend pending = new PendingSend(send);
    try {
      host.send(Utf8.text(targetId), Utf8.text(objectName), body, pending);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
      pending.failed(-1);
    }
  }

  long insertIncoming(byte[] targetId, byte[] senderId, byte[] objectName, byte[] body) {
    try {
      return host.insertIncoming(
          Utf8.text(targetId), Utf8.text(senderId), Utf8.text(objectName), body);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
      return -1;
    }
  }

  void deliverLocal(long messageId, byte[] targetId, byte[] objectName, byte[] body) {
    try {
      host.deliverLocal(messageId, Utf8.text(targetId), Utf8.text(objectName), body);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void registerType(byte[] objectName, int persistentFlag) {
    try {
      host.registerType(Utf8.text(objectName), persistentFlag);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void log(int level, byte[] tag, byte[] text) {
    try {
      host.log(level, Utf8.text(tag), Utf8.text(text));
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  boolean suspendWhenLeave() {
    try {
      return host.suspendWhenLeave();
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
      return false;
    }
  }
}
