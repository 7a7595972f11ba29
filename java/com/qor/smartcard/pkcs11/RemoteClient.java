package com.qor.smartcard.pkcs11;

/**
 * Connects this library as the client of a serving process. The serving
 * process starts listening on its socket a moment after it connects its
 * module, so a client started alongside it may find no one at first; this
 * retries until the module answers.
 *
 * <p>A process has one client connection: while it is open, every client
 * object uses it, whatever socket name it was connected with.
 */
public final class RemoteClient {
  /** The return value every PKCS#11 function gives while the transport is down. */
  private static final long TRANSPORT_DOWN = 0xFFFFFFFFL;

  static {
    NativeLibrary.load();
  }

  private RemoteClient() {}

  /**
   * Turns the extended protocol on or off (off by default) for this
   * process's client connection. With it on, a serving process of this
   * library serves every call as it was meant: a single-part
   * {@code C_Verify} gets the signature, {@code C_InitPIN} and
   * {@code C_SetPIN} reach the module, {@code C_GetSessionInfo} describes the
   * session asked for, {@code C_WaitForSlotEvent} returns the slot, length
   * queries do no work and an absent mechanism parameter stays absent. A
   * serving process that does not know the extensions ignores them and
   * serves as before. Call it before {@link #connect} or {@link Pkcs11#connect}.
   */
  public static native void setExtensions(boolean on);

  /**
   * Whether the extensions are on and the connected serving process has
   * confirmed that it serves them (known after the first call through it).
   */
  public static native boolean isPeerExtended();

  /**
   * A new {@link Pkcs11} object connected in client mode to the serving
   * process listening on {@code socket}, once a {@code C_GetInfo} through it
   * gets an answer of the module's own (any return value but the transport's
   * {@code 0xFFFFFFFF}).
   *
   * @param attempts how many connects to try before giving up
   * @param pauseMillis the pause between two attempts
   * @throws PKCS11Exception the last attempt's failure when none got through
   */
  public static Pkcs11 connect(String socket, int attempts, long pauseMillis) throws Exception {
    for (int attempt = 1; ; attempt++) {
      Pkcs11 p11 = new Pkcs11();
      p11.initializeLibrary();
      p11.connect(Pkcs11.WRAPPER_LIBRARY, "C_GetFunctionList", socket, Pkcs11.MODE_CLIENT);
      try {
        p11.C_GetInfo();
        return p11;
      } catch (PKCS11Exception e) {
        if (e.getErrorCode() != TRANSPORT_DOWN) {
          return p11;
        }
        p11.disconnect();
        if (attempt >= attempts) {
          throw e;
        }
        Thread.sleep(pauseMillis);
      }
    }
  }
}
