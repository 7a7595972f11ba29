package com.qor.smartcard.pkcs11;

/**
 * Parameter of the password-based encryption mechanisms ({@code CKM_PBE_*},
 * {@code CKM_PBA_SHA1_WITH_SHA1_HMAC}).
 */
public class CK_PBE_PARAMS {
  /**
   * Buffer the module writes the generated IV into; its length sizes that buffer (8 for the
   * DES and RC2 variants).
   */
  public char[] pInitVector;
  public char[] pPassword;
  public char[] pSalt;
  public long ulIteration;
  /**
   * Receives the IV the module generated during {@code C_GenerateKey}, one byte per character,
   * up to the length of this array and of {@code pInitVector}.
   */
  public char[] pInitVektor;

  @Override
  public String toString() {
    return "CK_PBE_PARAMS{"
        + "pInitVector=" + (pInitVector == null ? "null" : new String(pInitVector))
        + ", pPassword=" + (pPassword == null ? "null" : "<" + pPassword.length + " hidden>")
        + ", pSalt=" + (pSalt == null ? "null" : new String(pSalt))
        + ", ulIteration=" + ulIteration
        + ", pInitVektor=" + (pInitVektor == null ? "null" : new String(pInitVektor))
        + "}";
  }
}
