package com.qor.smartcard.pkcs11.e2e;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_ECDH1_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.CK_SESSION_INFO;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.pkcs11.RemoteClient;
import java.util.Arrays;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/**
 * The calls the legacy wire serves otherwise than the caller meant, with
 * the extended protocol on in this JVM and served by the other: each gives
 * the token's own answer, through the natives as an app makes them.
 */
class ExtendedRemotingTest {
  private static final byte[] P256_OID = {0x06, 0x08, 0x2a, (byte) 0x86, 0x48, (byte) 0xce, 0x3d, 0x03, 0x01, 0x07};
  private static final byte[] DATA = "the quick brown fox, remoted in full".getBytes();

  private static ServerProcess server;
  private static Pkcs11 p11;
  private static long slot;
  private long session;

  @BeforeAll
  static void startServerAndLogIn() throws Exception {
    RemoteClient.setExtensions(true);
    server = ServerProcess.start();
    p11 = RemoteClient.connect(ServerProcess.SOCKET, 100, 50);
    p11.C_Initialize(null);
    assertTrue(RemoteClient.isPeerExtended(), "the serving side confirms the extensions");
    slot = p11.C_GetSlotList(true)[0];
    long first = p11.C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null);
    p11.C_Login(first, CKU_USER, "1234".toCharArray());
  }

  @BeforeEach
  void openSession() throws Exception {
    session = p11.C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null);
  }

  @AfterEach
  void closeSession() throws Exception {
    p11.C_CloseSession(session);
  }

  @AfterAll
  static void stopServer() {
    server.kill();
    RemoteClient.setExtensions(false);
  }

  @Test
  void singlePartVerifyChecksTheSignatureSent() throws Exception {
    long[] rsa = rsaKeyPair();
    CK_MECHANISM sha256Rsa = new CK_MECHANISM(CKM_SHA256_RSA_PKCS);
    p11.C_SignInit(session, sha256Rsa, rsa[1]);
    byte[] signature = p11.C_Sign(session, DATA);
    p11.C_VerifyInit(session, sha256Rsa, rsa[0]);
    p11.C_Verify(session, DATA, signature);
    signature[5] ^= 1;
    p11.C_VerifyInit(session, sha256Rsa, rsa[0]);
    assertFails(CKR_SIGNATURE_INVALID, () -> p11.C_Verify(session, DATA, signature));
  }

  @Test
  void sessionInfoDescribesTheSessionAskedFor() throws Exception {
    CK_SESSION_INFO info = p11.C_GetSessionInfo(session);
    assertEquals(slot, info.slotID);
    assertEquals(CKS_RW_USER_FUNCTIONS, info.state);
  }

  @Test
  void pinsAreChangedAndInitialised() throws Exception {
    p11.C_SetPIN(session, "1234".toCharArray(), "4321".toCharArray());
    p11.C_Logout(session);
    assertFails(CKR_PIN_INCORRECT, () -> p11.C_Login(session, CKU_USER, "1234".toCharArray()));
    p11.C_Login(session, CKU_SO, "5678".toCharArray());
    p11.C_InitPIN(session, "1234".toCharArray());
    p11.C_Logout(session);
    p11.C_Login(session, CKU_USER, "1234".toCharArray());
  }

  /** The natives ask for the length first: the query no longer does the work. */
  @Test
  void partsThatProduceNothingWorkThroughTheTwoCallScheme() throws Exception {
    long key = aesKey();
    CK_MECHANISM cbc = new CK_MECHANISM(CKM_AES_CBC_PAD, new byte[16]);
    p11.C_EncryptInit(session, cbc, key);
    assertEquals(0, p11.C_EncryptUpdate(session, new byte[10]).length);
    byte[] first = p11.C_EncryptUpdate(session, new byte[22]);
    byte[] last = p11.C_EncryptFinal(session);
    byte[] sealed = concat(first, last);
    assertEquals(48, sealed.length);

    p11.C_DecryptInit(session, cbc, key);
    byte[] plain = p11.C_DecryptUpdate(session, sealed);
    assertArrayEquals(new byte[32], concat(plain, p11.C_DecryptFinal(session)));
  }

  @Test
  void mechanismsWithoutAParameterWrap() throws Exception {
    long wrapping = aesKey();
    long secret = aesKey();
    assertEquals(40, p11.C_WrapKey(session, new CK_MECHANISM(CKM_AES_KEY_WRAP), wrapping, secret).length);
    long[] rsa = rsaKeyPair();
    assertEquals(256, p11.C_WrapKey(session, new CK_MECHANISM(CKM_RSA_PKCS), rsa[0], secret).length);
  }

  /** The peer's point travels by pointer: in depth, both sides agree. */
  @Test
  void ecdh1DeriveAgreesBothSides() throws Exception {
    long[] alice = ecKeyPair();
    long[] bob = ecKeyPair();
    byte[] ab = derive(alice[1], ecPoint(bob[0]));
    byte[] ba = derive(bob[1], ecPoint(alice[0]));
    assertEquals(32, ab.length);
    assertArrayEquals(ab, ba);
  }

  // ---- helpers ------------------------------------------------------------

  private static void assertFails(long code, org.junit.jupiter.api.function.Executable call) {
    PKCS11Exception e = assertThrows(PKCS11Exception.class, call);
    assertEquals(code, e.getErrorCode());
  }

  private long aesKey() throws PKCS11Exception {
    return p11.C_GenerateKey(session, new CK_MECHANISM(CKM_AES_KEY_GEN), new CK_ATTRIBUTE[] {
        new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_VALUE_LEN, 32L),
        new CK_ATTRIBUTE(CKA_ENCRYPT, true), new CK_ATTRIBUTE(CKA_DECRYPT, true),
        new CK_ATTRIBUTE(CKA_WRAP, true), new CK_ATTRIBUTE(CKA_SENSITIVE, false),
        new CK_ATTRIBUTE(CKA_EXTRACTABLE, true)});
  }

  private long[] rsaKeyPair() throws PKCS11Exception {
    return p11.C_GenerateKeyPair(session, new CK_MECHANISM(CKM_RSA_PKCS_KEY_PAIR_GEN),
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_MODULUS_BITS, 2048L),
            new CK_ATTRIBUTE(CKA_PUBLIC_EXPONENT, new byte[] {1, 0, 1}),
            new CK_ATTRIBUTE(CKA_WRAP, true), new CK_ATTRIBUTE(CKA_VERIFY, true)},
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_SIGN, true)});
  }

  private long[] ecKeyPair() throws PKCS11Exception {
    return p11.C_GenerateKeyPair(session, new CK_MECHANISM(CKM_EC_KEY_PAIR_GEN),
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_EC_PARAMS, P256_OID)},
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_DERIVE, true)});
  }

  /** The uncompressed point of an EC public key, without its DER wrapping. */
  private byte[] ecPoint(long publicKey) throws PKCS11Exception {
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(CKA_EC_POINT)};
    p11.C_GetAttributeValue(session, publicKey, template);
    byte[] der = (byte[]) template[0].pValue;
    return Arrays.copyOfRange(der, 2, der.length);
  }

  private byte[] derive(long privateKey, byte[] peerPoint) throws PKCS11Exception {
    CK_ECDH1_DERIVE_PARAMS params = new CK_ECDH1_DERIVE_PARAMS();
    params.kdf = CKD_NULL;
    params.pPublicData = peerPoint;
    long secret = p11.C_DeriveKey(session, new CK_MECHANISM(CKM_ECDH1_DERIVE, params), privateKey,
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_CLASS, CKO_SECRET_KEY),
            new CK_ATTRIBUTE(CKA_KEY_TYPE, CKK_GENERIC_SECRET), new CK_ATTRIBUTE(CKA_VALUE_LEN, 32L),
            new CK_ATTRIBUTE(CKA_TOKEN, false), new CK_ATTRIBUTE(CKA_SENSITIVE, false),
            new CK_ATTRIBUTE(CKA_EXTRACTABLE, true)});
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(CKA_VALUE)};
    p11.C_GetAttributeValue(session, secret, template);
    return (byte[]) template[0].pValue;
  }

  private static byte[] concat(byte[] a, byte[] b) {
    byte[] out = Arrays.copyOf(a, a.length + b.length);
    System.arraycopy(b, 0, out, a.length, b.length);
    return out;
  }
}
