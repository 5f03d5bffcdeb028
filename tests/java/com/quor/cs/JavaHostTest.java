package com.quor.cs;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicLong;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

// An IM core written in Java carries the library: the host's duties seen from Java. Sends are
// completed once, in order, with ids and times; a failed send's code reaches the line; the
// library holds its answers and signals; messages kept offline come with their flag.
public class JavaHostTest {
  // The core: a "server" queue that confirms sends, a desk that answers, a store, a screen.
  static final class Core implements Host {
    final ConcurrentLinkedQueue<Object[]> outgoing = new ConcurrentLinkedQueue<>();
    final List<String> deskGot = new ArrayList<>();
    final List<String> shown = new ArrayList<>();
    final AtomicLong ids = new AtomicLong(1);
    final AtomicLong clock = new AtomicLong(1000);
    volatile long failNext;
    InstalledHost installed;

    @Override
    public void send(String targetId, String objectName, byte[] body, PendingSend send) {
      outgoing.add(new Object[] {objectName, new String(body, StandardCharsets.UTF_8), send,
          failNext});
      failNext = 0;
    }

    @Override
    public long insertIncoming(String targetId, String senderId, String objectName, byte[] body) {
      return ids.getAndIncrement();
    }

    @Override
    public void deliverLocal(long messageId, String targetId, String objectName, byte[] body) {
      shown.add(objectName + " local");
    }

    boolean deskSends(String objectName, String body, boolean offline) {
      boolean held = installed.receive(objectName, body.getBytes(StandardCharsets.UTF_8), "desk",
          "desk", clock.incrementAndGet(), offline);
      if (!held) shown.add(objectName + (offline ? " offline" : ""));
      return held;
    }

    // The server confirms each send; the desk answers the handshake and texts.
    void pump() {
      for (int round = 0; round < 50; ++round) {
        Object[] send;
        boolean any = false;
        while ((send = outgoing.poll()) != null) {
          any = true;
          PendingSend pending = (PendingSend) send[2];
          if ((long) send[3] != 0) {
            pending.failed((long) send[3]);
            pending.succeeded(99, 99);  // a second completion is ignored
            continue;
          }
          pending.succeeded(ids.getAndIncrement(), clock.incrementAndGet());
          deskGot.add((String) send[0]);
          if (send[0].equals("KX:CsHs")) {
            deskSends("KX:CsHsR", "{\"status\":1,\"data\":{\"serviceType\":1,\"sid\":\"s1\","
                + "\"robotName\":\"J-bot\",\"robotWelcome\":\"Hi from Java\"}}", false);
          } else if (send[0].equals("KX:TxtMsg")) {
            deskSends("KX:TxtMsg", "{\"content\":\"echo\"}", false);
          }
        }
        if (installed.runMain() == 0 && !any) return;
      }
    }
  }

  private final Core core = new Core();

  @BeforeEach
  public void install() {
    core.installed = InstalledHost.install(core);
  }

  @AfterEach
  public void uninstall() {
    core.installed.close();
  }

  @Test
  public void aServiceOverTheJavaHostReachesTheRobotAndTalks() {
    Screen screen = new Screen();
    try (Service service = new Service("desk", screen)) {
      service.start();
      core.pump();
      assertEquals(State.ROBOT, screen.last.state);
      service.sendText("hello");
      core.pump();
      assertEquals(List.of("ROBOT: Hi from Java", "CUSTOMER: hello", "ROBOT: echo"), screen.lines);
      assertEquals(1, screen.sent);
      assertEquals(List.of("KX:CsHs", "KX:TxtMsg"), core.deskGot);
      // The greeting was stored and shown as a local message; the handshake's answer was held.
      assertEquals(List.of("KX:TxtMsg local", "KX:TxtMsg"), core.shown);
    }
  }

  @Test
  public void aFailedSendsCodeReachesTheLineAndASecondCompletionIsIgnored() {
    List<Message> deliveries = new ArrayList<>();
    try (Service service = new Service("desk", new Screen() {
      @Override
      public void onMessageDelivery(Message message) {
        deliveries.add(message);
      }
    })) {
      service.start();
      core.pump();
      core.failNext = 7004;
      service.sendText("lost");
      core.pump();
      Message last = deliveries.get(deliveries.size() - 1);
      assertEquals(Delivery.FAILED, last.delivery);
      assertEquals(7004, last.errorCode);
      assertEquals(1, deliveries.stream().filter(m -> m.delivery == Delivery.FAILED).count());
    }
  }

  @Test
  public void signalsAndTheLibrarysAnswersAreHeldOthersShownWithTheirOfflineFlag() {
    assertTrue(core.deskSends("KX:CsPullEva", "{\"msgId\":\"d1\"}", false));
    assertFalse(core.deskSends("KX:TxtMsg", "{\"content\":\"1\"}", true));
    assertFalse(core.deskSends("QuorTest:Unknown", "{}", false));
    core.pump();
    assertEquals(List.of("KX:TxtMsg offline", "QuorTest:Unknown"), core.shown);
  }
}
