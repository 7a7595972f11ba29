package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_SKIPJACK_PRIVATE_WRAP}. */
public class CK_SKIPJACK_PRIVATE_WRAP_PARAMS {
  public byte[] pPassword;
  public byte[] pPublicData;
  public byte[] pRandomA;
  /** Its length is sent as {@code ulPAndGLen}. */
  public byte[] pPrimeP;
  /** As long as {@code pPrimeP}. */
  public byte[] pBaseG;
  /** Its length is sent as {@code ulQLen}. */
  public byte[] pSubprimeQ;

  @Override
  public String toString() {
    return "CK_SKIPJACK_PRIVATE_WRAP_PARAMS{"
        + "pPassword=" + (pPassword == null ? "null" : "<" + pPassword.length + " hidden>")
        + ", pPublicData=" + Hex.of(pPublicData)
        + ", pRandomA=" + Hex.of(pRandomA)
        + ", pPrimeP=" + Hex.of(pPrimeP)
        + ", pBaseG=" + Hex.of(pBaseG)
        + ", pSubprimeQ=" + Hex.of(pSubprimeQ)
        + "}";
  }
}
