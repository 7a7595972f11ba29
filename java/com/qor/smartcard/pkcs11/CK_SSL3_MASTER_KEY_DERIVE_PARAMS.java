package com.qor.smartcard.pkcs11;

/** Parameter of the SSL3/TLS master key derivations. */
public class CK_SSL3_MASTER_KEY_DERIVE_PARAMS {
  public CK_SSL3_RANDOM_DATA RandomInfo;
  /**
   * After {@code C_DeriveKey} with {@code CKM_SSL3_MASTER_KEY_DERIVE}, the client version the
   * module reports.
   */
  public CK_VERSION pVersion;

  @Override
  public String toString() {
    return "CK_SSL3_MASTER_KEY_DERIVE_PARAMS{"
        + "RandomInfo=" + RandomInfo
        + ", pVersion=" + pVersion
        + "}";
  }
}
