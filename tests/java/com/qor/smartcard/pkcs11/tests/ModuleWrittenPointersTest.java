package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/**
 * A nested template (CKA_WRAP_TEMPLATE, CKA_UNWRAP_TEMPLATE) comes back from
 * the module as records the module wrote, pointers included. In the calling
 * process that module is the client proxy, so those bytes are the peer's:
 * the bridge must never read through a pointer it did not hand out.
 */
class ModuleWrittenPointersTest {
  /** Records the module announces: enough that its bytes cover a whole one. */
  private static final int RECORDS = 16;
  private static Pkcs11 p11;

  @BeforeAll
  static void connect() throws Exception {
    p11 = Fixture.direct("written-pointers");
  }

  @BeforeEach
  void freshModule() {
    TestModule.resetReady();
  }

  /** One packed CK_ATTRIBUTE record of this build pointing at `address`. */
  private static byte[] record(long type, long address, long length) {
    ByteBuffer b = ByteBuffer.allocate(8 + Fixture.P).order(ByteOrder.LITTLE_ENDIAN);
    b.putInt((int) type);
    if (Fixture.P == 8) {
      b.putLong(address);
    } else {
      b.putInt((int) address);
    }
    b.putInt((int) length);
    return b.array();
  }

  private static void expectNestedValueDropped(long templateType) throws Exception {
    // The size query learns RECORDS records; the second call gets a record
    // whose value pointer is an address nothing in this process handed out.
    TestModule.script("C_GetAttributeValue", 0, null, -1, -1, new long[] {RECORDS});
    TestModule.script("C_GetAttributeValue", 0, record(CKA_VALUE, 0x10, 4096), -1, -1, null);
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(templateType)};
    p11.C_GetAttributeValue(1, 2, template);

    CK_ATTRIBUTE[] nested = assertInstanceOf(CK_ATTRIBUTE[].class, template[0].pValue);
    assertEquals(RECORDS, nested.length);
    assertEquals(CKA_VALUE, nested[0].type);
    assertNull(nested[0].pValue, "a value behind a pointer the module wrote");
  }

  @Test
  void wrapTemplateValuesAreNotReadThroughModulePointers() throws Exception {
    expectNestedValueDropped(CKA_WRAP_TEMPLATE);
  }

  @Test
  void unwrapTemplateValuesAreNotReadThroughModulePointers() throws Exception {
    expectNestedValueDropped(CKA_UNWRAP_TEMPLATE);
  }
  /** Records whose bytes (12 each on 32 bits) pass 2^32: the product wraps there. */
  private static final long WRAPPING_RECORDS = 0x15555556L;

  @Test
  void aNestedTemplateTooLargeToAddressIsRefusedNotWrapped() throws Exception {
    assumeTrue(Fixture.P == 4, "the byte count only wraps where size_t has 32 bits");
    TestModule.script("C_GetAttributeValue", 0, null, -1, -1, new long[] {WRAPPING_RECORDS});
    TestModule.script("C_GetAttributeValue", 0, record(CKA_VALUE, 0, 4), -1, -1, null);
    CK_ATTRIBUTE[] template = {new CK_ATTRIBUTE(CKA_WRAP_TEMPLATE)};
    assertThrows(OutOfMemoryError.class, () -> p11.C_GetAttributeValue(1, 2, template));
  }

  /** An array whose element type CK_ATTRIBUTE itself cannot be stored in. */
  private static final class NarrowAttribute extends CK_ATTRIBUTE {
    NarrowAttribute(long type) {
      super(type);
    }
  }

  @Test
  void aResultTheArrayCannotHoldStopsAtTheFirstStore() {
    CK_ATTRIBUTE[] template = new NarrowAttribute[] {new NarrowAttribute(CKA_VALUE), new NarrowAttribute(CKA_VALUE)};
    // Any JNI call made with the exception pending fails the run under -Xcheck:jni.
    assertThrows(ArrayStoreException.class, () -> p11.C_GetAttributeValue(1, 2, template));
  }
}
