package com.quor.cs;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.stream.Collectors;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

// The Java binding against the test kit: a whole journey, refusals as exceptions, text beyond
// the BMP, bad input, an observer that throws, a long run of callbacks.
public class JourneyTest {
  private Kit kit;

  @BeforeEach
  public void makeKit() {
    kit = new Kit("{\"evaluation\":{\"askAfterAgentReplies\":1},\"end\":{\"afterEvaluation\":true}}");
  }

  @AfterEach
  public void closeKit() {
    kit.close();
  }

  @Test
  public void aJourneyWithAGroupTheAgentARatingAndTheDesksEnd() {
    Screen screen = new Screen();
    try (Service service = new Service(kit.deskId(), screen)) {
      RefusedException early =
          assertThrows(RefusedException.class, () -> service.sendText("too early"));
      assertEquals(Result.NOT_CONNECTED, early.result());
      service.start(new Customer().userInfo("userId", "c-7").userInfo("name", "梅")
          .listUrl(Arrays.asList("/a", "/b")), 15000);
      kit.settle();
      assertEquals(State.ROBOT, service.status().state);
      assertTrue(service.status().configJson.contains("\"companyName\":\"Quor Shop\""));
      Configuration config = service.status().config;
      assertEquals("Quor Shop", config.companyName);
      assertFalse(config.blocked);
      assertEquals(5, config.evaluationOptions.stream().mapToInt(option -> option.value).max()
          .getAsInt());
      assertTrue(config.leaveMessageForm.stream()
          .anyMatch(field -> field.name.equals("phone") && field.verification.equals("mobile")));

      service.sendText("Where is my order?");
      kit.settle();
      assertEquals(1, screen.sent);
      assertEquals(2, service.unreadCount());
      assertEquals(2, screen.unread);
      service.markRead();
      kit.settle();
      assertEquals(0, screen.unread);
      // Typing both ways, and the desk reads the customer's line.
      service.setTyping(true);
      assertEquals(Boolean.TRUE, kit.customerTyping());
      kit.deskTyping(true);
      kit.deskRead();
      kit.settle();
      assertEquals(Collections.singletonList(true), screen.deskTyping);
      assertEquals(1, screen.read);

      service.askForAgent();
      kit.settle();
      List<String> groups =
          screen.last.groups.stream().map(group -> group.id).collect(Collectors.toList());
      assertEquals(Arrays.asList("sales", "after-sales"), groups);
      assertThrows(RefusedException.class, () -> service.chooseGroup("nobody"));
      service.chooseGroup("sales");
      kit.settle();
      InvalidFormException invalid = assertThrows(InvalidFormException.class,
          () -> service.leaveMessage(Collections.singletonMap("phone", "12")));
      assertEquals("mobile", invalid.fieldErrors().get("phone"));
      service.sendText("I want to return it");
      kit.settle();
      assertNotNull(screen.dialog);
      RefusedException stars =
          assertThrows(RefusedException.class, () -> service.rateAgent(new AgentRating(3)));
      assertEquals(Result.STARS_NOT_OFFERED, stars.result());
      service.rateAgent(new AgentRating(5).suggestion("great").resolved(1)
          .extraJson("{\"channel\":\"java\"}"));
      kit.settle();
    }
    assertEquals(Arrays.asList(State.CONNECTING, State.CONNECTED, State.ROBOT,
                     State.CHOOSING_GROUP, State.WAITING_FOR_AGENT, State.AGENT, State.ENDED),
        screen.states);
    assertEquals(Reason.DESK_ENDED, screen.last.reason);
    assertEquals(Arrays.asList("ROBOT: Hi, I am Ava, the Quor Shop assistant. How can I help?",
                     "CUSTOMER: Where is my order?",
                     "ROBOT: Orders ship within 24 hours; you can follow yours under Me > Orders."),
        screen.lines.subList(0, 3));
    assertTrue(screen.lines.contains("AGENT: Hello, this is Kai from Sales. How can I help?"));
    assertEquals("NOTICE: Thank you for contacting Quor Shop. Goodbye!",
        screen.lines.get(screen.lines.size() - 1));
  }

  @Test
  public void aValueOfANewerLibraryReadsAsUnknown() {
    assertEquals(State.UNKNOWN, State.of(42));
    assertEquals(State.UNKNOWN, State.of(-1));
    assertEquals(Result.UNKNOWN, Result.of(99));
    assertEquals(XmppStatus.UNKNOWN, XmppStatus.of(6));
    assertEquals(XmppError.TIMEOUT, XmppError.of(31003));
    assertEquals(XmppError.UNKNOWN, XmppError.of(0));
  }

  @Test
  public void textsBeyondTheBmpCrossTheBorderUnchanged() {
    Screen screen = new Screen();
    try (Service service = new Service(kit.deskId(), screen)) {
      service.start();
      kit.settle();
      String text = "退货 📦 \uD83D\uDE00 done";
      service.sendText(text);
      kit.deskSay("收到 👍");
      kit.settle();
      assertTrue(screen.lines.contains("CUSTOMER: " + text));
      assertTrue(screen.lines.contains("ROBOT: 收到 👍"));
    }
  }

  @Test
  public void textsThatCannotBeSentAreRefusedAndOnlyAnUnsentLineIsRetried() {
    Screen screen = new Screen();
    try (Service service = new Service(kit.deskId(), screen)) {
      service.start();
      kit.settle();
      RefusedException lone =
          assertThrows(RefusedException.class, () -> service.sendText("half \uD83D a pair"));
      assertEquals(Result.INVALID_TEXT, lone.result());
      service.setMaxTextBytes(64);
      assertEquals(64, service.maxTextBytes());
      String quotes = String.join("", Collections.nCopies(40, "\""));
      RefusedException large =
          assertThrows(RefusedException.class, () -> service.sendText(quotes));
      assertEquals(Result.TOO_LARGE, large.result());
      assertThrows(IllegalArgumentException.class, () -> service.sendText(null));
      service.sendText("hello");
      kit.settle();
      RefusedException sent = assertThrows(RefusedException.class, () -> service.retry(2));
      assertEquals(Result.NOT_RETRYABLE, sent.result());
    }
  }

  @Test
  public void oneKitAndOneServicePerDeskAtATime() {
    assertThrows(IllegalStateException.class, () -> new Kit());
    try (Service first = new Service(kit.deskId(), new Screen())) {
      assertThrows(IllegalStateException.class, () -> new Service(kit.deskId(), new Screen()));
      assertEquals(State.NOT_STARTED, first.status().state); // the first is untouched
    }
    new Service(kit.deskId(), new Screen()).close();  // once the first is closed
  }

  @Test
  public void aServiceClosedInItsOwnCallbackHearsNothingMore() {
    int[] after = {0};
    Service[] service = new Service[1];
    service[0] = new Service(kit.deskId(), new Observer() {
      @Override
      public void onMessage(Message message) {
        if (service[0] == null) {
          ++after[0];
          return;
        }
        Service closing = service[0];
        service[0] = null;
        closing.close();
      }

      @Override
      public void onUnreadCountChanged(long unread) {
        if (service[0] == null) ++after[0];
      }
    });
    service[0].start();
    kit.settle();
    kit.deskSay("anyone there?");
    kit.settle();
    assertEquals(null, service[0]);
    assertEquals(0, after[0]);
  }

  @Test
  public void badInputThrowsAndNothingIsLost() {
    assertThrows(IllegalArgumentException.class, () -> new Kit("{not json"));
    assertThrows(IllegalArgumentException.class, () -> new Service(null, new Screen()));
    Screen screen = new Screen();
    Service service = new Service(kit.deskId(), screen);
    assertThrows(RefusedException.class, () -> service.sendText(""));
    assertThrows(IllegalArgumentException.class, () -> service.chooseGroup(null));
    service.close();
    service.close();  // twice is fine
    assertThrows(IllegalStateException.class, service::start);
  }

  @Test
  public void anObserversExceptionGoesToTheHandlerAndTheServiceCarriesOn() {
    List<Throwable> reported = new java.util.ArrayList<>();
    QuorCS.setObserverExceptionHandler(reported::add);
    try (Service service = new Service(kit.deskId(), new Observer() {
      @Override
      public void onStateChanged(Status status) {
        throw new IllegalStateException("the app's bug");
      }
    })) {
      service.start();
      kit.settle();
      assertEquals(State.ROBOT, service.status().state);
      assertEquals(3, reported.size());
      assertEquals("the app's bug", reported.get(0).getMessage());
    } finally {
      QuorCS.setObserverExceptionHandler(null);
    }
  }

  // All of them inside one native call (settle): each callback must free its local references.
  // The JVM runs with -Xcheck:jni, which warns on a leak; the test command fails on the warning.
  @Test
  public void aHundredThousandCallbacksInOneSettleKeepNoLocalReference() {
    Screen screen = new Screen();
    try (Service service = new Service(kit.deskId(), screen)) {
      service.start();
      kit.settle();
      for (int i = 0; i < 25_000; ++i) service.sendText("hello " + i);
      kit.settle();
      assertTrue(screen.calls > 100_000);
    }
  }

  @Test
  public void theVersionIsTheLibrarys() {
    assertEquals("1.0.0", QuorCS.version());
  }
}
