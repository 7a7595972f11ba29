package com.qor.smartcard.demo;

import com.qor.smartcard.pkcs11.Pkcs11;

/**
 * The serving process of the demo: loads the vendor module (args[0], the
 * bridge in front of SoftHSM2) and serves it under the socket name args[1]
 * until it is killed.
 */
public final class DemoServer {
  private DemoServer() {}

  public static void main(String[] args) throws Exception {
    Pkcs11 server = new Pkcs11();
    server.initializeLibrary();
    server.connect(args[0], "C_GetFunctionList", args[1], Pkcs11.MODE_SERVER);
    System.out.println("server: serving " + args[0] + " as " + args[1]);
    System.out.flush();
    // The transport thread serves every request; this thread only waits.
    Thread.sleep(Long.MAX_VALUE);
  }
}
