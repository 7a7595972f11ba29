package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static com.qor.smartcard.pkcs11.tests.Fixture.P;
import static com.qor.smartcard.pkcs11.tests.Fixture.lastArg;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_KEY_WRAP_SET_OAEP_PARAMS;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.CK_PBE_PARAMS;
import com.qor.smartcard.pkcs11.CK_SSL3_KEY_MAT_PARAMS;
import com.qor.smartcard.pkcs11.CK_SSL3_MASTER_KEY_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_VERSION;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.PKCS11RuntimeException;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.util.function.Supplier;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

/**
 * Mechanisms and their parameters as the module receives them, and the
 * results that modules write back into parameter objects.
 */
class MechanismTest {

  private static Pkcs11 p11;

  @BeforeAll
  static void connect() throws Exception {
    p11 = Fixture.direct("mechanisms");
  }

  @BeforeEach
  void freshModule() {
    TestModule.resetReady();
  }

  /** The mechanism of one C_EncryptInit as the module received it. */
  private static String sent(long mechanism, Object parameter) throws Exception {
    TestModule.script("C_EncryptInit", 0);
    p11.C_EncryptInit(1, new CK_MECHANISM(mechanism, parameter), 5);
    return lastArg("C_EncryptInit", "pMechanism");
  }

  static Stream<Arguments> parameters() {
    return Stream.of(
        row("CK_RSA_PKCS_OAEP_PARAMS", 0x9, Params::oaep, 16 + P,
            "hashAlg=0x250, mgf=0x2, source=0x1, pSourceData=[aabb], ulSourceDataLen=2"),
        row("CK_KEA_DERIVE_PARAMS", 0x1011, Params::kea, 9 + 3 * P,
            "isSender=1, ulRandomLen=2, pRandomA=[0102], pRandomB=[0304], ulPublicDataLen=1, pPublicData=[05]"),
        row("CK_RC2_CBC_PARAMS", 0x102, Params::rc2Cbc, 12,
            "ulEffectiveBits=64, iv=[0102030000000000]"),
        row("CK_RC2_MAC_GENERAL_PARAMS", 0x104, Params::rc2MacGeneral, 8,
            "ulEffectiveBits=64, ulMacLength=4"),
        row("CK_RC5_PARAMS", 0x331, Params::rc5, 8,
            "ulWordsize=4, ulRounds=12"),
        row("CK_RC5_CBC_PARAMS", 0x332, Params::rc5Cbc, 12 + P,
            "ulWordsize=4, ulRounds=12, pIv=[090807], ulIvLen=3"),
        row("CK_RC5_MAC_GENERAL_PARAMS", 0x334, Params::rc5MacGeneral, 12,
            "ulWordsize=4, ulRounds=12, ulMacLength=8"),
        row("CK_SKIPJACK_PRIVATE_WRAP_PARAMS", 0x1009, Params::skipjackPrivateWrap, 20 + 6 * P,
            "ulPasswordLen=1, pPassword=[01], ulPublicDataLen=2, pPublicData=[0202], "
                + "ulPAndGLen=4, ulQLen=1, ulRandomLen=3, pRandomA=[030303], pPrimeP=[04040404], pBaseG=[05050505], "
                + "pSubprimeQ=[06]"),
        row("CK_SKIPJACK_RELAYX_PARAMS", 0x100A, Params::skipjackRelayx, 28 + 7 * P,
            "ulOldWrappedXLen=1, pOldWrappedX=[01], ulOldPasswordLen=1, pOldPassword=[02], "
                + "ulOldPublicDataLen=1, pOldPublicData=[03], ulOldRandomLen=1, pOldRandomA=[04], ulNewPasswordLen=1, "
                + "pNewPassword=[05], ulNewPublicDataLen=1, pNewPublicData=[06], ulNewRandomLen=1, pNewRandomA=[07]"),
        row("CK_PBE_PARAMS", 0x3A8, Params::pbe, 12 + 3 * P,
            "pInitVector=nonnull, pPassword=[7077], ulPasswordLen=2, pSalt=[73616c74], ulSaltLen=4, ulIteration=1000"),
        row("CK_PKCS5_PBKD2_PARAMS", 0x3B0, Params::pkcs5Pbkd2, 20 + 4 * P,
            "saltSource=0x1, pSaltSourceData=[5a17], ulSaltSourceDataLen=2, iterations=2048, prf=0x1, "
                + "pPrfData=[33], ulPrfDataLen=1, pPassword=null, ulPasswordLen=null"),
        row("CK_KEY_DERIVATION_STRING_DATA", 0x362, Params::stringData, 4 + P,
            "pData=[010203], ulLen=3"),
        row("CK_KEY_WRAP_SET_OAEP_PARAMS", 0x401, Params::setOaep, 5 + P,
            "bBC=17, pX=[0000000000000000], ulXLen=8"),
        row("CK_SSL3_MASTER_KEY_DERIVE_PARAMS", 0x371, Params::ssl3Master, 8 + 3 * P,
            "pClientRandom=[c1c2], ulClientRandomLen=2, pServerRandom=[51], ulServerRandomLen=1, "
                + "pVersion=[0000]"),
        row("CK_SSL3_KEY_MAT_PARAMS", 0x372, Params::ssl3KeyMat, 21 + 3 * P,
            "ulMacSizeInBits=160, ulKeySizeInBits=128, ulIVSizeInBits=64, bIsExport=1, "
                + "pClientRandom=[c1c2], ulClientRandomLen=2, pServerRandom=[51], ulServerRandomLen=1, "
                + "pReturnedKeyMaterial=nonnull"),
        row("CK_RSA_PKCS_PSS_PARAMS", 0xD, Params::pss, 12,
            "hashAlg=0x250, mgf=0x2, sLen=32"),
        row("CK_ECDH1_DERIVE_PARAMS", 0x1050, Params::ecdh1, 12 + 2 * P,
            "kdf=0x1, ulSharedDataLen=1, pSharedData=[ee], ulPublicDataLen=3, pPublicData=[040102]"),
        row("CK_ECDH2_DERIVE_PARAMS", 0x1052, Params::ecdh2, 24 + 3 * P,
            "kdf=0x1, ulSharedDataLen=1, pSharedData=[ee], ulPublicDataLen=2, pPublicData=[0401], "
                + "ulPrivateDataLen=32, hPrivateData=77, ulPublicDataLen2=3, pPublicData2=[040202]"),
        row("CK_X9_42_DH1_DERIVE_PARAMS", 0x31, Params::dh1, 12 + 2 * P,
            "kdf=0x1, ulOtherInfoLen=1, pOtherInfo=[0f], ulPublicDataLen=2, pPublicData=[0102]"),
        row("CK_X9_42_DH2_DERIVE_PARAMS", 0x32, Params::dh2, 24 + 3 * P,
            "kdf=0x1, ulOtherInfoLen=1, pOtherInfo=[0f], ulPublicDataLen=2, pPublicData=[0102], "
                + "ulPrivateDataLen=16, hPrivateData=78, ulPublicDataLen2=1, pPublicData2=[03]"),
        row("CK_DES_CBC_ENCRYPT_DATA_PARAMS", 0x1101, Params::desCbcData, 12 + P,
            "iv=[0102030405060708], pData=[da7a], length=2"),
        row("CK_AES_CBC_ENCRYPT_DATA_PARAMS", 0x1105, Params::aesCbcData, 20 + P,
            "iv=[01020000000000000000000000000000], pData=[da7a00], length=3"),
        row("byte[] as it is", 0x1082, () -> Params.b(1, 2, 3), 3, "[010203]"),
        row("Long as CK_ULONG", 0x1, () -> 0x100000020L, 4, "[20000000]"),
        row("CK_VERSION as two bytes", 0x370, () -> new CK_VERSION(3, 1), 2, "[0301]"),
        row("other values as attribute values", 0x1, () -> 7, 4, "[07000000]"),
        row("no parameter", 0x1, () -> null, 0, "null"));
  }

  private static Arguments row(String name, long mechanism, Supplier<Object> parameter, int size, String text) {
    return Arguments.of(name, mechanism, parameter, size, text);
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("parameters")
  void parametersReachTheModuleWithTheirNativeSize(String name, long mechanism, Supplier<Object> parameter,
      int size, String text) throws Exception {
    String got = sent(mechanism, parameter.get());
    String prefix = "{mechanism=0x" + Long.toHexString(mechanism) + ", pParameter=";
    String suffix = ", ulParameterLen=" + size + "}";
    assertEquals(true, got.startsWith(prefix) && got.endsWith(suffix), got);
    if (text != null) {
      String body = got.substring(prefix.length(), got.length() - suffix.length());
      assertEquals(text.startsWith("[") || text.equals("null") ? text : "{" + text + "}", body);
    }
  }

  @Test
  void aParameterWithoutANativeFormIsRefusedBeforeTheModule() {
    int before = TestModule.callCount();
    PKCS11RuntimeException e = assertThrows(PKCS11RuntimeException.class,
        () -> p11.C_EncryptInit(1, new CK_MECHANISM(0x1082, new Object()), 5));
    assertEquals("Java object of this class cannot be converted to native PKCS#11 type: java.lang.Object",
        e.getMessage());
    assertEquals(before, TestModule.callCount());
  }

  @Test
  void aNullMechanismFailsWithArgumentsBad() {
    int before = TestModule.callCount();
    PKCS11Exception e = assertThrows(PKCS11Exception.class, () -> p11.C_SignInit(1, null, 5));
    assertEquals(0x7, e.getErrorCode());
    assertEquals(before, TestModule.callCount());
  }

  // ---- copy-backs against the module's token ---------------------------------

  private long session() throws Exception {
    long session = p11.C_OpenSession(Fixture.TOKEN_SLOT, CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null);
    p11.C_Login(session, CKU_USER, "1234".toCharArray());
    return session;
  }

  private long secretKey(long session, int length) throws Exception {
    return p11.C_GenerateKey(session, new CK_MECHANISM(0x350),
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_VALUE_LEN, (long) length), new CK_ATTRIBUTE(CKA_DERIVE, true)});
  }

  @Test
  void keyGenerationWritesThePbeIvIntoPInitVektor() throws Exception {
    long session = session();
    CK_PBE_PARAMS pbe = Params.pbe();
    p11.C_GenerateKey(session, new CK_MECHANISM(0x3A8, pbe), new CK_ATTRIBUTE[0]);
    char[] expected = new char[8];
    for (int i = 0; i < 8; i++) {
      expected[i] = (char) (0xB0 + i);
    }
    assertArrayEquals(expected, pbe.pInitVektor);
    assertArrayEquals(new char[8], pbe.pInitVector, "the input field stays as it was");
  }

  @Test
  void aShortPbeIvArrayStillGetsTheWholeIvTheModuleWrites() throws Exception {
    long session = session();
    CK_PBE_PARAMS pbe = Params.pbe();
    pbe.pInitVector = new char[2];
    p11.C_GenerateKey(session, new CK_MECHANISM(0x3A8, pbe), new CK_ATTRIBUTE[0]);
    char[] expected = new char[8];
    for (int i = 0; i < 8; i++) {
      expected[i] = (char) (0xB0 + i);
    }
    assertArrayEquals(expected, pbe.pInitVektor);
  }

  @Test
  void unwrappingWithSetOaepWritesBackTheBlockContentsAndX() throws Exception {
    long session = session();
    long[] pair = p11.C_GenerateKeyPair(session, new CK_MECHANISM(0x0),
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(0x121, 1024L)}, new CK_ATTRIBUTE[0]);
    CK_KEY_WRAP_SET_OAEP_PARAMS params = Params.setOaep();
    long key = p11.C_UnwrapKey(session, new CK_MECHANISM(0x401, params), pair[1], Params.b(1, 2, 3, 4),
        new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_CLASS, CKO_SECRET_KEY)});
    assertNotEquals(0, key);
    assertEquals(0x5B, params.bBC);
    assertArrayEquals(Fixture.pattern(8, 0xA0), params.pX);
  }

  @Test
  void ssl3MasterKeyDerivationWritesBackTheClientVersion() throws Exception {
    long session = session();
    long base = secretKey(session, 48);
    CK_SSL3_MASTER_KEY_DERIVE_PARAMS params = Params.ssl3Master();
    p11.C_DeriveKey(session, new CK_MECHANISM(0x371, params), base, new CK_ATTRIBUTE[0]);
    assertEquals("3.0", params.pVersion.toString());
  }

  @Test
  void ssl3KeyAndMacDerivationWritesBackHandlesAndIvs() throws Exception {
    long session = session();
    long base = secretKey(session, 48);
    CK_SSL3_KEY_MAT_PARAMS params = Params.ssl3KeyMat();
    p11.C_DeriveKey(session, new CK_MECHANISM(0x372, params), base, new CK_ATTRIBUTE[0]);
    long[] handles = {params.pReturnedKeyMaterial.hClientMacSecret, params.pReturnedKeyMaterial.hServerMacSecret,
        params.pReturnedKeyMaterial.hClientKey, params.pReturnedKeyMaterial.hServerKey};
    assertEquals(4, java.util.Arrays.stream(handles).filter(h -> h != 0).distinct().count());
    assertArrayEquals(Fixture.pattern(8, 0xC0), params.pReturnedKeyMaterial.pIVClient);
    assertArrayEquals(Fixture.pattern(8, 0xD0), params.pReturnedKeyMaterial.pIVServer);
  }

  @Test
  void copyBacksLeaveOtherMechanismsAlone() throws Exception {
    long session = session();
    long base = secretKey(session, 48);
    // A master-key parameter under the key-and-MAC mechanism: the module
    // refuses it and the Java object stays as it was.
    CK_SSL3_MASTER_KEY_DERIVE_PARAMS params = Params.ssl3Master();
    assertThrows(PKCS11Exception.class,
        () -> p11.C_DeriveKey(session, new CK_MECHANISM(0x372, params), base, new CK_ATTRIBUTE[0]));
    assertEquals("0.0", params.pVersion.toString());
    // A scripted success writes nothing: nothing may be copied either.
    TestModule.script("C_DeriveKey", 0);
    CK_SSL3_MASTER_KEY_DERIVE_PARAMS untouched = Params.ssl3Master();
    untouched.pVersion = new CK_VERSION(9, 9);
    p11.C_DeriveKey(session, new CK_MECHANISM(0x371, untouched), base, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, false)});
    assertEquals("9.9", untouched.pVersion.toString());
  }
}
