package com.qor.smartcard.pkcs11;

/**
 * A call could not be made at all: the {@link Pkcs11} object is not
 * connected to a module, or an argument holds a value that has no PKCS#11
 * form.
 */
public class PKCS11RuntimeException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  public PKCS11RuntimeException() {
    super();
  }

  public PKCS11RuntimeException(String message) {
    super(message);
  }
}
