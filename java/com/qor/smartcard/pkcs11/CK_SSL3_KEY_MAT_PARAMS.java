package com.qor.smartcard.pkcs11;

/** Parameter of {@code CKM_SSL3_KEY_AND_MAC_DERIVE} and {@code CKM_TLS_KEY_AND_MAC_DERIVE}. */
public class CK_SSL3_KEY_MAT_PARAMS {
  public long ulMacSizeInBits;
  public long ulKeySizeInBits;
  /** Also sizes the IV buffers handed to the module. */
  public long ulIVSizeInBits;
  public boolean bIsExport;
  public CK_SSL3_RANDOM_DATA RandomInfo;
  /** Filled after {@code C_DeriveKey} with {@code CKM_SSL3_KEY_AND_MAC_DERIVE}. */
  public CK_SSL3_KEY_MAT_OUT pReturnedKeyMaterial;

  @Override
  public String toString() {
    return "CK_SSL3_KEY_MAT_PARAMS{"
        + "ulMacSizeInBits=" + ulMacSizeInBits
        + ", ulKeySizeInBits=" + ulKeySizeInBits
        + ", ulIVSizeInBits=" + ulIVSizeInBits
        + ", bIsExport=" + bIsExport
        + ", RandomInfo=" + RandomInfo
        + ", pReturnedKeyMaterial=" + pReturnedKeyMaterial
        + "}";
  }
}
