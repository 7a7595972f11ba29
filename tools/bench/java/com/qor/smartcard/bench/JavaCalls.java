package com.qor.smartcard.bench;

import static com.qor.smartcard.pkcs11.QorConstants.*;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.Pkcs11;

/**
 * The benchmark's operations made from Java through the natives, on a
 * session the native benchmark opened through the same function list
 * (qor_bench calls {@link #run} once per timed iteration).
 */
public final class JavaCalls {

  // Numbered as the native benchmark numbers its operations.
  private static final int RANDOM_32 = 0;
  private static final int DIGEST_1K = 1;
  private static final int DIGEST_1M = 2;
  private static final int FIND = 3;
  private static final int SIGN = 4;

  private final Pkcs11 p11 = new Pkcs11();
  private final long session;
  private final long key;
  private static final byte[] DATA_1K = pattern(1024);
  private static final byte[] DATA_1M = pattern(1 << 20);
  private static final byte[] DATA_32 = pattern(32);
  // Built once, as the native benchmark's are constants: the natives are
  // timed, not the caller's allocations.
  private static final CK_ATTRIBUTE[] KEY_TEMPLATE = {new CK_ATTRIBUTE(CKA_CLASS, CKO_PRIVATE_KEY),
      new CK_ATTRIBUTE(CKA_LABEL, "bench-rsa".toCharArray())};
  private static final CK_MECHANISM SHA256 = new CK_MECHANISM(CKM_SHA256);
  private static final CK_MECHANISM SHA256_RSA = new CK_MECHANISM(CKM_SHA256_RSA_PKCS);

  /**
   * Binds {@code library} to a new Pkcs11 object: the wrapper library as the
   * client of {@code socket} (already connected natively), or a module in
   * this process with a null socket.
   */
  public JavaCalls(String library, String socket, long sessionHandle, long keyHandle)
      throws Exception {
    p11.initializeLibrary();
    p11.connect(library, "C_GetFunctionList", socket, Pkcs11.MODE_CLIENT);
    session = sessionHandle;
    key = keyHandle;
  }

  private static byte[] pattern(int n) {
    byte[] data = new byte[n];
    for (int i = 0; i < n; ++i) {
      data[i] = (byte) (i * 31 + 7);
    }
    return data;
  }

  /** One operation; false when a call fails or returns something unexpected. */
  public boolean run(int op) {
    try {
      switch (op) {
        case RANDOM_32:
          return p11.C_GenerateRandom(session, 32).length == 32;
        case DIGEST_1K:
          return digest(DATA_1K);
        case DIGEST_1M:
          return digest(DATA_1M);
        case FIND: {
          p11.C_FindObjectsInit(session, KEY_TEMPLATE);
          long[] found = p11.C_FindObjects(session, 1);
          p11.C_FindObjectsFinal(session);
          return found.length == 1;
        }
        case SIGN:
          p11.C_SignInit(session, SHA256_RSA, key);
          return p11.C_Sign(session, DATA_32).length == 256;
        default:
          return false;
      }
    } catch (PKCS11Exception e) {
      return false;
    }
  }

  private boolean digest(byte[] data) throws PKCS11Exception {
    p11.C_DigestInit(session, SHA256);
    return p11.C_Digest(session, data).length == 32;
  }

  /** Nothing: what calling into Java costs the benchmark loop itself. */
  public boolean nothing(int op) {
    return op >= 0;
  }
}
