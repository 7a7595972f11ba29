package com.qor.smartcard.demo;

import static com.qor.smartcard.pkcs11.QorConstants.*;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.CK_TOKEN_INFO;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.pkcs11.RemoteClient;
import java.math.BigInteger;
import java.security.Signature;
import java.security.interfaces.RSAPublicKey;
import java.util.Arrays;

/**
 * The calling process of the demo: everything it does runs in the serving
 * process, reached through this library's own client proxies. Each remoted
 * call is printed with the time it took.
 */
public final class DemoClient {

  /** The token's RSA public key; Java's RSA provider takes any implementation of the interface. */
  private record TokenRsaKey(BigInteger getModulus, BigInteger getPublicExponent) implements RSAPublicKey {
    @Override public String getAlgorithm() { return "RSA"; }
    @Override public String getFormat() { return null; }
    @Override public byte[] getEncoded() { return null; }
  }

  private DemoClient() {}

  /** One remoted call, timed. */
  private interface Call<T> {
    T run() throws PKCS11Exception;
  }

  private static <T> T timed(String what, Call<T> call) throws PKCS11Exception {
    long start = System.nanoTime();
    try {
      T result = call.run();
      System.out.printf("client: %-52s %8.3f ms%n", what, (System.nanoTime() - start) / 1e6);
      return result;
    } catch (PKCS11Exception e) {
      System.out.printf("client: %-52s %8.3f ms  FAILED: %s%n", what, (System.nanoTime() - start) / 1e6,
          e.getMessage());
      throw e;
    }
  }

  private static String hex(byte[] b, int max) {
    StringBuilder sb = new StringBuilder();
    for (int i = 0; i < Math.min(b.length, max); i++) {
      sb.append(String.format("%02x", b[i] & 0xFF));
    }
    return sb + (b.length > max ? "..." : "");
  }

  public static void main(String[] args) throws Exception {
    String socket = args[0];
    Pkcs11 p11 = RemoteClient.connect(socket, 100, 50);
    System.out.println("client: connected " + Pkcs11.WRAPPER_LIBRARY + " to " + socket);

    timed("C_Initialize", () -> { p11.C_Initialize(null); return null; });
    String maker = new String(timed("C_GetInfo", p11::C_GetInfo).manufacturerID).trim();
    System.out.println("client:   module by " + maker);
    long[] slots = timed("C_GetSlotList", () -> p11.C_GetSlotList(true));
    long slot = slots[0];
    CK_TOKEN_INFO token = timed("C_GetTokenInfo", () -> p11.C_GetTokenInfo(slot));
    System.out.println("client:   token \"" + new String(token.label).trim() + "\" in slot " + slot
        + ", model " + new String(token.model).trim());
    long session = timed("C_OpenSession", () -> p11.C_OpenSession(slot, CKF_RW_SESSION | CKF_SERIAL_SESSION, null, null));
    timed("C_Login (user, PIN 1234)", () -> { p11.C_Login(session, CKU_USER, "1234".toCharArray()); return null; });

    CK_ATTRIBUTE[] query = {new CK_ATTRIBUTE(CKA_CLASS, CKO_PRIVATE_KEY), new CK_ATTRIBUTE(CKA_LABEL, "demo-rsa".toCharArray())};
    timed("C_FindObjectsInit (private key \"demo-rsa\")", () -> { p11.C_FindObjectsInit(session, query); return null; });
    long[] found = timed("C_FindObjects", () -> p11.C_FindObjects(session, 10));
    timed("C_FindObjectsFinal", () -> { p11.C_FindObjectsFinal(session); return null; });
    if (found.length == 0) {
      throw new IllegalStateException("no private key labelled demo-rsa on the token");
    }
    long rsa = found[0];
    byte[] message = "signed in another process".getBytes();
    timed("C_SignInit (CKM_SHA256_RSA_PKCS)", () -> { p11.C_SignInit(session, new CK_MECHANISM(CKM_SHA256_RSA_PKCS), rsa); return null; });
    byte[] signature = timed("C_Sign", () -> p11.C_Sign(session, message));
    System.out.println("client:   signature (" + signature.length + " bytes) " + hex(signature, 16));
    // Checked here with the public key read from the token, by Java's own RSA.
    CK_ATTRIBUTE[] pub = {new CK_ATTRIBUTE(CKA_CLASS, CKO_PUBLIC_KEY), new CK_ATTRIBUTE(CKA_LABEL, "demo-rsa".toCharArray())};
    p11.C_FindObjectsInit(session, pub);
    long[] pubKeys = p11.C_FindObjects(session, 1);
    p11.C_FindObjectsFinal(session);
    CK_ATTRIBUTE[] numbers = {new CK_ATTRIBUTE(CKA_MODULUS), new CK_ATTRIBUTE(CKA_PUBLIC_EXPONENT)};
    timed("C_GetAttributeValue (modulus, public exponent)", () -> {
      p11.C_GetAttributeValue(session, pubKeys[0], numbers);
      return null;
    });
    Signature check = Signature.getInstance("SHA256withRSA");
    check.initVerify(new TokenRsaKey(
        new BigInteger(1, (byte[]) numbers[0].pValue), new BigInteger(1, (byte[]) numbers[1].pValue)));
    check.update(message);
    boolean valid = check.verify(signature);
    System.out.println("client:   signature checked with the public key by java.security: "
        + (valid ? "valid" : "INVALID"));

    long aes = timed("C_GenerateKey (AES-256, session key)", () -> p11.C_GenerateKey(session,
        new CK_MECHANISM(CKM_AES_KEY_GEN), new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false),
            new CK_ATTRIBUTE(CKA_VALUE_LEN, 32L), new CK_ATTRIBUTE(CKA_ENCRYPT, true),
            new CK_ATTRIBUTE(CKA_DECRYPT, true)}));
    byte[] iv = timed("C_GenerateRandom (16 bytes, the IV)", () -> p11.C_GenerateRandom(session, 16));
    System.out.println("client:   IV " + hex(iv, 16));
    CK_MECHANISM cbc = new CK_MECHANISM(CKM_AES_CBC_PAD, iv);
    byte[] plain = "a secret that never leaves the token's process in the clear".getBytes();
    timed("C_EncryptInit (CKM_AES_CBC_PAD)", () -> { p11.C_EncryptInit(session, cbc, aes); return null; });
    byte[] encrypted = timed("C_Encrypt", () -> p11.C_Encrypt(session, plain));
    timed("C_DecryptInit (CKM_AES_CBC_PAD)", () -> { p11.C_DecryptInit(session, cbc, aes); return null; });
    byte[] decrypted = timed("C_Decrypt", () -> p11.C_Decrypt(session, encrypted));
    System.out.println("client:   " + plain.length + " bytes -> " + encrypted.length + " encrypted -> "
        + (Arrays.equals(plain, decrypted) ? "decrypted back unchanged" : "DECRYPTED WRONG"));

    timed("C_Logout", () -> { p11.C_Logout(session); return null; });
    timed("C_CloseSession", () -> { p11.C_CloseSession(session); return null; });
    timed("C_Finalize", () -> { p11.C_Finalize(null); return null; });
    p11.disconnect();
    System.out.println("client: done");
    if (!valid || !Arrays.equals(plain, decrypted)) {
      System.exit(1);
    }
  }
}
