package com.qor.smartcard.pkcs11.e2e;

import com.qor.smartcard.pkcs11.Pkcs11;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStreamWriter;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * A serving JVM started by the test (so the test can kill and restart it):
 * the bridge served under this test's socket name. The token comes from the
 * SOFTHSM2_CONF of the environment, which the child inherits.
 */
final class ServerProcess {
  static final String BRIDGE = System.getProperty("qor.bridge");
  static final String SOCKET = System.getProperty("qor.socket");
  private static final String CLASSPATH = System.getProperty("qor.classpath");
  private static final String LIBRARY = System.getProperty(Pkcs11.LIBRARY_PATH_PROPERTY);
  private static final String WORK_DIR = System.getProperty("qor.workdir");

  private final Process process;
  private final BufferedReader out;
  private final Writer in;

  private ServerProcess(Process process) {
    this.process = process;
    this.out = new BufferedReader(new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8));
    this.in = new OutputStreamWriter(process.getOutputStream(), StandardCharsets.UTF_8);
  }

  static ServerProcess start() throws IOException {
    List<String> command = new ArrayList<>();
    command.add(Paths.get(System.getProperty("java.home"), "bin", "java").toString());
    command.add("-Xcheck:jni");
    // A crash the tests provoke leaves its report in the temp dir, no core.
    command.add("-XX:ErrorFile=" + WORK_DIR + "/hs_err_%p.log");
    command.add("-XX:-CreateCoredumpOnCrash");
    command.add("-D" + Pkcs11.LIBRARY_PATH_PROPERTY + "=" + LIBRARY);
    command.add("-cp");
    command.add(CLASSPATH);
    command.add(ServingProcess.class.getName());
    command.add(BRIDGE);
    command.add(SOCKET);
    Process p = new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.INHERIT).start();
    ServerProcess server = new ServerProcess(p);
    String first = server.out.readLine();
    if (!"ready".equals(first)) {
      p.destroyForcibly();
      throw new IOException("the serving JVM did not start: " + first);
    }
    return server;
  }

  /** The server's usage stamp, read in the server's own JVM. */
  long usageStamp() throws IOException {
    in.write("stamp\n");
    in.flush();
    return Long.parseLong(out.readLine());
  }

  boolean exited(int seconds) throws InterruptedException {
    return process.waitFor(seconds, TimeUnit.SECONDS);
  }

  void kill() {
    process.destroyForcibly();
    try {
      process.waitFor();
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
