package com.qor.smartcard.pkcs11;

/**
 * Parameter of {@code CKM_PKCS5_PBKD2}. The password is not carried by this
 * class: the module receives empty password members.
 */
public class CK_PKCS5_PBKD2_PARAMS {
  /** {@code CKZ_SALT_SPECIFIED}. */
  public long saltSource;
  public byte[] pSaltSourceData;
  public long iterations;
  /** {@code CKP_PKCS5_PBKD2_HMAC_SHA1}. */
  public long prf;
  public byte[] pPrfData;

  @Override
  public String toString() {
    return "CK_PKCS5_PBKD2_PARAMS{"
        + "saltSource=" + saltSource
        + ", pSaltSourceData=" + Hex.of(pSaltSourceData)
        + ", iterations=" + iterations
        + ", prf=" + prf
        + ", pPrfData=" + Hex.of(pPrfData)
        + "}";
  }
}
