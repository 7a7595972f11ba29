package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_ECMQV_DERIVE}. */
public class CK_ECDH2_DERIVE_PARAMS {
  public long kdf;
  public byte[] pSharedData;
  public byte[] pPublicData;
  public long ulPrivateDataLen;
  public long hPrivateData;
  public byte[] pPublicData2;

  @Override
  public String toString() {
    return "CK_ECDH2_DERIVE_PARAMS{"
        + "kdf=" + kdf
        + ", pSharedData=" + Hex.of(pSharedData)
        + ", pPublicData=" + Hex.of(pPublicData)
        + ", ulPrivateDataLen=" + ulPrivateDataLen
        + ", hPrivateData=" + hPrivateData
        + ", pPublicData2=" + Hex.of(pPublicData2)
        + "}";
  }
}
