package com.qor.smartcard.pkcs11;

/** Loads libKorvanePkcs11Wrapper once for every class that has natives in it. */
public final class NativeLibrary {
  private static boolean loaded;

  private NativeLibrary() {}

  /**
   * Loads the library from the path in {@link Pkcs11#LIBRARY_PATH_PROPERTY}
   * if set, otherwise by name from the library path.
   */
  public static synchronized void load() {
    if (loaded) {
      return;
    }
    String path = System.getProperty(Pkcs11.LIBRARY_PATH_PROPERTY);
    if (path != null && !path.isEmpty()) {
      System.load(path);
    } else {
      System.loadLibrary("KorvanePkcs11Wrapper");
    }
    loaded = true;
  }
}
