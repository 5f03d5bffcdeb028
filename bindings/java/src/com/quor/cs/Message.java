package com.quor.cs;

import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/** One line of the conversation, or a delivery update of the customer's line. Immutable. */
public final class Message {
  /** 1, 2, 3 ... per service; a delivery update carries its line's. */
  public final long sequence;
  public final @NotNull Author author;
  public final @NotNull Delivery delivery;
  public final @NotNull String text;
  /** "" when the desk gave none. */
  public final @NotNull String senderName;
  /** The host's id, 0 when none. */
  public final long messageId;
  public final long sentTime;
  /** Failed: the host's error code. */
  public final long errorCode;
  /** A picture or file line (its text ""); null for the others. */
  public final @Nullable Attachment attachment;

  Message(long sequence, int author, int delivery, byte[] text, byte[] senderName, long messageId,
      long sentTime, long errorCode, Attachment attachment) {
    this.sequence = sequence;
    this.author = Author.of(author);
    this.delivery = Delivery.of(delivery);
    this.text = Utf8.text(text);
    this.senderName = Utf8.text(senderName);
    this.messageId = messageId;
    this.sentTime = sentTime;
    this.errorCode = errorCode;
    this.attachment = attachment;
  }

  @Override
  public String toString() {
    return "Message{" + sequence + ", " + author + ", " + delivery + ", \"" + text + "\"}";
  }
}
