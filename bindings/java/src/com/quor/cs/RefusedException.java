package com.quor.cs;

/** The service refused an operation and sent nothing; {@link #result()} says why. */
public class RefusedException extends RuntimeException {
  private static final long serialVersionUID = 1L;
  private final Result result;

  RefusedException(Result result) {
    super(result.name());
    this.result = result;
  }

  public Result result() {
    return result;
  }
}
