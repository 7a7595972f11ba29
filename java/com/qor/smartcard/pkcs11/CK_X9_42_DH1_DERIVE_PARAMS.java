package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_X9_42_DH_DERIVE}. */
public class CK_X9_42_DH1_DERIVE_PARAMS {
  public long kdf;
  public byte[] pOtherInfo;
  public byte[] pPublicData;

  @Override
  public String toString() {
    return "CK_X9_42_DH1_DERIVE_PARAMS{"
        + "kdf=" + kdf
        + ", pOtherInfo=" + Hex.of(pOtherInfo)
        + ", pPublicData=" + Hex.of(pPublicData)
        + "}";
  }
}
