package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RC5_MAC_GENERAL}. */
public class CK_RC5_MAC_GENERAL_PARAMS {
  public long ulWordsize;
  public long ulRounds;
  public long ulMacLength;

  @Override
  public String toString() {
    return "CK_RC5_MAC_GENERAL_PARAMS{"
        + "ulWordsize=" + ulWordsize
        + ", ulRounds=" + ulRounds
        + ", ulMacLength=" + ulMacLength
        + "}";
  }
}
