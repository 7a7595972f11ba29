package com.qor.smartcard.pkcs11;

/** Keys and IVs that an SSL3 key-and-MAC derivation produced. */
public class CK_SSL3_KEY_MAT_OUT {
  public long hClientMacSecret;
  public long hServerMacSecret;
  public long hClientKey;
  public long hServerKey;
  /** {@code ulIVSizeInBits / 8} bytes. */
  public byte[] pIVClient;
  /** {@code ulIVSizeInBits / 8} bytes. */
  public byte[] pIVServer;

  @Override
  public String toString() {
    return "CK_SSL3_KEY_MAT_OUT{"
        + "hClientMacSecret=" + hClientMacSecret
        + ", hServerMacSecret=" + hServerMacSecret
        + ", hClientKey=" + hClientKey
        + ", hServerKey=" + hServerKey
        + ", pIVClient=" + Hex.of(pIVClient)
        + ", pIVServer=" + Hex.of(pIVServer)
        + "}";
  }
}
