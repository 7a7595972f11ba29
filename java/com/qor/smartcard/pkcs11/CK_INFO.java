package com.qor.smartcard.pkcs11;

/** General information about a PKCS#11 library ({@code C_GetInfo}). */
public class CK_INFO {
  /** Version of the PKCS#11 interface the library implements. */
  public CK_VERSION cryptokiVersion;
  /** 32 characters, blank padded. */
  public char[] manufacturerID;
  public long flags;
  /** 32 characters, blank padded. */
  public char[] libraryDescription;
  public CK_VERSION libraryVersion;

  @Override
  public String toString() {
    return "CK_INFO{cryptokiVersion=" + cryptokiVersion
        + ", manufacturerID=" + Text.of(manufacturerID)
        + ", flags=0x" + Long.toHexString(flags)
        + ", libraryDescription=" + Text.of(libraryDescription)
        + ", libraryVersion=" + libraryVersion + "}";
  }
}
