package com.qor.smartcard.pkcs11;

import java.util.HashMap;
import java.util.Map;

/**
 * A PKCS#11 function returned something other than {@code CKR_OK}.
 *
 * <p>The code is the module's {@code CK_RV} as an unsigned 32-bit value. When
 * a call is carried to another process and the transport fails, the code is
 * {@code 0xFFFFFFFF}, which no PKCS#11 module returns.
 */
public class PKCS11Exception extends Exception {
  private static final long serialVersionUID = 1L;

  private static final Map<Long, String> NAMES = new HashMap<>();

  static {
    // The names come from the header, as the constants do; an alias never
    // replaces the first name of a value.
    for (int i = 0; i < QorConstants.RETURN_VALUES.length; i++) {
      Long code = QorConstants.RETURN_VALUES[i];
      if (!NAMES.containsKey(code)) {
        NAMES.put(code, QorConstants.RETURN_VALUE_NAMES[i]);
      }
    }
  }

  /** The {@code CK_RV} that the module returned. */
  protected final long errorCode;

  /** @param errorCode the module's return value, unsigned */
  public PKCS11Exception(long errorCode) {
    super(describe(errorCode));
    this.errorCode = errorCode;
  }

  /** @return the {@code CK_RV} that the module returned */
  public long getErrorCode() {
    return errorCode;
  }

  /**
   * The name of a return value, such as {@code "CKR_PIN_INCORRECT"}, or null
   * when it is not a standard one.
   */
  public static String nameOf(long errorCode) {
    return NAMES.get(errorCode & 0xFFFFFFFFL);
  }

  private static String describe(long errorCode) {
    String hex = String.format("0x%08X", errorCode & 0xFFFFFFFFL);
    String name = nameOf(errorCode);
    if (name != null) {
      return name + " (" + hex + ")";
    }
    if ((errorCode & 0xFFFFFFFFL) == 0xFFFFFFFFL) {
      return hex + " (no answer from the module's process)";
    }
    if ((errorCode & 0x80000000L) != 0) {
      return "CKR_VENDOR_DEFINED+" + String.format("0x%X", (errorCode & 0x7FFFFFFFL));
    }
    return hex;
  }
}
