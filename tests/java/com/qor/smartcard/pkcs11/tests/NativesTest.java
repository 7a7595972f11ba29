package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static com.qor.smartcard.pkcs11.tests.Fixture.bytes;
import static com.qor.smartcard.pkcs11.tests.Fixture.hex;
import static com.qor.smartcard.pkcs11.tests.Fixture.last;
import static com.qor.smartcard.pkcs11.tests.Fixture.lastArg;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_C_INITIALIZE_ARGS;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.PKCS11RuntimeException;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

/** The C_* natives against the test module: buffers, lengths, errors. */
class NativesTest {
  private static final byte[] DATA = {9, 8, 7};
  private static Pkcs11 p11;

  /** One native call; the result as the native returned it. */
  interface Call {
    Object run(Pkcs11 p11) throws Exception;
  }

  @BeforeAll
  static void connect() throws Exception {
    p11 = Fixture.direct("natives");
  }

  @BeforeEach
  void freshModule() {
    TestModule.resetReady();
  }

  /** Texts of the recorded calls of one function, in order. */
  private static List<String> callsOf(String function) {
    List<String> out = new ArrayList<>();
    for (int i = 0; i < TestModule.callCount(); i++) {
      if (function.equals(TestModule.callName(i))) {
        out.add(TestModule.callText(i));
      }
    }
    return out;
  }

  private static Object defaultArgument(Class<?> type) {
    if (type == long.class) {
      return 1L;
    }
    if (type == boolean.class) {
      return true;
    }
    return null;
  }

  @Test
  void everyNativeOfAnUnconnectedObjectThrowsBeforeTouchingAModule() throws Exception {
    Pkcs11 unconnected = new Pkcs11();
    int natives = 0;
    for (Method m : Pkcs11.class.getDeclaredMethods()) {
      if (!m.getName().startsWith("C_") || !Modifier.isNative(m.getModifiers())) {
        continue;
      }
      natives++;
      Object[] args = new Object[m.getParameterCount()];
      for (int i = 0; i < args.length; i++) {
        args[i] = defaultArgument(m.getParameterTypes()[i]);
      }
      InvocationTargetException e =
          assertThrows(InvocationTargetException.class, () -> m.invoke(unconnected, args), m.getName());
      assertInstanceOf(PKCS11RuntimeException.class, e.getCause(), m.getName());
      assertEquals("This object is not connected to a module.", e.getCause().getMessage(), m.getName());
    }
    assertEquals(67, natives, "one native per PKCS#11 function but C_GetFunctionList");
    assertEquals(0, TestModule.callCount());
  }

  static Stream<Arguments> failingCalls() {
    return Stream.of(
        Arguments.of("C_Initialize", (Call) p -> { p.C_Initialize(null); return null; }),
        Arguments.of("C_GetInfo", (Call) p -> p.C_GetInfo()),
        Arguments.of("C_GetSlotList", (Call) p -> p.C_GetSlotList(true)),
        Arguments.of("C_OpenSession", (Call) p -> p.C_OpenSession(1, 4, null, null)),
        Arguments.of("C_Login", (Call) p -> { p.C_Login(1, 1, "1234".toCharArray()); return null; }),
        Arguments.of("C_CreateObject", (Call) p -> p.C_CreateObject(1, new CK_ATTRIBUTE[0])),
        Arguments.of("C_FindObjects", (Call) p -> p.C_FindObjects(1, 4)),
        Arguments.of("C_Encrypt", (Call) p -> p.C_Encrypt(1, DATA)),
        Arguments.of("C_Sign", (Call) p -> p.C_Sign(1, DATA)),
        Arguments.of("C_Verify", (Call) p -> { p.C_Verify(1, DATA, DATA); return null; }),
        Arguments.of("C_GenerateKeyPair",
            (Call) p -> p.C_GenerateKeyPair(1, new CK_MECHANISM(0), new CK_ATTRIBUTE[0], new CK_ATTRIBUTE[0])),
        Arguments.of("C_GenerateRandom", (Call) p -> p.C_GenerateRandom(1, 8)),
        Arguments.of("C_WaitForSlotEvent", (Call) p -> p.C_WaitForSlotEvent(1)));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("failingCalls")
  void aNonzeroReturnValueBecomesPKCS11ExceptionWithThatCode(String function, Call call) {
    for (long rv : new long[] {0xA0, 0x80000123L, 0xFFFFFFFFL}) {
      TestModule.script(function, rv);
      PKCS11Exception e = assertThrows(PKCS11Exception.class, () -> call.run(p11), function);
      assertEquals(rv, e.getErrorCode());
    }
  }

  @Test
  void exceptionMessagesNameTheReturnValue() {
    assertEquals("CKR_PIN_INCORRECT (0x000000A0)", new PKCS11Exception(0xA0).getMessage());
    assertEquals("CKR_BUFFER_TOO_SMALL", PKCS11Exception.nameOf(0x150));
    assertTrue(new PKCS11Exception(0x80000123L).getMessage().startsWith("CKR_VENDOR_DEFINED+0x123"));
    assertTrue(new PKCS11Exception(0xFFFFFFFFL).getMessage().startsWith("0xFFFFFFFF"));
  }

  static Stream<Arguments> lengthQueries() {
    CK_MECHANISM wrap = new CK_MECHANISM(0x1082, new byte[16]);
    return Stream.of(
        Arguments.of("C_EncryptUpdate", "pEncryptedPart", (Call) p -> p.C_EncryptUpdate(1, DATA)),
        Arguments.of("C_DecryptUpdate", "pPart", (Call) p -> p.C_DecryptUpdate(1, DATA)),
        Arguments.of("C_SignRecover", "pSignature", (Call) p -> p.C_SignRecover(1, DATA)),
        Arguments.of("C_VerifyRecover", "pData", (Call) p -> p.C_VerifyRecover(1, DATA)),
        Arguments.of("C_DigestEncryptUpdate", "pEncryptedPart", (Call) p -> p.C_DigestEncryptUpdate(1, DATA)),
        Arguments.of("C_DecryptDigestUpdate", "pPart", (Call) p -> p.C_DecryptDigestUpdate(1, DATA)),
        Arguments.of("C_SignEncryptUpdate", "pEncryptedPart", (Call) p -> p.C_SignEncryptUpdate(1, DATA)),
        Arguments.of("C_DecryptVerifyUpdate", "pPart", (Call) p -> p.C_DecryptVerifyUpdate(1, DATA)),
        Arguments.of("C_EncryptFinal", "pLastEncryptedPart", (Call) p -> p.C_EncryptFinal(1)),
        Arguments.of("C_DecryptFinal", "pLastPart", (Call) p -> p.C_DecryptFinal(1)),
        Arguments.of("C_DigestFinal", "pDigest", (Call) p -> p.C_DigestFinal(1)),
        Arguments.of("C_SignFinal", "pSignature", (Call) p -> p.C_SignFinal(1)),
        Arguments.of("C_GetOperationState", "pOperationState", (Call) p -> p.C_GetOperationState(1)),
        Arguments.of("C_WrapKey", "pWrappedKey", (Call) p -> p.C_WrapKey(1, wrap, 2, 3)));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("lengthQueries")
  void outputsAreSizedByALengthQueryFirst(String function, String output, Call call) throws Exception {
    TestModule.untouched(function, 5);
    TestModule.script(function, 0, bytes("0102030405"), 4, -1, null);
    byte[] result = (byte[]) call.run(p11);
    assertEquals("0102030405".substring(0, 8), hex(result), "the array is as long as the second call says");
    List<String> calls = callsOf(function);
    assertEquals(2, calls.size(), calls.toString());
    assertEquals("null", TestModule.callArg(TestModule.lastCall(function) - 1, output));
    assertEquals("[0000000000]", lastArg(function, output), "a zeroed buffer of the announced length");
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("lengthQueries")
  void aFailingLengthQueryEndsTheCall(String function, String output, Call call) {
    TestModule.script(function, 0x91);
    PKCS11Exception e = assertThrows(PKCS11Exception.class, () -> call.run(p11));
    assertEquals(0x91, e.getErrorCode());
    assertEquals(1, callsOf(function).size());
  }

  @Test
  void slotListsOfNoSlotsTakeOneCall() throws Exception {
    TestModule.script("C_GetSlotList", 0, null, -1, 0, null);
    assertArrayEquals(new long[0], p11.C_GetSlotList(false));
    assertEquals(List.of("C_GetSlotList(tokenPresent=0, pSlotList=null, *pulCount=0)"), callsOf("C_GetSlotList"));
  }

  @Test
  void slotAndMechanismListsAreFetchedInTwoCalls() throws Exception {
    TestModule.script("C_GetSlotList", 0, null, -1, 2, null);
    TestModule.script("C_GetSlotList", 0, null, -1, 2, new long[] {7, 0xFFFFFFFFL});
    assertArrayEquals(new long[] {7, 0xFFFFFFFFL}, p11.C_GetSlotList(true));
    assertEquals("C_GetSlotList(tokenPresent=1, pSlotList=nonnull, *pulCount=2)", last("C_GetSlotList"));
    // The mechanism list makes its second call even for an empty list.
    TestModule.script("C_GetMechanismList", 0, null, -1, 0, null);
    TestModule.script("C_GetMechanismList", 0, null, -1, 0, null);
    assertArrayEquals(new long[0], p11.C_GetMechanismList(1));
    assertEquals(2, callsOf("C_GetMechanismList").size());
    assertArrayEquals(p11.C_GetMechanismList(1), p11.C_GetMechanismList(1));
  }

  @Test
  void signaturesStartWith512BytesAndRetryWithTheReportedLength() throws Exception {
    TestModule.script("C_Sign", 0x150, null, 600, -1, null);
    TestModule.script("C_Sign", 0, new byte[600], 600, -1, null);
    assertEquals(600, p11.C_Sign(1, DATA).length);
    List<String> calls = callsOf("C_Sign");
    assertEquals(2, calls.size());
    assertTrue(calls.get(0).endsWith("*pulSignatureLen=512)"), calls.get(0));
    assertTrue(calls.get(1).endsWith("*pulSignatureLen=600)"), calls.get(1));
    TestModule.clearCalls();
    TestModule.script("C_Sign", 0, new byte[512], 512, -1, null);
    assertEquals(512, p11.C_Sign(1, DATA).length, "a 4096-bit signature takes one call");
    assertEquals(1, callsOf("C_Sign").size());
  }

  static Stream<Arguments> fixedBuffers() {
    return Stream.of(Arguments.of("C_Encrypt", "pulEncryptedDataLen", 260, (Call) p -> p.C_Encrypt(1, DATA)),
        Arguments.of("C_Decrypt", "pulDataLen", 260, (Call) p -> p.C_Decrypt(1, DATA)),
        Arguments.of("C_Digest", "pulDigestLen", 65, (Call) p -> p.C_Digest(1, DATA)));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("fixedBuffers")
  void singlePartOperationsUseAFixedBuffer(String function, String length, int size, Call call) throws Exception {
    TestModule.script(function, 0, bytes("aabb"), 2, -1, null);
    assertEquals("aabb", hex((byte[]) call.run(p11)));
    assertEquals(String.valueOf(size), lastArg(function, length));
    assertEquals(1, callsOf(function).size());
    // A longer result is the module's error: no second try.
    TestModule.script(function, 0x150, null, size + 1, -1, null);
    assertEquals(0x150, assertThrows(PKCS11Exception.class, () -> call.run(p11)).getErrorCode());
    assertEquals(2, callsOf(function).size());
  }

  @Test
  void findObjectsReturnsWhatWasFoundUpToTheMaximum() throws Exception {
    TestModule.script("C_FindObjects", 0, null, -1, 2, new long[] {7, 8});
    assertArrayEquals(new long[] {7, 8}, p11.C_FindObjects(1, 3));
    assertEquals("C_FindObjects(hSession=1, phObject=nonnull, ulMaxObjectCount=3, pulObjectCount=nonnull)",
        last("C_FindObjects"));
    TestModule.script("C_FindObjects", 0, null, -1, 0, null);
    assertArrayEquals(new long[0], p11.C_FindObjects(1, 0));
    assertTrue(last("C_FindObjects").contains("ulMaxObjectCount=0"), last("C_FindObjects"));
  }

  @Test
  void randomBytesComeInTheRequestedLength() throws Exception {
    TestModule.script("C_GenerateRandom", 0, bytes("0102030405060708"), -1, -1, null);
    assertEquals("0102030405060708", hex(p11.C_GenerateRandom(1, 8)));
    assertEquals("C_GenerateRandom(hSession=1, RandomData=[0000000000000000], ulRandomLen=8)",
        last("C_GenerateRandom"));
  }

  @Test
  void pinsAndLabelsTravelAsOneBytePerCharacter() throws Exception {
    for (String f : new String[] {"C_InitToken", "C_Login", "C_InitPIN", "C_SetPIN"}) {
      TestModule.script(f, 0);
    }
    p11.C_InitToken(1, "5678".toCharArray(), "Token".toCharArray());
    assertEquals("C_InitToken(slotID=1, pPin=[35363738], ulPinLen=4, pLabel=[546f6b656e"
        + "20".repeat(27) + "])", last("C_InitToken"));
    p11.C_Login(3, CKU_SO, "\u0131234".toCharArray());
    assertEquals("C_Login(hSession=3, userType=0, pPin=[31323334], ulPinLen=4)", last("C_Login"));
    p11.C_InitPIN(3, "0000".toCharArray());
    assertEquals("C_InitPIN(hSession=3, pPin=[30303030], ulPinLen=4)", last("C_InitPIN"));
    p11.C_SetPIN(3, "12".toCharArray(), "345".toCharArray());
    assertEquals("C_SetPIN(hSession=3, pOldPin=[3132], ulOldLen=2, pNewPin=[333435], ulNewLen=3)", last("C_SetPIN"));
  }

  @Test
  void initializationArgumentsCarryFlagsButNoMutexCallbacks() throws Exception {
    TestModule.reset();
    TestModule.script("C_Initialize", 0);
    p11.C_Initialize(null);
    assertEquals("C_Initialize(pInitArgs=null)", last("C_Initialize"));
    TestModule.script("C_Initialize", 0);
    p11.C_Initialize(new CK_C_INITIALIZE_ARGS(0x2));
    String text = last("C_Initialize");
    assertTrue(text.contains("flags=0x2"), text);
    assertTrue(text.contains("CreateMutex=null"), text);
  }

  @Test
  void sessionsOpenWithoutApplicationOrCallback() throws Exception {
    long session = p11.C_OpenSession(1, CKF_SERIAL_SESSION, "app", new Object());
    assertEquals("C_OpenSession(slotID=1, flags=0x4, pApplication=null, Notify=null, phSession=nonnull)",
        last("C_OpenSession"));
    assertEquals(session, p11.C_GetSessionInfo(session).slotID == 1 ? session : -1);
    p11.C_CloseSession(session);
  }

  @Test
  void slotEventsReportTheSlot() throws Exception {
    TestModule.slotEvent(2);
    assertEquals(2, p11.C_WaitForSlotEvent(0));
    assertEquals("C_WaitForSlotEvent(flags=0x0, pSlot=nonnull, pReserved=null)", last("C_WaitForSlotEvent"));
  }

  @Test
  void attributeValuesAreReadInTwoPasses() throws Exception {
    long session = p11.C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null);
    long object = p11.C_CreateObject(session, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(0x0, 0L),
        new CK_ATTRIBUTE(0x3, "note".toCharArray()), new CK_ATTRIBUTE(0x11, new byte[] {1, 2, 3})});
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(0x11, "ignored".toCharArray()), new CK_ATTRIBUTE(0x3)};
    p11.C_GetAttributeValue(session, object, template);
    assertArrayEquals(new byte[] {1, 2, 3}, (byte[]) template[0].pValue);
    assertArrayEquals("note".toCharArray(), (char[]) template[1].pValue);
    List<String> calls = callsOf("C_GetAttributeValue");
    assertEquals(2, calls.size());
    assertTrue(calls.get(0).contains("{type=0x11, pValue=null, ulValueLen=0}"), calls.get(0));
    assertTrue(calls.get(1).contains("{type=0x11, pValue=[000000], ulValueLen=3}"), calls.get(1));
  }

  @Test
  void sensitiveAttributesStillFillTheOthers() throws Exception {
    TestModule.script("C_GetAttributeValue", 0x11, null, -1, -1, new long[] {0xFFFFFFFFL, 2});
    TestModule.script("C_GetAttributeValue", 0x11, bytes("abcd"), -1, -1, new long[] {0xFFFFFFFFL, 2});
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(0x123), new CK_ATTRIBUTE(0x102)};
    assertEquals(0x11, assertThrows(PKCS11Exception.class, () -> p11.C_GetAttributeValue(1, 2, template))
        .getErrorCode());
    assertEquals(null, template[0].pValue);
    assertArrayEquals(bytes("abcd"), (byte[]) template[1].pValue);
  }

  @Test
  void manyCallsKeepTheLocalReferenceTableFlat() throws Exception {
    // -Xcheck:jni reports a native that leaves local references behind.
    CK_ATTRIBUTE[] big = new CK_ATTRIBUTE[200];
    for (int i = 0; i < big.length; i++) {
      big[i] = new CK_ATTRIBUTE(0x11, new byte[] {(byte) i});
    }
    for (int i = 0; i < 50; i++) {
      TestModule.script("C_CreateObject", 0);
      p11.C_CreateObject(1, big);
    }
    long[] lengths = new long[200];
    java.util.Arrays.fill(lengths, 1);
    TestModule.script("C_GetAttributeValue", 0, null, -1, -1, lengths);
    TestModule.script("C_GetAttributeValue", 0, bytes("01"), -1, -1, lengths);
    p11.C_GetAttributeValue(1, 2, big);
    assertArrayEquals(bytes("01"), (byte[]) big[199].pValue);
  }
}
