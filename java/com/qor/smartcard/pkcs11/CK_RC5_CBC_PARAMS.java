package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RC5_CBC} and {@code CKM_RC5_CBC_PAD}. */
public class CK_RC5_CBC_PARAMS {
  public long ulWordsize;
  public long ulRounds;
  public byte[] pIv;

  @Override
  public String toString() {
    return "CK_RC5_CBC_PARAMS{"
        + "ulWordsize=" + ulWordsize
        + ", ulRounds=" + ulRounds
        + ", pIv=" + Hex.of(pIv)
        + "}";
  }
}
