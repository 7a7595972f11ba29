package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;

import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;

/** Paths, the test module and small helpers shared by the bridge tests. */
final class Fixture {
  static final String MODULE = System.getProperty("qor.testmodule");
  static final String SOCKET = System.getProperty("qor.socket", "@qor-junit");
  static final String GETTER = "C_GetFunctionList";
  /** Pointer width of this build: parameter sizes are formulas of it. */
  static final int P = Integer.parseInt(System.getProperty("sun.arch.data.model", "64")) / 8;

  static final long TOKEN_SLOT = 1;

  private static boolean loaded;

  private Fixture() {}

  /** Loads the test module into the JVM once, so its control natives work. */
  static synchronized void loadModule() {
    if (!loaded) {
      // Pkcs11 first: its library is the one whose JNI_OnLoad keeps the VM.
      new Pkcs11();
      TestModule.load(MODULE);
      loaded = true;
    }
  }

  /** A Pkcs11 object bound directly to the test module. */
  static Pkcs11 direct(String moduleName) throws Exception {
    loadModule();
    Pkcs11 p11 = new Pkcs11();
    p11.initializeLibrary();
    p11.connect(MODULE, GETTER, moduleName, Pkcs11.MODE_CLIENT);
    return p11;
  }

  static String hex(byte[] bytes) {
    StringBuilder sb = new StringBuilder();
    for (byte b : bytes) {
      sb.append(String.format("%02x", b & 0xFF));
    }
    return sb.toString();
  }

  static byte[] bytes(String hex) {
    byte[] out = new byte[hex.length() / 2];
    for (int i = 0; i < out.length; i++) {
      out[i] = (byte) Integer.parseInt(hex.substring(2 * i, 2 * i + 2), 16);
    }
    return out;
  }

  /** n bytes seed, seed+1, ... as the test module's stand-in crypto makes them. */
  static byte[] pattern(int n, int seed) {
    byte[] out = new byte[n];
    for (int i = 0; i < n; i++) {
      out[i] = (byte) (seed + i);
    }
    return out;
  }

  /** Little-endian CK_ULONG bytes as hex. */
  static String ulong(long v) {
    return String.format("%02x%02x%02x%02x", v & 0xFF, (v >> 8) & 0xFF, (v >> 16) & 0xFF, (v >> 24) & 0xFF);
  }

  /** The text of the last recorded call of a function. */
  static String last(String function) {
    return TestModule.lastCallText(function);
  }

  static String lastArg(String function, String arg) {
    return TestModule.callArg(TestModule.lastCall(function), arg);
  }
}
