package com.qor.smartcard.pkcs11;

/** Information about a session ({@code C_GetSessionInfo}). */
public class CK_SESSION_INFO {
  public long slotID;
  public long state;
  public long flags;
  public long ulDeviceError;

  @Override
  public String toString() {
    return "CK_SESSION_INFO{slotID=" + slotID + ", state=" + state
        + ", flags=0x" + Long.toHexString(flags) + ", ulDeviceError=" + ulDeviceError + "}";
  }
}
