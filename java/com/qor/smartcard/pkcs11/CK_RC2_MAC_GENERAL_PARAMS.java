package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RC2_MAC_GENERAL}. */
public class CK_RC2_MAC_GENERAL_PARAMS {
  public long ulEffectiveBits;
  public long ulMacLength;

  @Override
  public String toString() {
    return "CK_RC2_MAC_GENERAL_PARAMS{"
        + "ulEffectiveBits=" + ulEffectiveBits
        + ", ulMacLength=" + ulMacLength
        + "}";
  }
}
