package com.qor.smartcard.pkcs11;

/**
 * A date attribute value ({@code CKA_START_DATE}, {@code CKA_END_DATE}):
 * 4, 2 and 2 digit characters. Shorter arrays are padded with zero bytes on
 * the way to the module, longer ones are cut.
 */
public class CK_DATE {
  public char[] year;
  public char[] month;
  public char[] day;

  public CK_DATE() {}

  /** @param yyyymmdd eight digits, for example "20240131" */
  public CK_DATE(String yyyymmdd) {
    if (yyyymmdd == null || yyyymmdd.length() != 8) {
      throw new IllegalArgumentException("expected YYYYMMDD: " + yyyymmdd);
    }
    year = yyyymmdd.substring(0, 4).toCharArray();
    month = yyyymmdd.substring(4, 6).toCharArray();
    day = yyyymmdd.substring(6, 8).toCharArray();
  }

  @Override
  public String toString() {
    return new String(year == null ? new char[0] : year) + "-"
        + new String(month == null ? new char[0] : month) + "-"
        + new String(day == null ? new char[0] : day);
  }
}
