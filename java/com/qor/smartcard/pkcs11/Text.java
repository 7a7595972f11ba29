package com.qor.smartcard.pkcs11;

/** Renders the fixed-width, blank-padded text fields of PKCS#11 structures. */
final class Text {
  private Text() {}

  static String of(char[] chars) {
    return chars == null ? "null" : "\"" + new String(chars).trim() + "\"";
  }
}
