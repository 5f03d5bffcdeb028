package com.quor.cs;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assertions.fail;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

// A customer in Java over a private XMPP server, against the desk program quor-cs-desk. The test
// command names the programs: QUOR_CS_SERVER_PROGRAM and QUOR_CS_DESK_PROGRAM.
public class XmppTest {
  private Process server;
  private Process desk;
  private int port;
  private java.nio.file.Path deskState;

  private static String program(String name) {
    String path = System.getenv(name);
    if (path == null) fail(name + " is not set (the test command sets it)");
    return path;
  }

  // Starts the process and returns the first line of `stream` that contains `marker`.
  private static String lineWith(Process process, boolean stderr, String marker) throws Exception {
    BufferedReader reader = new BufferedReader(new InputStreamReader(
        stderr ? process.getErrorStream() : process.getInputStream(), StandardCharsets.UTF_8));
    for (String line; (line = reader.readLine()) != null;) {
      if (line.contains(marker)) return line;
    }
    fail("no \"" + marker + "\" from " + process);
    return null;
  }

  @BeforeEach
  public void startServerAndDesk() throws Exception {
    server = new ProcessBuilder(program("QUOR_CS_SERVER_PROGRAM"), "--account", "mei:mei-pw",
        "--account", "shop:shop-pw").redirectError(ProcessBuilder.Redirect.INHERIT).start();
    port = Integer.parseInt(lineWith(server, false, "quor-cs-server: port ").split(" ")[2]);
    deskState = java.nio.file.Files.createTempDirectory("quor-cs-desk");
    ProcessBuilder deskProgram = new ProcessBuilder(program("QUOR_CS_DESK_PROGRAM"), "--jid",
        "shop@localhost", "--state", deskState.resolve("desk.sqlite").toString(), "--server",
        "127.0.0.1", "--port", String.valueOf(port));
    deskProgram.environment().put("QUOR_CS_DESK_PASSWORD", "shop-pw");
    desk = deskProgram.start();
    lineWith(desk, true, "serving as");
  }

  @AfterEach
  public void stop() throws Exception {
    if (desk != null) {
      desk.destroy();
      desk.waitFor(30, TimeUnit.SECONDS);
    }
    if (server != null) {
      server.getOutputStream().close();  // the server stops and removes its directory
      server.waitFor(30, TimeUnit.SECONDS);
    }
    if (deskState != null) {
      try (java.util.stream.Stream<java.nio.file.Path> files = java.nio.file.Files.walk(deskState)) {
        files.sorted(java.util.Comparator.reverseOrder()).map(java.nio.file.Path::toFile)
            .forEach(java.io.File::delete);
      }
    }
  }

  @Test
  public void aCustomerOverXmppReachesTheRobotAndAnAgent() {
    try (XmppHost host = new XmppHost(
             new XmppHost.Options("mei@localhost", "mei-pw").server("127.0.0.1").port(port))) {
      host.connect();
      assertTrue(host.waitOnline(10_000));
      assertEquals(XmppStatus.CONNECTED, host.status());
      Screen screen = new Screen();
      try (Service service = new Service("shop", screen)) {
        service.start(new Customer().userInfo("userId", "mei").userInfo("name", "Mei"), 15_000);
        host.settle(300);
        assertEquals(State.ROBOT, screen.last.state);
        service.sendText("Where is my order?");
        host.settle(300);
        service.askForAgent();
        host.settle(300);
        service.chooseGroup("sales");
        host.settle(300);
        assertEquals(State.AGENT, screen.last.state);
        // What an app opened again would show, kept by the host.
        assertEquals(State.AGENT, host.lastServiceState("shop"));
      }
      assertTrue(screen.lines.contains(
          "ROBOT: Orders ship within 24 hours; you can follow yours under Me > Orders."));
      assertTrue(screen.lines.contains("AGENT: Hello, this is Kai from Sales. How can I help?"));
      assertTrue(host.history("shop", 0, 50).contains("Where is my order?"));
      host.logout();
    }
  }
}
