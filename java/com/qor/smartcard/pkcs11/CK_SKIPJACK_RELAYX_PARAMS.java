package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_SKIPJACK_RELAYX}. */
public class CK_SKIPJACK_RELAYX_PARAMS {
  public byte[] pOldWrappedX;
  public byte[] pOldPassword;
  public byte[] pOldPublicData;
  public byte[] pOldRandomA;
  public byte[] pNewPassword;
  public byte[] pNewPublicData;
  public byte[] pNewRandomA;

  @Override
  public String toString() {
    return "CK_SKIPJACK_RELAYX_PARAMS{"
        + "pOldWrappedX=" + Hex.of(pOldWrappedX)
        + ", pOldPassword=" + (pOldPassword == null ? "null" : "<" + pOldPassword.length + " hidden>")
        + ", pOldPublicData=" + Hex.of(pOldPublicData)
        + ", pOldRandomA=" + Hex.of(pOldRandomA)
        + ", pNewPassword=" + (pNewPassword == null ? "null" : "<" + pNewPassword.length + " hidden>")
        + ", pNewPublicData=" + Hex.of(pNewPublicData)
        + ", pNewRandomA=" + Hex.of(pNewRandomA)
        + "}";
  }
}
