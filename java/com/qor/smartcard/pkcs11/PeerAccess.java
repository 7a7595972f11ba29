package com.qor.smartcard.pkcs11;

/**
 * Who may use the token, for the two processes of a deployment. An abstract
 * socket has no file permissions, so by default the serving process serves
 * anyone who connects, and a client talks to whoever holds the socket name.
 * Every measure here is off until turned on; the app knows both processes'
 * identities (on Android, e.g., {@code android.os.Process.myUid()} of each
 * and the uid of a bound service's package).
 *
 * <p>Serving process: call the server methods before or after connecting in
 * server mode; they apply from the next connection. Calling process: call
 * the client methods before connecting in client mode.
 */
public final class PeerAccess {
  /** {@link #awaitListening} result: the server thread listens. */
  public static final int LISTENING = 0;
  /** {@link #awaitListening} result: the socket name is taken (bind failed). */
  public static final int NAME_TAKEN = 8;
  /** {@link #awaitListening} result: no server was started in this process. */
  public static final int NOT_STARTED = 2;
  /** {@link #awaitListening} result: the thread did not get there in time. */
  public static final int NOT_YET = 26;

  static {
    NativeLibrary.load();
  }

  private PeerAccess() {}

  /** Serves only peers running as this user id (call once per allowed uid). */
  public static native void allowClientUid(int uid);

  /** Serves only these processes (call once per allowed pid), besides the uid rule. */
  public static native void allowClientPid(int pid);

  /**
   * Drops a connection whose frame, once begun, is not whole within
   * {@code frameMillis}, and (if {@code idleMillis} is not 0) one that sends
   * nothing for {@code idleMillis}. 0 turns a limit off.
   *
   * @throws IllegalArgumentException for a negative time
   */
  public static native void setServerTimeouts(int frameMillis, int idleMillis);

  /**
   * When on, a client whose connection ends after {@code C_Initialize} and
   * before {@code C_Finalize} (it crashed or was killed) leaves the module
   * finalized: the next client finds no open session and no login.
   */
  public static native void setResetOnDisconnect(boolean on);

  /**
   * Waits up to {@code timeoutMillis} for this process's server thread to
   * listen on its socket, and tells whether it does: {@link #LISTENING},
   * {@link #NAME_TAKEN} (another process took the name first),
   * {@link #NOT_STARTED}, {@link #NOT_YET}, or another transport code.
   */
  public static native int awaitListening(int timeoutMillis);

  /**
   * The next client connect fails (the server is taken for absent) unless
   * the serving process runs as this user id; a negative value forgets it.
   */
  public static native void expectServerUid(long uid);

  /** As {@link #expectServerUid}, for the serving process's id. */
  public static native void expectServerPid(long pid);
}
