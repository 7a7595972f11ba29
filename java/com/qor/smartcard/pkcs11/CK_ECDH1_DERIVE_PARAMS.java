package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_ECDH1_DERIVE} and {@code CKM_ECDH1_COFACTOR_DERIVE}. */
public class CK_ECDH1_DERIVE_PARAMS {
  /** {@code CKD_NULL} or a {@code CKD_SHA1_KDF*} value. */
  public long kdf;
  public byte[] pSharedData;
  public byte[] pPublicData;

  @Override
  public String toString() {
    return "CK_ECDH1_DERIVE_PARAMS{"
        + "kdf=" + kdf
        + ", pSharedData=" + Hex.of(pSharedData)
        + ", pPublicData=" + Hex.of(pPublicData)
        + "}";
  }
}
