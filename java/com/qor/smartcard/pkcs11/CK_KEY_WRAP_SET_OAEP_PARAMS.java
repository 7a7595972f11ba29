package com.qor.smartcard.pkcs11;

/**
 * Parameter of {@code CKM_KEY_WRAP_SET_OAEP}. After {@code C_UnwrapKey} both
 * fields hold what the module wrote back.
 */
public class CK_KEY_WRAP_SET_OAEP_PARAMS {
  /** Block contents byte. */
  public byte bBC;
  /** Concatenation of hash of plaintext and extra data. */
  public byte[] pX;

  @Override
  public String toString() {
    return "CK_KEY_WRAP_SET_OAEP_PARAMS{"
        + "bBC=" + bBC
        + ", pX=" + Hex.of(pX)
        + "}";
  }
}
