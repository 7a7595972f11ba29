package com.qor.smartcard.pkcs11;

/** Client and server random data of the SSL3 derivations. */
public class CK_SSL3_RANDOM_DATA {
  public byte[] pClientRandom;
  public byte[] pServerRandom;

  @Override
  public String toString() {
    return "CK_SSL3_RANDOM_DATA{"
        + "pClientRandom=" + Hex.of(pClientRandom)
        + ", pServerRandom=" + Hex.of(pServerRandom)
        + "}";
  }
}
