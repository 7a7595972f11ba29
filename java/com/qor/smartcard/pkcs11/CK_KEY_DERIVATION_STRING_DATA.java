package com.qor.smartcard.pkcs11;

/**
 * Parameter of the base-and-data derivations ({@code CKM_CONCATENATE_BASE_AND_DATA},
 * {@code CKM_XOR_BASE_AND_DATA}, the {@code *_ECB_ENCRYPT_DATA} mechanisms).
 */
public class CK_KEY_DERIVATION_STRING_DATA {
  public byte[] pData;

  @Override
  public String toString() {
    return "CK_KEY_DERIVATION_STRING_DATA{"
        + "pData=" + Hex.of(pData)
        + "}";
  }
}
