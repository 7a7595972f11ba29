package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RC5_ECB} and {@code CKM_RC5_MAC}. */
public class CK_RC5_PARAMS {
  public long ulWordsize;
  public long ulRounds;

  @Override
  public String toString() {
    return "CK_RC5_PARAMS{"
        + "ulWordsize=" + ulWordsize
        + ", ulRounds=" + ulRounds
        + "}";
  }
}
