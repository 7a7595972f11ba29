package com.qor.smartcard.pkcs11;

/**
 * A mechanism ({@code CKM_*}) and its parameter.
 *
 * <p>The parameter is null, a {@code byte[]} (an IV, for example), a
 * {@link Long}, a {@link CK_VERSION}, or one of the {@code CK_*_PARAMS}
 * classes of this package. For a few mechanisms the module's results are
 * written back into the parameter object after the call: the PBE
 * initialisation vector ({@link CK_PBE_PARAMS#pInitVektor}), the SET OAEP
 * block contents ({@link CK_KEY_WRAP_SET_OAEP_PARAMS}), the SSL3 client
 * version ({@link CK_SSL3_MASTER_KEY_DERIVE_PARAMS#pVersion}) and the SSL3
 * key material ({@link CK_SSL3_KEY_MAT_PARAMS#pReturnedKeyMaterial}).
 */
public class CK_MECHANISM {
  public long mechanism;
  public Object pParameter;

  public CK_MECHANISM() {}

  public CK_MECHANISM(long mechanism) {
    this.mechanism = mechanism;
  }

  public CK_MECHANISM(long mechanism, Object pParameter) {
    this.mechanism = mechanism;
    this.pParameter = pParameter;
  }

  @Override
  public String toString() {
    return "CK_MECHANISM{mechanism=0x" + Long.toHexString(mechanism)
        + ", pParameter=" + CK_ATTRIBUTE.show(pParameter) + "}";
  }
}
