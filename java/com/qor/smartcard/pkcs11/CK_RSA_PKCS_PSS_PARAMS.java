package com.qor.smartcard.pkcs11;

/** Parameter of the RSA PSS mechanisms. */
public class CK_RSA_PKCS_PSS_PARAMS {
  public long hashAlg;
  public long mgf;
  /** Salt length in bytes. */
  public long sLen;

  @Override
  public String toString() {
    return "CK_RSA_PKCS_PSS_PARAMS{"
        + "hashAlg=" + hashAlg
        + ", mgf=" + mgf
        + ", sLen=" + sLen
        + "}";
  }
}
