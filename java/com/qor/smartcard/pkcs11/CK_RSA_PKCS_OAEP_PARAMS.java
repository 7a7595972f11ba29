package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RSA_PKCS_OAEP}. */
public class CK_RSA_PKCS_OAEP_PARAMS {
  /** Digest mechanism, for example {@code CKM_SHA_1}. */
  public long hashAlg;
  /** Mask generation function, for example {@code CKG_MGF1_SHA1}. */
  public long mgf;
  /** Source of the encoding parameter, {@code CKZ_DATA_SPECIFIED} or 0. */
  public long source;
  /** The encoding parameter; its length is sent as {@code ulSourceDataLen}. */
  public byte[] pSourceData;

  @Override
  public String toString() {
    return "CK_RSA_PKCS_OAEP_PARAMS{"
        + "hashAlg=" + hashAlg
        + ", mgf=" + mgf
        + ", source=" + source
        + ", pSourceData=" + Hex.of(pSourceData)
        + "}";
  }
}
