package com.qor.smartcard.pkcs11;

/** Information about a token ({@code C_GetTokenInfo}). */
public class CK_TOKEN_INFO {
  /** 32 characters, blank padded. */
  public char[] label;
  /** 32 characters, blank padded. */
  public char[] manufacturerID;
  /** 16 characters, blank padded. */
  public char[] model;
  /** 16 characters, blank padded. */
  public char[] serialNumber;
  public long flags;
  public long ulMaxSessionCount;
  public long ulSessionCount;
  public long ulMaxRwSessionCount;
  public long ulRwSessionCount;
  public long ulMaxPinLen;
  public long ulMinPinLen;
  public long ulTotalPublicMemory;
  public long ulFreePublicMemory;
  public long ulTotalPrivateMemory;
  public long ulFreePrivateMemory;
  public CK_VERSION hardwareVersion;
  public CK_VERSION firmwareVersion;
  /** 16 characters: YYYYMMDDhhmmss00, or blanks without a clock. */
  public char[] utcTime;

  @Override
  public String toString() {
    return "CK_TOKEN_INFO{label=" + Text.of(label)
        + ", manufacturerID=" + Text.of(manufacturerID)
        + ", model=" + Text.of(model)
        + ", serialNumber=" + Text.of(serialNumber)
        + ", flags=0x" + Long.toHexString(flags)
        + ", sessions=" + ulSessionCount + "/" + ulMaxSessionCount
        + ", rwSessions=" + ulRwSessionCount + "/" + ulMaxRwSessionCount
        + ", pinLen=" + ulMinPinLen + ".." + ulMaxPinLen
        + ", publicMemory=" + ulFreePublicMemory + "/" + ulTotalPublicMemory
        + ", privateMemory=" + ulFreePrivateMemory + "/" + ulTotalPrivateMemory
        + ", hardwareVersion=" + hardwareVersion
        + ", firmwareVersion=" + firmwareVersion
        + ", utcTime=" + Text.of(utcTime) + "}";
  }
}
