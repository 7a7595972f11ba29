package com.qor.smartcard.pkcs11;

/** What a token supports of one mechanism ({@code C_GetMechanismInfo}). */
public class CK_MECHANISM_INFO {
  public long ulMinKeySize;
  public long ulMaxKeySize;
  public long flags;

  @Override
  public String toString() {
    return "CK_MECHANISM_INFO{keySize=" + ulMinKeySize + ".." + ulMaxKeySize
        + ", flags=0x" + Long.toHexString(flags) + "}";
  }
}
