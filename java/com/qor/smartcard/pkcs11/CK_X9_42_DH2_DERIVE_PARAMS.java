package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_X9_42_DH_HYBRID_DERIVE} and {@code CKM_X9_42_MQV_DERIVE}. */
public class CK_X9_42_DH2_DERIVE_PARAMS {
  public long kdf;
  public byte[] pOtherInfo;
  public byte[] pPublicData;
  public long ulPrivateDataLen;
  public long hPrivateData;
  public byte[] pPublicData2;

  @Override
  public String toString() {
    return "CK_X9_42_DH2_DERIVE_PARAMS{"
        + "kdf=" + kdf
        + ", pOtherInfo=" + Hex.of(pOtherInfo)
        + ", pPublicData=" + Hex.of(pPublicData)
        + ", ulPrivateDataLen=" + ulPrivateDataLen
        + ", hPrivateData=" + hPrivateData
        + ", pPublicData2=" + Hex.of(pPublicData2)
        + "}";
  }
}
