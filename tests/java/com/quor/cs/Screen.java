package com.quor.cs;

import java.util.ArrayList;
import java.util.List;

// What a test's screen saw, from the observer's calls.
class Screen implements Observer {
  final List<State> states = new ArrayList<>();
  final List<String> lines = new ArrayList<>();
  Status last;
  String dialog;
  long unread = -1;
  int sent;
  int read;
  final List<Boolean> deskTyping = new ArrayList<>();
  int calls;

  @Override
  public void onStateChanged(Status status) {
    ++calls;
    states.add(status.state);
    last = status;
  }

  @Override
  public void onMessage(Message message) {
    ++calls;
    lines.add(message.author + ": " + message.text);
  }

  @Override
  public void onMessageDelivery(Message message) {
    ++calls;
    if (message.delivery == Delivery.SENT) ++sent;
    if (message.delivery == Delivery.READ) ++read;
  }

  @Override
  public void onDeskTyping(boolean typing) {
    ++calls;
    deskTyping.add(typing);
  }

  @Override
  public void onUnreadCountChanged(long unread) {
    ++calls;
    this.unread = unread;
  }

  @Override
  public void onRatingRequested(String dialogId) {
    ++calls;
    dialog = dialogId;
  }
}
