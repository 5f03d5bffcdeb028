package com.quor.cs;

// An object of the C API held by a Java object: the handle while it lives, freed once by close().
abstract class NativeHandle implements AutoCloseable {
  private long handle;
  private final String what;

  NativeHandle(long handle, String what) {
    this.handle = handle;
    this.what = what;
  }

  // Frees the C object; called once.
  abstract void destroy(long handle);

  long live() {
    if (handle == 0) throw new IllegalStateException("the " + what + " was closed");
    return handle;
  }

  @Override
  public void close() {
    if (handle == 0) return;
    long closing = handle;
    handle = 0;
    destroy(closing);
  }
}
