package com.quor.cs;

import org.jetbrains.annotations.NotNull;

/**
 * The picture or other file of a line. Immutable. {@link #name} is the sender's: show it, never
 * use it as a path. A downloaded file's {@link #mimeType} is what its bytes show.
 */
public final class Attachment {
  public final @NotNull String name;
  public final @NotNull String mimeType;
  public final long size;
  /** Pixels, for a picture whose size is known; else 0. */
  public final int width;
  public final int height;
  /** Where it is fetched from; "" while the customer's file uploads. */
  public final @NotNull String url;
  /** The file sent, or where {@link Service#downloadFile} saved it; else "". */
  public final @NotNull String localPath;

  private Attachment(byte[] name, byte[] mimeType, long size, int width, int height, byte[] url,
      byte[] localPath) {
    this.name = Utf8.text(name);
    this.mimeType = Utf8.text(mimeType);
    this.size = size;
    this.width = width;
    this.height = height;
    this.url = Utf8.text(url);
    this.localPath = Utf8.text(localPath);
  }

  static Attachment fromNative(byte[] name, byte[] mimeType, long size, int width, int height,
      byte[] url, byte[] localPath) {
    return new Attachment(name, mimeType, size, width, height, url, localPath);
  }

  @Override
  public String toString() {
    return "Attachment{" + name + ", " + mimeType + ", " + size + " bytes}";
  }
}
