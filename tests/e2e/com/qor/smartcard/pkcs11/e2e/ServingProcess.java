package com.qor.smartcard.pkcs11.e2e;

import com.qor.smartcard.adapter.SandboxedProcessUsageStatistics;
import com.qor.smartcard.pkcs11.PeerAccess;
import com.qor.smartcard.pkcs11.Pkcs11;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;

/**
 * The serving process of the end-to-end tests: serves the module named by
 * its first argument under the socket name of its second, says "ready" once
 * its server thread listens and then answers one line per command read from
 * standard input ("stamp": the usage stamp of the last reply) until its
 * input ends. With the system property qor.resetOnDisconnect=true, a client
 * that goes without C_Finalize leaves the module finalized.
 */
public final class ServingProcess {
  private ServingProcess() {}

  public static void main(String[] args) throws Exception {
    Pkcs11 server = new Pkcs11();
    server.initializeLibrary();
    if (Boolean.getBoolean("qor.resetOnDisconnect")) {
      PeerAccess.setResetOnDisconnect(true);
    }
    server.connect(args[0], "C_GetFunctionList", args[1], Pkcs11.MODE_SERVER);
    SandboxedProcessUsageStatistics usage = new SandboxedProcessUsageStatistics();
    int listening = PeerAccess.awaitListening(10000);
    System.out.println(listening == PeerAccess.LISTENING ? "ready" : "not listening: " + listening);
    System.out.flush();
    BufferedReader in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
    for (String line; (line = in.readLine()) != null; ) {
      if (line.equals("stamp")) {
        System.out.println(usage.native_getLastUsageTime());
      } else {
        System.out.println("unknown command " + line);
      }
      System.out.flush();
    }
    // The transport thread never stops: end the process outright.
    System.exit(0);
  }
}
