package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_RC2_CBC} and {@code CKM_RC2_CBC_PAD}. */
public class CK_RC2_CBC_PARAMS {
  public long ulEffectiveBits;
  /** 8 bytes; a shorter array is padded with zeros, a longer one cut. */
  public byte[] iv;

  @Override
  public String toString() {
    return "CK_RC2_CBC_PARAMS{"
        + "ulEffectiveBits=" + ulEffectiveBits
        + ", iv=" + Hex.of(iv)
        + "}";
  }
}
