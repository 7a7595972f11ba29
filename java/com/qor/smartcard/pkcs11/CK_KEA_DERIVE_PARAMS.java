package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_KEA_KEY_DERIVE}. */
public class CK_KEA_DERIVE_PARAMS {
  public boolean isSender;
  /** Its length is sent as {@code ulRandomLen}. */
  public byte[] pRandomA;
  /** As long as {@code pRandomA}. */
  public byte[] pRandomB;
  public byte[] pPublicData;

  @Override
  public String toString() {
    return "CK_KEA_DERIVE_PARAMS{"
        + "isSender=" + isSender
        + ", pRandomA=" + Hex.of(pRandomA)
        + ", pRandomB=" + Hex.of(pRandomB)
        + ", pPublicData=" + Hex.of(pPublicData)
        + "}";
  }
}
