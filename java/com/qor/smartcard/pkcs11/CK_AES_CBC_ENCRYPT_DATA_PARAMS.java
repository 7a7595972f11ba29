package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_AES_CBC_ENCRYPT_DATA}. */
public class CK_AES_CBC_ENCRYPT_DATA_PARAMS {
  /** 16 bytes; a shorter array is padded with zeros, a longer one cut. */
  public byte[] iv;
  /** Its length is sent as {@code length}. */
  public byte[] pData;

  @Override
  public String toString() {
    return "CK_AES_CBC_ENCRYPT_DATA_PARAMS{"
        + "iv=" + Hex.of(iv)
        + ", pData=" + Hex.of(pData)
        + "}";
  }
}
