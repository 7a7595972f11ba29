package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.tests.Fixture.GETTER;
import static com.qor.smartcard.pkcs11.tests.Fixture.MODULE;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qor.smartcard.adapter.SandboxedProcessUsageStatistics;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.PKCS11RuntimeException;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.io.IOException;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** initializeLibrary, finalizeLibrary, connect and disconnect in this process. */
class LifecycleTest {
  @BeforeAll
  static void load() {
    Fixture.loadModule();
  }

  @BeforeEach
  void noRegistry() {
    // Every test starts as a freshly loaded library: no lock, no modules.
    new Pkcs11().finalizeLibrary();
    TestModule.resetReady();
  }

  private static void assertUnconnected(Pkcs11 p11) {
    PKCS11RuntimeException e = assertThrows(PKCS11RuntimeException.class, p11::C_GetInfo);
    assertEquals("This object is not connected to a module.", e.getMessage());
  }

  @Test
  void connectBeforeInitializeLibraryLeavesTheObjectUnconnected() throws Exception {
    Pkcs11 p11 = new Pkcs11();
    p11.connect(MODULE, GETTER, "early", Pkcs11.MODE_CLIENT);
    assertUnconnected(p11);
    p11.initializeLibrary();
    assertUnconnected(p11);
    p11.connect(MODULE, GETTER, "early", Pkcs11.MODE_CLIENT);
    assertNotNull(p11.C_GetInfo());
  }

  @Test
  void disconnectUnbindsOnlyItsOwnObject() throws Exception {
    Pkcs11 first = Fixture.direct("first");
    Pkcs11 second = Fixture.direct("second");
    first.disconnect();
    assertUnconnected(first);
    assertNotNull(second.C_GetInfo());
    first.disconnect();  // a second disconnect is harmless
    second.disconnect();
    assertUnconnected(second);
  }

  @Test
  void aRepeatedConnectReplacesTheBinding() throws Exception {
    Pkcs11 p11 = Fixture.direct("again");
    for (int i = 0; i < 5; i++) {
      p11.connect(MODULE, GETTER, "again-" + i, Pkcs11.MODE_CLIENT);
      assertNotNull(p11.C_GetInfo());
    }
    // One binding, not a stack of them: one disconnect ends it.
    p11.disconnect();
    assertUnconnected(p11);
  }

  @Test
  void finalizeLibraryUnbindsEveryObjectAndAllowsAFreshStart() throws Exception {
    Pkcs11 a = Fixture.direct("a");
    Pkcs11 b = Fixture.direct("b");
    a.finalizeLibrary();
    assertUnconnected(a);
    assertUnconnected(b);
    // Without a registry, connect loads but binds nothing ...
    a.connect(MODULE, GETTER, "a", Pkcs11.MODE_CLIENT);
    assertUnconnected(a);
    // ... until a new initializeLibrary.
    a.initializeLibrary();
    a.initializeLibrary();
    a.connect(MODULE, GETTER, "a", Pkcs11.MODE_CLIENT);
    assertNotNull(a.C_GetInfo());
  }

  @Test
  void loaderFailuresAreIOExceptionsWithTheLoadersMessage() throws Exception {
    Pkcs11 p11 = new Pkcs11();
    p11.initializeLibrary();
    IOException missing = assertThrows(IOException.class,
        () -> p11.connect("/nonexistent/libnothing.so", GETTER, "x", Pkcs11.MODE_CLIENT));
    assertTrue(missing.getMessage().contains("/nonexistent/libnothing.so"), missing.getMessage());
    IOException noGetter = assertThrows(IOException.class,
        () -> p11.connect(MODULE, "C_NoSuchGetter", "x", Pkcs11.MODE_CLIENT));
    assertTrue(noGetter.getMessage().contains("C_NoSuchGetter"), noGetter.getMessage());
    assertThrows(IOException.class, () -> p11.connect(null, GETTER, "x", Pkcs11.MODE_CLIENT));
    assertThrows(IOException.class, () -> p11.connect(MODULE, null, "x", Pkcs11.MODE_CLIENT));
    assertUnconnected(p11);
  }

  @Test
  void aFailingGetterThrowsButLeavesTheModuleBound() throws Exception {
    Pkcs11 p11 = new Pkcs11();
    p11.initializeLibrary();
    // A getter stand-in that answers a nonzero code and writes no list: the
    // module's own call counter, made nonzero first.
    TestModule.script("C_Finalize", 0);
    Fixture.direct("probe").C_Finalize(null);
    PKCS11Exception e = assertThrows(PKCS11Exception.class,
        () -> p11.connect(MODULE, "qortm_call_count", "broken", Pkcs11.MODE_CLIENT));
    assertEquals(TestModule.callCount(), e.getErrorCode());
    // Bound, but without functions: calls fail instead of faulting.
    assertEquals(0x6, assertThrows(PKCS11Exception.class, p11::C_GetInfo).getErrorCode());
    p11.disconnect();
    assertUnconnected(p11);
  }

  @Test
  void noServerMeansNoUsageYet() {
    assertEquals(0, new SandboxedProcessUsageStatistics().native_getLastUsageTime());
  }
}
