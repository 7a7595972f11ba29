package com.qor.smartcard.pkcs11;

import java.util.Arrays;

/**
 * One attribute of a template: its type ({@code CKA_*}) and its value.
 *
 * <p>Values travel to the module by their Java class: {@link Long} and
 * {@link Integer} as {@code CK_ULONG}, {@link Boolean} as {@code CK_BBOOL},
 * {@code byte[]} as bytes, {@code char[]} as one byte per character,
 * {@link Byte}, {@link Character}, {@link CK_DATE}, {@code boolean[]},
 * {@code int[]} and {@code long[]} as arrays of their native types, and
 * {@link String} as UTF-8. {@code CKA_WRAP_TEMPLATE} and
 * {@code CKA_UNWRAP_TEMPLATE} take a {@code CK_ATTRIBUTE[]}. A value of any
 * other class makes the call fail with {@link PKCS11RuntimeException}.
 *
 * <p>Values read from a module ({@code C_GetAttributeValue}) come back as
 * {@link Long}, {@link Boolean}, {@code char[]}, {@link CK_DATE},
 * {@code CK_ATTRIBUTE[]}, {@code long[]} or {@code byte[]} depending on the
 * attribute type; an empty value comes back as null.
 */
public class CK_ATTRIBUTE {
  public long type;
  public Object pValue;

  public CK_ATTRIBUTE() {}

  /** An attribute without a value, as used to ask for one. */
  public CK_ATTRIBUTE(long type) {
    this.type = type;
  }

  public CK_ATTRIBUTE(long type, Object pValue) {
    this.type = type;
    this.pValue = pValue;
  }

  @Override
  public String toString() {
    return "CK_ATTRIBUTE{type=0x" + Long.toHexString(type) + ", pValue=" + show(pValue) + "}";
  }

  static String show(Object value) {
    if (value instanceof byte[]) {
      return Hex.of((byte[]) value);
    }
    if (value instanceof char[]) {
      return "\"" + new String((char[]) value) + "\"";
    }
    if (value instanceof long[]) {
      return Arrays.toString((long[]) value);
    }
    if (value instanceof Object[]) {
      return Arrays.toString((Object[]) value);
    }
    return String.valueOf(value);
  }
}
