package com.qor.smartcard.pkcs11;

/** Information about a slot ({@code C_GetSlotInfo}). */
public class CK_SLOT_INFO {
  /** 64 characters, blank padded. */
  public char[] slotDescription;
  /** 32 characters, blank padded. */
  public char[] manufacturerID;
  public long flags;
  public CK_VERSION hardwareVersion;
  public CK_VERSION firmwareVersion;

  @Override
  public String toString() {
    return "CK_SLOT_INFO{slotDescription=" + Text.of(slotDescription)
        + ", manufacturerID=" + Text.of(manufacturerID)
        + ", flags=0x" + Long.toHexString(flags)
        + ", hardwareVersion=" + hardwareVersion
        + ", firmwareVersion=" + firmwareVersion + "}";
  }
}
