package com.quor.cs;

import java.util.Map;

/** Leave-message values that fail the desk's form: field name to "required", "too long" or the
 * failed check's name. */
public final class InvalidFormException extends RefusedException {
  private static final long serialVersionUID = 1L;
  private final Map<String, String> fieldErrors;

  InvalidFormException(Map<String, String> fieldErrors) {
    super(Result.INVALID_FORM);
    this.fieldErrors = fieldErrors;
  }

  public Map<String, String> fieldErrors() {
    return fieldErrors;
  }
}
