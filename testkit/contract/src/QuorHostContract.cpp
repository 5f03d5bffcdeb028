// The host contract's checks: each one a duty of a host that the library relies on.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorHostContract/QuorHostContract.h"
#include "QuorLoopbackHost/QuorRecordingModule.h"

namespace quor::contract {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

// A stored content type of the test: the host must decode it into a fresh instance each time.
class ContractProbe : public KXMessageContent {
 public:
  static std::string getObjectName() { return "QuorTest:Probe"; }
  static uint32_t persistentFlag() { return KXMessagePersistentFlagIsPersisted; }
  std::string objectName() const override { return getObjectName(); }
  uint32_t messagePersistentFlag() const override { return persistentFlag(); }
  KXData encode() override { return body; }
  void decodeWithData(const KXData& data) override {
    body = data;
    ++decodes;
  }
  KXData body;
  int decodes = 0;
};

struct Shown {
  std::mutex mutex;
  std::vector<std::shared_ptr<KXMessage>> messages;
  std::size_t size() {
    std::lock_guard<std::mutex> lock(mutex);
    return messages.size();
  }
  bool lastIs(const std::string& objectName) {
    std::lock_guard<std::mutex> lock(mutex);
    return !messages.empty() && messages.back()->objectName() == objectName;
  }
};

void listen(QuorHostContractSubject& subject, Shown& shown) {
  subject.addListener([&shown](const std::shared_ptr<KXMessage>& message) {
    std::lock_guard<std::mutex> lock(shown.mutex);
    shown.messages.push_back(message);
  });
}

std::shared_ptr<KXMessageContent> text(const std::string& content) {
  return KXTextMessage::messageWithContent(content);
}

// A record or a body as words, for failure messages.
std::string describe(const std::shared_ptr<KXMessage>& message) {
  if (!message) return "no record";
  return "the record of " + message->objectName().value_or("(no object name)") + " with id " +
         std::to_string(message->messageId());
}
std::string describe(const KXData& body) { return body ? "'" + *body + "'" : "no body"; }

TEST_P(QuorHostContract, ReceivedTypesDecodeIntoAFreshInstanceByObjectName) {
  subject->core().registerMessageType(KXMessageContentType::of<ContractProbe>());
  Shown shown;
  listen(*subject, shown);
  subject->deskSends("QuorTest:Probe", R"({"n":1})");
  subject->deskSends("QuorTest:Probe", R"({"n":2})");
  subject->deskSends("QuorTest:Unknown", R"({"n":3})");
  subject->deskSends(KXTextMessage::getObjectName(), R"({"content":"hello"})");
  ASSERT_TRUE(subject->runMainUntil([&] { return shown.size() >= 4; }));
  auto* first = dynamic_cast<ContractProbe*>(shown.messages[0]->content().get());
  auto* second = dynamic_cast<ContractProbe*>(shown.messages[1]->content().get());
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second) << "two messages were decoded into one instance: make a fresh one "
                              "with the registered type's create() for each";
  EXPECT_EQ(first->body, R"({"n":1})") << "the first probe's body is " << describe(first->body);
  EXPECT_EQ(second->body, R"({"n":2})") << "the second probe's body is " << describe(second->body);
  EXPECT_EQ(first->decodes, 1) << "decodeWithData() ran " << first->decodes
                               << " times for one message: it must run once";
  EXPECT_EQ(shown.messages[2]->objectName(), "QuorTest:Unknown")
      << "a message of a type nobody registered must still reach the listeners, kept as it came";
  auto* greeting = dynamic_cast<KXTextMessage*>(shown.messages[3]->content().get());
  ASSERT_TRUE(greeting);
  EXPECT_EQ(greeting->content(), "hello");
  for (const auto& message : shown.messages) {
    EXPECT_EQ(message->conversationType(), KXConversationTypeCustomerService);
    EXPECT_EQ(message->messageDirection(), KXMessageDirectionReceive);
    EXPECT_EQ(message->targetId(), subject->deskId());
  }
}

TEST_P(QuorHostContract, SendClosuresRunExactlyOnceWithIdsAndCodesUnchanged) {
  std::atomic<int> successes{0}, recordSuccesses{0}, errors{0};
  std::atomic<int64_t> sentId{-1}, failedId{-1}, failedCode{0};
  auto record = subject->core().sendMessage(
      KXConversationTypeCustomerService, subject->deskId(), text("one"), std::nullopt, std::nullopt,
      [&](int64_t id) { sentId = id, ++successes; }, [&](int64_t, int64_t) { ++errors; });
  ASSERT_TRUE(record);
  std::shared_ptr<KXMessage> confirmed;
  subject->core().sendMessageSuccessBlock(
      KXConversationTypeCustomerService, subject->deskId(), text("two"), std::nullopt, std::nullopt,
      [&](std::shared_ptr<KXMessage> sent) { confirmed = sent, ++recordSuccesses; },
      [&](int64_t, std::shared_ptr<KXMessage>) { ++errors; });
  const auto failure = subject->arrangeFailingSend();
  auto failing = subject->core().sendMessage(
      KXConversationTypeCustomerService, failure.targetId, text("three"), std::nullopt,
      std::nullopt, [&](int64_t) { ++successes; },
      [&](int64_t code, int64_t id) { failedCode = code, failedId = id, ++errors; });
  // A send without closures completes without calling anything back.
  subject->core().sendMessage(KXConversationTypeCustomerService, subject->deskId(), text("four"),
                              std::nullopt, std::nullopt, nullptr, nullptr);
  ASSERT_TRUE(subject->runMainUntil([&] {
    return successes + recordSuccesses + errors >= 3 && subject->deskReceived().size() >= 3;
  }));
  // A second report of those would come before the outcome of a send made after them.
  std::atomic<bool> later{false};  // set where the host runs its closures
  subject->core().sendMessage(
      KXConversationTypeCustomerService, subject->deskId(), text("five"), std::nullopt,
      std::nullopt, [&](int64_t) { later = true; }, [&](int64_t, int64_t) { later = true; });
  ASSERT_TRUE(subject->runMainUntil([&] { return later && subject->deskReceived().size() >= 4; }));
  EXPECT_EQ(successes, 1) << "the success closures ran " << successes
                          << " times for one successful send: each send calls one closure once";
  EXPECT_EQ(recordSuccesses, 1) << "the record-passing success closure ran " << recordSuccesses
                                << " times: it must run once";
  EXPECT_EQ(errors, 1) << "the error closures ran " << errors
                       << " times for one failing send: it must run once";
  EXPECT_EQ(sentId, record->messageId()) << "the success closure got id " << sentId
                                         << ", but sendMessage returned " << describe(record);
  EXPECT_EQ(failedId, failing->messageId()) << "the error closure got id " << failedId
                                            << ", but sendMessage returned " << describe(failing);
  EXPECT_EQ(failedCode, failure.code) << "the error closure got code " << failedCode
                                      << ": the host's own code must reach the library unchanged";
  ASSERT_TRUE(confirmed) << "the record-passing success closure got no record";
  // "one", "two", "four" and the later "five"; "three" failed.
  EXPECT_THAT(subject->deskReceived(), Each(KXTextMessage::getObjectName()));
  EXPECT_EQ(subject->deskReceived().size(), 4u);
}

// The library orders the desk's answers against its handshake by the record's sentTime as the
// success closure sees it: it must be set before the closure runs, on the clock the desk's
// messages carry (the server's): not before a message the desk sent earlier (a slow clock would
// let a stale answer through), not after a reply the desk sent later (a fast one would drop it).
TEST_P(QuorHostContract, ASuccessClosureSeesTheSentTimeWhichNoLaterReplyPrecedes) {
  Shown shown;
  listen(*subject, shown);
  subject->deskSends(KXTextMessage::getObjectName(), R"({"content":"earlier"})");
  ASSERT_TRUE(subject->runMainUntil([&] { return shown.size() >= 1; }));
  std::atomic<int64_t> stampSeen{-1};
  subject->core().sendMessageSuccessBlock(
      KXConversationTypeCustomerService, subject->deskId(), text("handshake"), std::nullopt,
      std::nullopt, [&](std::shared_ptr<KXMessage> sent) { stampSeen = sent->sentTime(); },
      nullptr);
  ASSERT_TRUE(
      subject->runMainUntil([&] { return stampSeen >= 0 && !subject->deskReceived().empty(); }));
  ASSERT_GT(stampSeen, 0) << "the record's sentTime was " << stampSeen
                          << " when the success closure ran: it must be the send's time, set "
                             "before the closure runs";
  subject->deskSends(KXTextMessage::getObjectName(), R"({"content":"reply"})");
  ASSERT_TRUE(subject->runMainUntil([&] { return shown.size() >= 2; }));
  const int64_t earlier = shown.messages[0]->sentTime();
  const int64_t reply = shown.messages[1]->sentTime();
  EXPECT_GE(stampSeen, earlier) << "the send was stamped " << (earlier - stampSeen) / 1000
                                << " s before a message the desk had sent earlier: the host's "
                                   "clock is slow; stamp sends with the server's time";
  EXPECT_LE(stampSeen, reply) << "the send was stamped " << (stampSeen - reply) / 1000
                              << " s after the reply the desk sent later: the host's clock is "
                                 "fast, and the library would drop that reply as older than its "
                                 "handshake; stamp sends with the server's time";
}

// What every duty above adds up to: a real start through the library reaches the robot.
TEST_P(QuorHostContract, AStartThroughTheLibraryReachesTheRobot) {
  struct Screen : KXCSServiceObserver {
    std::vector<KXCSServiceState> states;
    void onStateChanged(const KXCSServiceStatus& status) override {
      states.push_back(status.state);
    }
  };
  auto screen = std::make_shared<Screen>();
  auto service = KXCSService::make(subject->deskId(), screen);
  ASSERT_EQ(service->start(nullptr), KXCSServiceResult::Done);
  ASSERT_TRUE(subject->runMainUntil([&] {
    const auto received = subject->deskReceived();
    return std::find(received.begin(), received.end(), KXCSHandShakeMessage::getObjectName()) !=
           received.end();
  }));
  subject->deskSends(KXCSHandShakeResponseMessage::getObjectName(),
                     R"({"status":1,"data":{"sid":"s1","serviceType":1,)"
                     R"("robotName":"Ava","robotWelcome":"Hello"}})");
  subject->runMainUntil([&] { return screen->states.size() >= 3; });
  EXPECT_THAT(screen->states, ElementsAre(KXCSServiceState::Connecting, KXCSServiceState::Connected,
                                          KXCSServiceState::Robot))
      << "the desk's answer did not start the service: the library takes it only when its "
         "sentTime is not older than the handshake's, which the success closure must see set (see "
         "ASuccessClosureSeesTheSentTimeWhichNoLaterReplyPrecedes), and only when the host offers "
         "it to the module";
  service->end();
  subject->runMainUntil([&] { return screen->states.size() >= 4; });
}

TEST_P(QuorHostContract, AnInsertedRecordIsDeliveredByTheFakeReceiveWithItsValues) {
  Shown shown;
  listen(*subject, shown);
  auto record = subject->core().insertIncomingMessage(
      KXConversationTypeCustomerService, subject->deskId(), subject->deskId(), KXReceivedStatusRead,
      KXInformationNotificationMessage::notificationWithMessage("a notice", std::nullopt));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->receivedStatus(), KXReceivedStatusRead);
  EXPECT_EQ(record->senderUserId(), subject->deskId());
  subject->core().onReceiveFakeMessage(record);
  // The library's in-memory notice: direction 2, message id 0, received status 1.
  auto memory = std::make_shared<KXMessage>(
      KXConversationTypeCustomerService, subject->deskId(), KXMessageDirectionReceive, 0,
      KXInformationNotificationMessage::notificationWithMessage("in memory", std::nullopt));
  memory->setReceivedStatus(KXReceivedStatusRead);
  subject->core().onReceiveFakeMessage(memory);
  ASSERT_TRUE(subject->runMainUntil([&] { return shown.size() >= 2; }));
  EXPECT_TRUE(shown.messages[0] == record)
      << "the listeners got " << describe(shown.messages[0]) << ", not the inserted "
      << describe(record) << ": hand on the very record onReceiveFakeMessage() was given";
  EXPECT_TRUE(shown.messages[1] == memory)
      << "the listeners got " << describe(shown.messages[1])
      << ", not the unstored notice (id 0) the library handed on";
  EXPECT_EQ(shown.messages[1]->messageId(), 0) << "an unstored notice keeps message id 0";
  EXPECT_EQ(shown.messages[1]->messageDirection(), KXMessageDirectionReceive);
}

TEST_P(QuorHostContract, SignalAndHeldMessagesNeverReachTheListeners) {
  Shown shown;
  listen(*subject, shown);
  subject->deskSends(KXCSHandShakeResponseMessage::getObjectName(),
                     R"({"status":1,"data":{"serviceType":1}})");  // held
  subject->deskSends(KXCSPullEvaluateMessage::getObjectName(),
                     R"({"msgId":"d1"})");  // a signal the module does not hold
  subject->deskSends(KXCSTerminateMessage::getObjectName(), R"({"code":0})");  // held
  subject->deskSends(KXTextMessage::getObjectName(), R"({"content":"last"})");
  // The text comes last: whatever reached the listeners before it is there when it is.
  ASSERT_TRUE(subject->runMainUntil([&] { return shown.lastIs(KXTextMessage::getObjectName()); }));
  ASSERT_EQ(shown.size(), 1u) << "the listeners saw " << shown.size()
                              << " messages: messages the module held and signal types must not "
                                 "reach them, only the text";
  EXPECT_EQ(shown.messages[0]->objectName(), KXTextMessage::getObjectName());
}

TEST_P(QuorHostContract, MessagesKeptWhileOfflineAreOfferedWithTheOfflineFlagInOrder) {
  QuorRecordingModule module;
  subject->loadModule(module);
  subject->deliverWhileOffline({{KXTextMessage::getObjectName(), R"({"content":"1"})"},
                                {KXTextMessage::getObjectName(), R"({"content":"2"})"}});
  subject->deskSends(KXCSPullEvaluateMessage::getObjectName(), R"({"msgId":"d1"})");
  ASSERT_TRUE(subject->runMainUntil([&] { return module.offered().size() >= 3; }));
  EXPECT_THAT(module.offered(),
              ElementsAre("KX:TxtMsg offline", "KX:TxtMsg offline", "KX:CsPullEva live"));
  subject.reset();  // a loaded module outlives its host
}

TEST_P(QuorHostContract, PostsToTheMainThreadRunOneAtATimeInOrder) {
  std::vector<int> ran;
  std::atomic<bool> inside{false}, overlapped{false};
  std::thread poster([&] {
    for (int i = 0; i < 200; ++i) {
      subject->mainThread().post([&, i] {
        overlapped = overlapped || inside.exchange(true);
        ran.push_back(i);
        inside = false;
      });
    }
  });
  poster.join();
  ASSERT_TRUE(subject->runMainUntil([&] { return ran.size() >= 200; }));
  for (int i = 0; i < 200; ++i) ASSERT_EQ(ran[i], i);
  EXPECT_FALSE(overlapped);
}

}  // namespace
int linkHostContractDuties() { return 1; }

}  // namespace quor::contract
