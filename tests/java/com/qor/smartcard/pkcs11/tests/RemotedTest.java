package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;
import static com.qor.smartcard.pkcs11.tests.Fixture.GETTER;
import static com.qor.smartcard.pkcs11.tests.Fixture.MODULE;
import static com.qor.smartcard.pkcs11.tests.Fixture.SOCKET;
import static com.qor.smartcard.pkcs11.tests.Fixture.hex;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qor.smartcard.adapter.SandboxedProcessUsageStatistics;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.PKCS11RuntimeException;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.pkcs11.RemoteClient;
import com.qor.smartcard.testmodule.TestModule;
import java.util.List;
import java.util.Map;
import java.util.Set;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.MethodOrderer.OrderAnnotation;
import org.junit.jupiter.api.Order;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestMethodOrder;

/**
 * The Java binding remoted: a client object that connected this library
 * itself calls through the client proxies, the socket and the server to the
 * test module, which a server object in the same process connected first.
 * The registry keeps the two roles apart: the server resolves its module by
 * name and finds the oldest registration under it, the vendor module, while
 * the client object's own binding holds the proxies.
 */
@TestMethodOrder(OrderAnnotation.class)
class RemotedTest {
  private static Pkcs11 server;
  private static Pkcs11 client;
  private static Pkcs11 twin;

  @BeforeAll
  static void startBothRoles() throws Exception {
    Fixture.loadModule();
    server = new Pkcs11();
    server.initializeLibrary();
    server.connect(MODULE, GETTER, SOCKET, Pkcs11.MODE_SERVER);
    client = RemoteClient.connect(SOCKET, 100, 50);
    twin = Fixture.direct("twin");
  }

  /**
   * Results that differ from a direct call because of how deployed peers
   * carry them, kept on the wire as they are: the slot of a slot event does
   * not travel back; the server verifies a single-part signature against a
   * buffer it never fills; a final part of length 0 is produced by the length
   * query itself, so the fetch finds the operation ended.
   */
  private static final Map<String, String> WIRE_RESULTS = Map.of(
      "C_WaitForSlotEvent", "0",
      "C_Verify", "rv=0xc0",
      "C_EncryptFinal", "rv=0x91",
      "C_DecryptFinal", "rv=0x91");

  private static int callsOf(String function) {
    int n = 0;
    for (int i = 0; i < TestModule.callCount(); i++) {
      n += function.equals(TestModule.callName(i)) ? 1 : 0;
    }
    return n;
  }

  @Test
  @Order(1)
  void aRemotedCallReachesTheModuleExactlyOnce() throws Exception {
    TestModule.resetReady();
    assertEquals(twin.C_GetInfo().cryptokiVersion.toString(), client.C_GetInfo().cryptokiVersion.toString());
    assertEquals(2, callsOf("C_GetInfo"), "one direct call and one through the server");
    // The server stamps a reply once it is sent, so the caller may read the
    // reply before the stamp is there.
    long stamp = 0;
    for (int i = 0; i < 200 && stamp <= 0; i++) {
      stamp = new SandboxedProcessUsageStatistics().native_getLastUsageTime();
      if (stamp <= 0) {
        Thread.sleep(10);
      }
    }
    assertTrue(stamp > 0, "the server stamps every reply");
  }

  @Test
  @Order(2)
  void everyFunctionTheWireCarriesGivesWhatTheDirectCallGives() {
    List<Scenario.Outcome> direct = new Scenario(twin).run();
    List<Scenario.Outcome> remoted = new Scenario(client).run();
    assertEquals(direct.size(), remoted.size());
    // The module refuses the legacy parallel functions either way.
    Set<String> refused = Set.of("C_GetFunctionStatus", "C_CancelFunction");
    StringBuilder differences = new StringBuilder();
    for (int i = 0; i < direct.size(); i++) {
      Scenario.Outcome d = direct.get(i);
      String kept = WIRE_RESULTS.get(d.step());
      if (kept != null) {
        assertEquals(new Scenario.Outcome(d.step(), kept), remoted.get(i));
      } else if (!d.equals(remoted.get(i))) {
        differences.append("\n  direct:  ").append(d).append("\n  remoted: ").append(remoted.get(i));
      }
      assertEquals(refused.contains(d.step()), d.result().startsWith("rv="), d.toString());
      assertTrue(!d.result().contains("Exception"), d.toString());
    }
    assertEquals("", differences.toString());
  }

  @Test
  @Order(3)
  void lengthQueriesWorkThroughTheProxies() throws Exception {
    TestModule.resetReady();
    // The module answers the size query with CKR_BUFFER_TOO_SMALL and the
    // length; the proxy turns that into CKR_OK so the native can fetch.
    TestModule.script("C_EncryptUpdate", 0x150, null, 5, -1, null);
    TestModule.script("C_EncryptUpdate", 0, Fixture.bytes("0102030405"), 5, -1, null);
    assertEquals("0102030405", hex(client.C_EncryptUpdate(1, new byte[] {9})));
    assertEquals(2, callsOf("C_EncryptUpdate"));
    TestModule.script("C_SignFinal", 0, null, 3, -1, null);
    TestModule.script("C_SignFinal", 0, Fixture.bytes("0a0b0c"), 3, -1, null);
    assertEquals("0a0b0c", hex(client.C_SignFinal(1)));
  }

  @Test
  @Order(4)
  void errorsOfTheModuleComeBackWithTheirCode() {
    TestModule.resetReady();
    TestModule.script("C_Login", 0xA0);
    assertEquals(0xA0, assertThrows(PKCS11Exception.class,
        () -> client.C_Login(1, CKU_USER, "0000".toCharArray())).getErrorCode());
  }

  @Test
  @Order(5)
  void sessionInfoRequestsCarryNoSessionHandle() {
    TestModule.resetReady();
    // Deployed servers answer C_GetSessionInfo for handle 0 whatever the
    // caller asked: the request travels without it.
    TestModule.script("C_GetSessionInfo", 0);
    assertEquals(0, new CkSessionProbe().slotOf(client, 7));
    assertTrue(Fixture.last("C_GetSessionInfo").startsWith("C_GetSessionInfo(hSession=0,"),
        Fixture.last("C_GetSessionInfo"));
  }

  @Test
  @Order(6)
  void pinChangesAreNotServedUnderTheNamesTheProxiesSend() throws Exception {
    TestModule.resetReady();
    assertEquals(0xFFFFFFFFL, assertThrows(PKCS11Exception.class,
        () -> client.C_InitPIN(1, "1234".toCharArray())).getErrorCode());
    assertEquals(0xFFFFFFFFL, assertThrows(PKCS11Exception.class,
        () -> client.C_SetPIN(1, "1234".toCharArray(), "4321".toCharArray())).getErrorCode());
    assertEquals(0, callsOf("C_InitPIN") + callsOf("C_SetPIN"));
  }

  @Test
  @Order(7)
  void disconnectClosesTheTransportAndAReconnectOpensIt() throws Exception {
    client.disconnect();
    assertThrows(PKCS11RuntimeException.class, client::C_GetInfo);
    Pkcs11 again = RemoteClient.connect(SOCKET, 100, 50);
    TestModule.resetReady();
    assertEquals(twin.C_GetTokenInfo(1).toString(), again.C_GetTokenInfo(1).toString());
    // Without a module name no transport starts: the proxies cannot answer.
    again.disconnect();
    Pkcs11 nameless = new Pkcs11();
    nameless.connect(Pkcs11.WRAPPER_LIBRARY, GETTER, null, Pkcs11.MODE_CLIENT);
    assertEquals(0xFFFFFFFFL, assertThrows(PKCS11Exception.class, nameless::C_GetInfo).getErrorCode());
    // Nor does connecting another library under the server's name.
    Pkcs11 other = new Pkcs11();
    other.connect(MODULE, GETTER, SOCKET, Pkcs11.MODE_CLIENT);
    assertEquals(0xFFFFFFFFL, assertThrows(PKCS11Exception.class, nameless::C_GetInfo).getErrorCode());
  }

  /** C_GetSessionInfo's slot, or the error code when it fails. */
  private static final class CkSessionProbe {
    long slotOf(Pkcs11 p11, long session) {
      try {
        return p11.C_GetSessionInfo(session).slotID;
      } catch (PKCS11Exception e) {
        return e.getErrorCode();
      }
    }
  }
}
