package com.quor.cs;

// The native layer's view of an Observer: every call is caught here, so that nothing the app's
// observer throws reaches the library.
final class ObserverBridge {
  private final Observer observer;

  ObserverBridge(Observer observer) {
    this.observer = observer;
  }

  void stateChanged(Status status) {
    try {
      observer.onStateChanged(status);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void ratingRequested(byte[] dialogId) {
    try {
      observer.onRatingRequested(dialogId == null ? null : Utf8.text(dialogId));
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void evaluationSettings(byte[] settingsJson) {
    try {
      observer.onEvaluationSettings(Utf8.text(settingsJson));
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void messageLeft(boolean sent, long messageIdOrErrorCode) {
    try {
      observer.onMessageLeft(sent, messageIdOrErrorCode);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void message(boolean deliveryUpdate, long sequence, int author, int delivery, byte[] text,
      byte[] senderName, long messageId, long sentTime, long errorCode, Attachment attachment) {
    try {
      Message line = new Message(
          sequence, author, delivery, text, senderName, messageId, sentTime, errorCode, attachment);
      if (deliveryUpdate) {
        observer.onMessageDelivery(line);
      } else {
        observer.onMessage(line);
      }
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void unreadCountChanged(long unread) {
    try {
      observer.onUnreadCountChanged(unread);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void deskTyping(boolean typing) {
    try {
      observer.onDeskTyping(typing);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void fileProgress(long sequence, long done, long total) {
    try {
      observer.onFileProgress(sequence, done, total);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }

  void fileDownloaded(long sequence, Attachment file, long errorCode) {
    try {
      observer.onFileDownloaded(sequence, file, errorCode);
    } catch (Throwable thrown) {
      QuorCS.report(thrown);
    }
  }
}
