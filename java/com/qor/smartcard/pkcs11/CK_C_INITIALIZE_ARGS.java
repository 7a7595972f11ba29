package com.qor.smartcard.pkcs11;

/**
 * Arguments of {@code C_Initialize}. Only the flags (for example
 * {@code CKF_OS_LOCKING_OK}, 0x2) and the reserved value reach the module:
 * Java has no mutex callbacks to offer, so the module sees null ones.
 */
public class CK_C_INITIALIZE_ARGS {
  public long flags;
  /** Must be null for standard modules; otherwise converted like an attribute value. */
  public Object pReserved;

  public CK_C_INITIALIZE_ARGS() {}

  public CK_C_INITIALIZE_ARGS(long flags) {
    this.flags = flags;
  }
}
