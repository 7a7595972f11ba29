package com.qor.smartcard.pkcs11;

/** A version number: major and minor byte, as PKCS#11 reports them. */
public class CK_VERSION {
  public byte major;
  public byte minor;

  public CK_VERSION() {}

  public CK_VERSION(int major, int minor) {
    this.major = (byte) major;
    this.minor = (byte) minor;
  }

  @Override
  public String toString() {
    return (major & 0xFF) + "." + (minor & 0xFF);
  }
}
