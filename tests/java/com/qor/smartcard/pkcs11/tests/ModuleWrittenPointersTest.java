package com.qor.smartcard.pkcs11.tests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;

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
  private static final long CKA_VALUE = 0x11;
  private static final long CKA_WRAP_TEMPLATE = 0x40000211L;
  private static final long CKA_UNWRAP_TEMPLATE = 0x40000212L;
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
}
