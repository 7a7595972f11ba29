package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static com.qor.smartcard.pkcs11.tests.Fixture.bytes;
import static com.qor.smartcard.pkcs11.tests.Fixture.lastArg;
import static com.qor.smartcard.pkcs11.tests.Fixture.ulong;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_DATE;
import com.qor.smartcard.pkcs11.CK_INFO;
import com.qor.smartcard.pkcs11.CK_MECHANISM_INFO;
import com.qor.smartcard.pkcs11.CK_SESSION_INFO;
import com.qor.smartcard.pkcs11.CK_SLOT_INFO;
import com.qor.smartcard.pkcs11.CK_TOKEN_INFO;
import com.qor.smartcard.pkcs11.PKCS11RuntimeException;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.function.Consumer;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

/** Java values to native PKCS#11 values and back, as the module sees them. */
class ConversionTest {

  private static Pkcs11 p11;

  @BeforeAll
  static void connect() throws Exception {
    p11 = Fixture.direct("conversions");
  }

  @BeforeEach
  void freshModule() {
    TestModule.resetReady();
  }

  /** The template of one C_CreateObject as the module received it. */
  private static String sent(CK_ATTRIBUTE... template) throws Exception {
    TestModule.script("C_CreateObject", 0);
    p11.C_CreateObject(1, template);
    return lastArg("C_CreateObject", "pTemplate");
  }

  static Stream<Arguments> javaValues() {
    return Stream.of(
        // Long before Integer: each keeps its own class, both become CK_ULONG.
        Arguments.of("Long, truncated to 32 bits", 0x1122334455667788L, "[88776655]", 4),
        Arguments.of("Boolean true", true, "[01]", 1),
        Arguments.of("Boolean false", false, "[00]", 1),
        Arguments.of("byte[]", new byte[] {1, 2, (byte) 0xff}, "[0102ff]", 3),
        Arguments.of("char[] narrowed to its low bytes", new char[] {'a', '\u0162'}, "[6162]", 2),
        Arguments.of("Byte", (byte) 0x80, "[80]", 1),
        Arguments.of("CK_DATE", new CK_DATE("20240131"), "[3230323430313331]", 8),
        Arguments.of("Character", 'Z', "[5a]", 1),
        Arguments.of("Integer, sign bits kept", -2, "[feffffff]", 4),
        Arguments.of("boolean[]", new boolean[] {true, false, true}, "[010001]", 3),
        // Arrays of numbers report their element count, as deployed peers expect.
        Arguments.of("int[] read like long[]", new int[] {1, -1}, "[0100]", 2),
        Arguments.of("long[]", new long[] {1, 0x100000002L}, "[0100]", 2),
        Arguments.of("String as UTF-8", "k\u00e9y", "[6bc3a979]", 4),
        Arguments.of("null", null, "null", 0));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("javaValues")
  void attributeValuesReachTheModuleAsNativeBytes(String what, Object value, String pValue, int length)
      throws Exception {
    assertEquals("[{type=0x11, pValue=" + pValue + ", ulValueLen=" + length + "}]",
        sent(new CK_ATTRIBUTE(CKA_VALUE, value)));
  }

  @Test
  void wholeNumberArraysCarryEveryElementAsCK_ULONG() throws Exception {
    // The length counts elements, but the buffer holds all of them: the module
    // reads 4 bytes per element from it.
    TestModule.script("C_CreateObject", 0);
    p11.C_CreateObject(1, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_ALLOWED_MECHANISMS, new long[] {0x1082, 0x250})});
    assertEquals("[{type=0x40000600, pValue=[8210], ulValueLen=2}]", lastArg("C_CreateObject", "pTemplate"));
  }

  @Test
  void nestedTemplatesCountTheirAttributes() throws Exception {
    CK_ATTRIBUTE[] nested = {new CK_ATTRIBUTE(CKA_TOKEN, true), new CK_ATTRIBUTE(CKA_LABEL, "ab".toCharArray()),
        new CK_ATTRIBUTE(CKA_VALUE, new byte[] {1})};
    String text = sent(new CK_ATTRIBUTE(CKA_WRAP_TEMPLATE, nested), new CK_ATTRIBUTE(CKA_UNWRAP_TEMPLATE, nested));
    assertTrue(text.contains("{type=0x40000211, pValue=["), text);
    assertTrue(text.contains("ulValueLen=3}, {type=0x40000212"), text);
    assertTrue(text.endsWith("ulValueLen=3}]"), text);
  }

  @Test
  void templatesMayHoldEveryKindOfValueTogether() throws Exception {
    assertEquals("[{type=0x0, pValue=[04000000], ulValueLen=4}, {type=0x1, pValue=[01], ulValueLen=1}, "
            + "{type=0x3, pValue=[6b6579], ulValueLen=3}, {type=0x102, pValue=[0a0b], ulValueLen=2}]",
        sent(new CK_ATTRIBUTE(CKA_CLASS, 4L), new CK_ATTRIBUTE(CKA_TOKEN, true),
            new CK_ATTRIBUTE(CKA_LABEL, "key".toCharArray()), new CK_ATTRIBUTE(CKA_ID, new byte[] {10, 11})));
  }

  static Stream<Arguments> unconvertibleValues() {
    return Stream.of(Arguments.of(new Object(), "java.lang.Object"), Arguments.of(1.5d, "java.lang.Double"),
        Arguments.of(new StringBuilder("x"), "java.lang.StringBuilder"),
        Arguments.of(new String[] {"a"}, "[Ljava.lang.String;"),
        Arguments.of(new CK_ATTRIBUTE(1, true), "com.qor.smartcard.pkcs11.CK_ATTRIBUTE"));
  }

  @ParameterizedTest(name = "{1}")
  @MethodSource("unconvertibleValues")
  void valuesWithoutANativeFormNameTheirClass(Object value, String className) {
    int before = TestModule.callCount();
    PKCS11RuntimeException e = assertThrows(PKCS11RuntimeException.class,
        () -> p11.C_CreateObject(1, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_TOKEN, true), new CK_ATTRIBUTE(1, value)}));
    assertEquals("Java object of this class cannot be converted to native PKCS#11 type: " + className, e.getMessage());
    assertEquals(before, TestModule.callCount(), "the module must not be called");
  }

  @Test
  void aNestedTemplateMustBeAnAttributeArray() {
    assertThrows(PKCS11RuntimeException.class,
        () -> p11.C_CreateObject(1, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_WRAP_TEMPLATE, new byte[] {1})}));
  }

  @Test
  void aTemplateThatContainsItselfIsRefused() {
    CK_ATTRIBUTE[] loop = new CK_ATTRIBUTE[1];
    loop[0] = new CK_ATTRIBUTE(CKA_WRAP_TEMPLATE, loop);
    assertThrows(PKCS11RuntimeException.class, () -> p11.C_CreateObject(1, loop));
  }

  @Test
  void aNullAttributeInATemplateIsRefused() {
    assertThrows(PKCS11RuntimeException.class, () -> p11.C_CreateObject(1, new CK_ATTRIBUTE[] {null}));
  }

  // ---- native values back to Java -----------------------------------------

  /** Reads one attribute whose value the module answers with `value`. */
  private static Object read(long type, byte[] value, long length) throws Exception {
    TestModule.script("C_GetAttributeValue", 0, null, -1, -1, new long[] {length});
    TestModule.script("C_GetAttributeValue", 0, value, -1, -1, new long[] {length});
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(type)};
    p11.C_GetAttributeValue(1, 2, template);
    assertEquals(type, template[0].type);
    return template[0].pValue;
  }

  static Stream<Arguments> nativeValues() {
    return Stream.of(
        Arguments.of("CKA_CLASS as Long", CKA_CLASS, "03000000", (Consumer<Object>) v -> assertEquals(3L, v)),
        Arguments.of("CKA_MODULUS_BITS zero-extended", CKA_MODULUS_BITS, "ffffffff",
            (Consumer<Object>) v -> assertEquals(0xFFFFFFFFL, v)),
        Arguments.of("CKA_TOKEN 1 is true", CKA_TOKEN, "01", (Consumer<Object>) v -> assertEquals(true, v)),
        Arguments.of("CKA_TOKEN 2 is not true", CKA_TOKEN, "02", (Consumer<Object>) v -> assertEquals(false, v)),
        Arguments.of("CKA_LABEL as char[]", CKA_LABEL, "6869ff",
            (Consumer<Object>) v -> assertArrayEquals(new char[] {'h', 'i', '\u00ff'}, (char[]) v)),
        Arguments.of("CKA_START_DATE as CK_DATE", CKA_START_DATE, "3230323431323331",
            (Consumer<Object>) v -> assertEquals("2024-12-31", v.toString())),
        Arguments.of("CKA_VALUE as byte[]", CKA_VALUE, "0102",
            (Consumer<Object>) v -> assertArrayEquals(bytes("0102"), (byte[]) v)),
        Arguments.of("CKA_ID as byte[]", CKA_ID, "0a", (Consumer<Object>) v -> assertArrayEquals(bytes("0a"), (byte[]) v)),
        Arguments.of("vendor type as byte[]", 0x80000001L, "beef",
            (Consumer<Object>) v -> assertArrayEquals(bytes("beef"), (byte[]) v)),
        Arguments.of("CKA_ALLOWED_MECHANISMS as long[]", CKA_ALLOWED_MECHANISMS, ulong(0x1082) + ulong(0x250),
            (Consumer<Object>) v -> assertArrayEquals(new long[] {0x1082, 0x250}, (long[]) v)));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("nativeValues")
  void attributeValuesComeBackByType(String what, long type, String hex, Consumer<Object> check) throws Exception {
    byte[] value = bytes(hex);
    check.accept(read(type, value, value.length));
  }

  @Test
  void theSecondPassHandsTheModuleZeroedBuffersOfTheAnnouncedLength() throws Exception {
    read(CKA_VALUE, null, 3);
    assertEquals("[{type=0x11, pValue=null, ulValueLen=0}]",
        TestModule.callArg(TestModule.lastCall("C_GetAttributeValue") - 1, "pTemplate"));
    assertEquals("[{type=0x11, pValue=[000000], ulValueLen=3}]", lastArg("C_GetAttributeValue", "pTemplate"));
  }

  @Test
  void emptyValuesComeBackNullWhateverTheirType() throws Exception {
    for (long type : new long[] {CKA_CLASS, CKA_TOKEN, CKA_LABEL, CKA_START_DATE, CKA_VALUE, CKA_WRAP_TEMPLATE}) {
      assertNull(read(type, new byte[0], 0), "type 0x" + Long.toHexString(type));
    }
  }

  @Test
  void unavailableValuesComeBackNull() throws Exception {
    assertNull(read(CKA_VALUE, null, 0xFFFFFFFFL));
  }

  @Test
  void shortFixedSizeValuesAreNotReadPastTheirEnd() throws Exception {
    assertEquals(0x0201L, read(CKA_CLASS, bytes("0102"), 2));
  }

  @Test
  void nestedTemplatesComeBackAsAttributeArrays() throws Exception {
    // One packed record {type 0x3, no value}: the length counts records.
    ByteBuffer record = ByteBuffer.allocate(8 + Fixture.P).order(ByteOrder.LITTLE_ENDIAN).putInt(3);
    Object value = read(CKA_WRAP_TEMPLATE, record.array(), 1);
    CK_ATTRIBUTE[] nested = (CK_ATTRIBUTE[]) value;
    assertEquals(1, nested.length);
    assertEquals(3, nested[0].type);
    assertNull(nested[0].pValue);
  }

  // ---- structures -----------------------------------------------------------

  private static ByteBuffer little(int size) {
    return ByteBuffer.allocate(size).order(ByteOrder.LITTLE_ENDIAN);
  }

  private static byte[] text(String s, int width) {
    byte[] out = new byte[width];
    java.util.Arrays.fill(out, (byte) ' ');
    byte[] b = s.getBytes(java.nio.charset.StandardCharsets.US_ASCII);
    System.arraycopy(b, 0, out, 0, b.length);
    return out;
  }

  @Test
  void infoComesBackFieldByField() throws Exception {
    ByteBuffer info = little(72).put((byte) 2).put((byte) 40).put(text("Maker", 32)).putInt(0x80000001)
        .put(text("Library", 32)).put((byte) 1).put((byte) 7);
    TestModule.script("C_GetInfo", 0, info.array(), -1, -1, null);
    CK_INFO got = p11.C_GetInfo();
    assertEquals("2.40", got.cryptokiVersion.toString());
    assertEquals(32, got.manufacturerID.length);
    assertEquals("Maker", new String(got.manufacturerID).trim());
    assertEquals(0x80000001L, got.flags);
    assertEquals("Library", new String(got.libraryDescription).trim());
    assertEquals("1.7", got.libraryVersion.toString());
  }

  @Test
  void slotInfoComesBackFieldByField() throws Exception {
    ByteBuffer info = little(104).put(text("Slot", 64)).put(text("Maker", 32)).putInt(7).put((byte) 1)
        .put((byte) 2).put((byte) 3).put((byte) 4);
    TestModule.script("C_GetSlotInfo", 0, info.array(), -1, -1, null);
    CK_SLOT_INFO got = p11.C_GetSlotInfo(1);
    assertEquals(64, got.slotDescription.length);
    assertEquals("Slot", new String(got.slotDescription).trim());
    assertEquals(7, got.flags);
    assertEquals("1.2", got.hardwareVersion.toString());
    assertEquals("3.4", got.firmwareVersion.toString());
  }

  @Test
  void tokenInfoComesBackFieldByField() throws Exception {
    ByteBuffer info = little(160).put(text("Label", 32)).put(text("Maker", 32)).put(text("Model", 16))
        .put(text("0001", 16));
    for (int i = 0; i < 11; i++) {
      info.putInt(0xF0000000 + i);
    }
    info.put((byte) 5).put((byte) 6).put((byte) 7).put((byte) 8).put(text("2024123123595900", 16));
    TestModule.script("C_GetTokenInfo", 0, info.array(), -1, -1, null);
    CK_TOKEN_INFO got = p11.C_GetTokenInfo(1);
    assertEquals("Label", new String(got.label).trim());
    assertEquals("Model", new String(got.model).trim());
    assertEquals("0001", new String(got.serialNumber).trim());
    assertEquals(0xF0000000L, got.flags);
    assertEquals(0xF0000001L, got.ulMaxSessionCount);
    assertEquals(0xF0000005L, got.ulMaxPinLen);
    assertEquals(0xF000000AL, got.ulFreePrivateMemory);
    assertEquals("5.6", got.hardwareVersion.toString());
    assertEquals("7.8", got.firmwareVersion.toString());
    assertEquals("2024123123595900", new String(got.utcTime));
  }

  @Test
  void sessionAndMechanismInfoComeBackFieldByField() throws Exception {
    TestModule.script("C_GetSessionInfo", 0, little(16).putInt(1).putInt(3).putInt(6).putInt(-1).array(), -1, -1, null);
    CK_SESSION_INFO session = p11.C_GetSessionInfo(9);
    assertEquals(1, session.slotID);
    assertEquals(3, session.state);
    assertEquals(6, session.flags);
    assertEquals(0xFFFFFFFFL, session.ulDeviceError);
    TestModule.script("C_GetMechanismInfo", 0, little(12).putInt(512).putInt(4096).putInt(0x10800).array(), -1, -1,
        null);
    CK_MECHANISM_INFO mechanism = p11.C_GetMechanismInfo(1, 0x1);
    assertEquals(512, mechanism.ulMinKeySize);
    assertEquals(4096, mechanism.ulMaxKeySize);
    assertEquals(0x10800, mechanism.flags);
    assertEquals("C_GetMechanismInfo(slotID=1, type=0x1, pInfo=[" + "00".repeat(12) + "])",
        Fixture.last("C_GetMechanismInfo"));
  }
}
