package com.qor.smartcard.pkcs11.e2e;

import java.io.ObjectStreamException;
import java.math.BigInteger;
import java.security.KeyRep;
import java.security.MessageDigest;
import java.security.PublicKey;
import java.security.interfaces.RSAPublicKey;
import java.util.Arrays;

/**
 * Public keys read from the token, as java.security takes them, so that what
 * the token signed through the remoting is checked by Java's own code.
 */
final class PublicKeys {
  private PublicKeys() {}

  /** An RSA public key; Java's RSA provider takes any implementation of the interface. */
  record Rsa(BigInteger getModulus, BigInteger getPublicExponent) implements RSAPublicKey {
    @Override
    public String getAlgorithm() {
      return "RSA";
    }

    @Override
    public String getFormat() {
      return null;
    }

    @Override
    public byte[] getEncoded() {
      return null;
    }
  }

  static RSAPublicKey rsa(byte[] modulus, byte[] publicExponent) {
    return new Rsa(new BigInteger(1, modulus), new BigInteger(1, publicExponent));
  }

  /** The X.509 SubjectPublicKeyInfo header of a P-256 key, before its uncompressed point. */
  private static final byte[] P256_HEADER = {0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, (byte) 0x86,
      0x48, (byte) 0xce, 0x3d, 0x02, 0x01, 0x06, 0x08, 0x2a, (byte) 0x86, 0x48, (byte) 0xce, 0x3d,
      0x03, 0x01, 0x07, 0x03, 0x42, 0x00};

  /** A P-256 public key from its uncompressed point (0x04, x, y), decoded by Java's EC provider. */
  static PublicKey p256(byte[] point) throws ObjectStreamException {
    byte[] encoded = Arrays.copyOf(P256_HEADER, P256_HEADER.length + point.length);
    System.arraycopy(point, 0, encoded, P256_HEADER.length, point.length);
    return new X509(encoded).resolve();
  }

  /** KeyRep turns an X.509 encoding back into a key through the algorithm's KeyFactory. */
  private static final class X509 extends KeyRep {
    private static final long serialVersionUID = 1L;

    X509(byte[] encoded) {
      super(KeyRep.Type.PUBLIC, "EC", "X.509", encoded);
    }

    PublicKey resolve() throws ObjectStreamException {
      return (PublicKey) readResolve();
    }
  }

  /**
   * Checks an RSASSA-PSS signature (SHA-256, MGF1 with SHA-256, 32-byte salt)
   * by the steps of PKCS#1 v2.2, with the raw RSA operation done here.
   */
  static boolean verifyPssSha256(RSAPublicKey key, byte[] message, byte[] signature)
      throws Exception {
    int emBits = key.getModulus().bitLength() - 1;
    int emLen = (emBits + 7) / 8;
    byte[] em = unsigned(new BigInteger(1, signature).modPow(key.getPublicExponent(),
        key.getModulus()), emLen);
    int hLen = 32;
    int sLen = 32;
    if (em == null || em[emLen - 1] != (byte) 0xbc) {
      return false;
    }
    byte[] h = Arrays.copyOfRange(em, emLen - hLen - 1, emLen - 1);
    byte[] db = Arrays.copyOf(em, emLen - hLen - 1);
    byte[] mask = mgf1Sha256(h, db.length);
    for (int i = 0; i < db.length; i++) {
      db[i] ^= mask[i];
    }
    db[0] &= (byte) (0xff >>> (8 * emLen - emBits));
    int ps = emLen - hLen - sLen - 2;
    for (int i = 0; i < ps; i++) {
      if (db[i] != 0) {
        return false;
      }
    }
    if (db[ps] != 0x01) {
      return false;
    }
    MessageDigest sha256 = MessageDigest.getInstance("SHA-256");
    sha256.update(new byte[8]);
    sha256.update(MessageDigest.getInstance("SHA-256").digest(message));
    sha256.update(db, db.length - sLen, sLen);
    return Arrays.equals(h, sha256.digest());
  }

  private static byte[] mgf1Sha256(byte[] seed, int length) throws Exception {
    byte[] out = new byte[length];
    for (int counter = 0, at = 0; at < length; counter++) {
      MessageDigest sha256 = MessageDigest.getInstance("SHA-256");
      sha256.update(seed);
      sha256.update(new byte[] {(byte) (counter >>> 24), (byte) (counter >>> 16),
          (byte) (counter >>> 8), (byte) counter});
      byte[] block = sha256.digest();
      int n = Math.min(block.length, length - at);
      System.arraycopy(block, 0, out, at, n);
      at += n;
    }
    return out;
  }

  /** The value as exactly {@code length} big-endian bytes; null when it does not fit. */
  private static byte[] unsigned(BigInteger value, int length) {
    byte[] bytes = value.toByteArray();
    if (bytes.length > length + 1 || (bytes.length == length + 1 && bytes[0] != 0)) {
      return null;
    }
    byte[] out = new byte[length];
    int copied = Math.min(bytes.length, length);
    System.arraycopy(bytes, bytes.length - copied, out, length - copied, copied);
    return out;
  }
}
