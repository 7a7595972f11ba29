package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_DES_CBC_ENCRYPT_DATA} and {@code CKM_DES3_CBC_ENCRYPT_DATA}. */
public class CK_DES_CBC_ENCRYPT_DATA_PARAMS {
  /** 8 bytes; a shorter array is padded with zeros, a longer one cut. */
  public byte[] iv;
  /** Its length is sent as {@code length}. */
  public byte[] pData;

  @Override
  public String toString() {
    return "CK_DES_CBC_ENCRYPT_DATA_PARAMS{"
        + "iv=" + Hex.of(iv)
        + ", pData=" + Hex.of(pData)
        + "}";
  }
}
