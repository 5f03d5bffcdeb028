// The session API as an app uses it: a typed state stream, checked operations and the failure
// paths, against the desk simulator on the loopback host.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

namespace quor {
namespace {

using ::testing::ElementsAre;
using Result = KXCSServiceResult;

// Records every report as a short text: "Robot+" (an agent can be asked for), "Failed(Timeout)".
class Recorder : public KXCSServiceObserver {
 public:
  void onStateChanged(const KXCSServiceStatus& status) override {
    std::string line = KXCSService::stateName(status.state);
    if (status.state == KXCSServiceState::Robot && status.canAskForAgent) line += "+";
    if (status.reason != KXCSServiceReason::None) {
      line += std::string("(") + KXCSService::reasonName(status.reason) +
              (status.text.empty() ? "" : ": " + status.text) + ")";
    }
    if (status.state == KXCSServiceState::ChoosingGroup)
      line += std::to_string(status.groups->size());
    states.push_back(line);
    if (onChange) onChange(status);
  }
  void onRatingRequested(const KXString& dialog) override {
    ratings.push_back(dialog.value_or(""));
  }
  void onMessageLeft(bool sent, int64_t value) override {
    left.push_back((sent ? "sent " : "failed ") + std::to_string(value));
  }
  // Lines as "3 Robot: text", deliveries as "3 Sent", unread counts as "unread 2".
  void onMessage(const KXCSConversationMessage& m) override {
    lines.push_back(std::to_string(m.sequence) + " " + toString(m.author) + ": " + m.text +
                    (m.file
                         ? "file " + m.file->name + " " + m.file->mimeType + " " +
                               std::to_string(m.file->width) + "x" + std::to_string(m.file->height)
                         : ""));
  }
  // Only a transfer's end: how often progress comes is the library's to thin out.
  void onFileProgress(uint64_t sequence, uint64_t done, uint64_t total) override {
    if (done == total) lines.push_back(std::to_string(sequence) + " moved " + std::to_string(done));
  }
  void onFileDownloaded(uint64_t sequence, const KXCSFile& file, int64_t code) override {
    lines.push_back(std::to_string(sequence) + " downloaded " + file.mimeType + " " +
                    std::to_string(code));
    saved[sequence] = file.localPath;
  }
  void onMessageDelivery(const KXCSConversationMessage& m) override {
    lines.push_back(std::to_string(m.sequence) + " " + toString(m.delivery));
    if (m.delivery == KXCSDelivery::Sent) idOf[m.sequence] = m.messageId;
  }
  void onDeskTyping(bool typing) override {
    lines.push_back(typing ? "desk typing" : "desk stopped");
  }
  void onUnreadCountChanged(uint64_t unread) override {
    lines.push_back("unread " + std::to_string(unread));
  }
  std::vector<std::string> take() { return std::exchange(states, {}); }

  std::vector<std::string> takeLines() { return std::exchange(lines, {}); }

  std::vector<std::string> states, ratings, left, lines;
  std::map<uint64_t, int64_t> idOf;       // a Sent line's host message id, by sequence
  std::map<uint64_t, std::string> saved;  // a downloaded file's path, by sequence
  std::function<void(const KXCSServiceStatus&)> onChange;
};

class SessionApi : public ::testing::Test {
 protected:
  void SetUp() override {
    // Each test starts from a fresh client: its handshake time and sessions are process-wide.
    auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
    client.setHandShakeMessageSendTime(0);
    client.setCustomerServiceSessions({});
    host->install();
    host->setLogSink(nullptr, 0);
    host->loadExtensionModule();
  }
  void TearDown() override {
    service.reset();
    host->settle();
    QuorLoopbackHost::uninstall();
  }

  std::shared_ptr<QuorDeskSimulator> desk(const char* changes) {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    profile.merge_patch(KXDictionary::parse(changes));
    auto made = QuorDeskSimulator::fromProfile(profile, nullptr);
    made->attach(host);
    return made;
  }
  std::shared_ptr<KXCSService> open(
      const std::string& deskId, std::chrono::milliseconds timeout = std::chrono::milliseconds(0)) {
    auto made = KXCSService::make(deskId, recorder);
    EXPECT_EQ(made->start(nullptr, timeout), Result::Done);
    host->settle();
    return made;
  }

  // Settles until `of` (else `service`) reaches `state`, for states that a timer brings.
  void settleUntil(KXCSServiceState state, KXCSService* of = nullptr) {
    if (!of) of = service.get();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (of->status().state != state && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      host->settle();
    }
    host->settle();
  }
  std::size_t greetings(const std::string& deskId) {
    std::size_t count = 0;
    for (const auto& message : host->conversation(deskId)) {
      auto* text = dynamic_cast<KXTextMessage*>(message->content().get());
      if (text && text->content().value_or("").rfind("Hi, I am Ava", 0) == 0) ++count;
    }
    return count;
  }

  std::shared_ptr<QuorLoopbackHost> host = std::make_shared<QuorLoopbackHost>();
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<KXCSService> service;
};

TEST_F(SessionApi, EachServiceTypeReportsItsStatesOnce) {
  const struct {
    const char* profile;
    std::vector<std::string> states;
    Result askForAgent;
  } cases[] = {
      {R"({"serviceType": 1})", {"Connecting", "Connected", "Robot"}, Result::AgentNotOffered},
      {R"({"serviceType": 3})", {"Connecting", "Connected", "Robot+"}, Result::Done},
      {R"({"serviceType": 2, "switchToHumanAtStart": true, "groups": null})",
       {"Connecting", "Connected", "Agent"},
       Result::AlreadyWithAgent},
      {R"({"serviceType": 2, "switchToHumanAtStart": true, "groups": null,
           "humanAgent": "unavailable"})",
       {"Connecting", "Connected", "Agent", "Ended(NoAgentAvailable)"},
       Result::NotConnected},
      {R"({"serviceType": 4, "switchToHumanAtStart": true, "groups": null,
           "humanAgent": "unavailable"})",
       {"Connecting", "Connected", "Agent", "Robot+(NoAgentAvailable)"},
       Result::Done},
      {R"({"blacklisted": true})",
       {"Connecting", "Connected(Blocked: 你已被拉黑)", "Robot+"},
       Result::Blocked},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.profile);
    auto simulator = desk(c.profile);
    service = open(simulator->deskId());
    EXPECT_EQ(recorder->take(), c.states);
    EXPECT_EQ(service->askForAgent(), c.askForAgent);
    service->end();
    host->settle();
    recorder->take();
  }
}

// What each answer to an agent request gives: no state ever waits for an answer that came.
TEST_F(SessionApi, EveryAnswerToAnAgentRequestMovesTheState) {
  const struct {
    const char* profile;
    std::vector<std::string> afterTheRequest;
    Result askAgain;
  } cases[] = {
      {R"({"serviceType": 3, "groups": null, "humanAgent": "unavailable"})",
       {"WaitingForAgent", "Robot+(NoAgentAvailable)"},
       Result::Done},
      {R"({"serviceType": 3, "groups": null, "humanAgent": "refuses"})",
       {"WaitingForAgent", "Robot+(Blocked: 你已被拉黑)"},
       Result::Blocked},
      {R"({"serviceType": 3, "groups": null})",
       {"WaitingForAgent", "Agent"},
       Result::AlreadyWithAgent},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.profile);
    auto simulator = desk(c.profile);
    service = open(simulator->deskId());
    recorder->take();
    ASSERT_EQ(service->askForAgent(), Result::Done);
    host->settle();
    EXPECT_EQ(recorder->take(), c.afterTheRequest);
    EXPECT_EQ(service->askForAgent(), c.askAgain);
    service->end();
    host->settle();
    recorder->take();
  }
  // A human-only service whose first agent request is refused ends: it has no robot.
  auto refusing = desk(R"({"serviceType": 2, "switchToHumanAtStart": true, "groups": null,
                           "humanAgent": "refuses"})");
  service = open(refusing->deskId());
  EXPECT_EQ(recorder->take(), (std::vector<std::string>{"Connecting", "Connected", "Agent",
                                                        "Ended(Blocked: 你已被拉黑)"}));
  EXPECT_EQ(service->askForAgent(), Result::NotConnected);
}

TEST_F(SessionApi, RobotFirstJourneyWithGroupsRatingAndTheDesksEnd) {
  auto simulator =
      desk(R"({"evaluation": {"askAfterAgentReplies": 1}, "end": {"afterEvaluation": true}})");
  service = KXCSService::make(simulator->deskId(), recorder);
  EXPECT_EQ(service->askForAgent(), Result::NotConnected);  // before the desk answered
  EXPECT_EQ(service->start(nullptr), Result::Done);
  EXPECT_EQ(service->start(nullptr), Result::AlreadyStarted);
  host->settle();
  EXPECT_EQ(service->askForAgent(), Result::Done);
  host->settle();
  EXPECT_EQ(service->chooseGroup("nope"), Result::GroupNotOffered);
  EXPECT_EQ(service->chooseGroup("after-sales"), Result::Done);
  host->settle();
  EXPECT_EQ(simulator->bodiesOf("KX:CsCha").size(), 1u);  // the refused choice sent nothing
  host->sendMessage(5, simulator->deskId(), KXTextMessage::messageWithContent("refund?"),
                    std::nullopt, std::nullopt, nullptr, nullptr);
  host->settle();
  ASSERT_THAT(recorder->ratings, ElementsAre("dialog-1"));
  EXPECT_EQ(service->rateAgent({std::nullopt, 9, std::nullopt, 1, std::nullopt, nullptr}),
            Result::StarsNotOffered);
  EXPECT_EQ(service->rateAgent({std::nullopt, 5, KXString("thanks"), 1, std::nullopt, nullptr}),
            Result::Done);
  host->settle();
  EXPECT_EQ(simulator->bodiesOf("KX:CsEva").at(0)["sid"], "dialog-1");
  EXPECT_THAT(
      recorder->take(),
      ElementsAre("Connecting", "Connected", "Robot+", "ChoosingGroup2", "WaitingForAgent", "Agent",
                  "Ended(DeskEnded: Thank you for contacting Quor Shop. Goodbye!)"));
  EXPECT_EQ(service->end(), Result::NotConnected);
  EXPECT_EQ(service->askForAgent(), Result::NotConnected);
}

TEST_F(SessionApi, FailuresAreReportedAfterTheStopSoARestartFromTheObserverHolds) {
  // The host fails the first handshake; the app restarts from the failure report.
  auto simulator = desk("{}");
  service = KXCSService::make(simulator->deskId(), recorder);
  recorder->onChange = [this](const KXCSServiceStatus& status) {
    if (status.state == KXCSServiceState::Failed) {
      host->setAutoConfirm(true);
      EXPECT_EQ(service->start(nullptr), Result::Done);
    }
  };
  host->setAutoConfirm(false);
  service->start(nullptr);
  host->confirmOldestSend(false, std::nullopt, 7001);
  host->settle();
  EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Failed(ConnectionFailed: 连接客服失败!)",
                                            "Connecting", "Connected", "Robot+"));
  EXPECT_EQ(service->status().state, KXCSServiceState::Robot);

  // A desk that refuses the handshake, then one that never answers.
  recorder->onChange = nullptr;
  auto closed = desk(R"({"deskId": "closed", "handshake": {"fail": true, "message": "Closed"}})");
  auto refused = open("closed");
  EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Failed(HandshakeRefused: Closed)"));
  auto silent = open("nobody", std::chrono::milliseconds(20));
  settleUntil(KXCSServiceState::Failed, silent.get());
  EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Failed(Timeout: 连接客服失败!)"));
  EXPECT_TRUE(host->conversation("nobody").empty());
}

TEST_F(SessionApi, AStartThatTimedOutNeverTouchesTheNextStart) {
  // The server hangs: the first handshake times out, the app starts again, and only then does
  // the first send fail. The client stops the service after a failed send; that stop must not
  // land on the second start.
  auto simulator = desk("{}");
  service = KXCSService::make(simulator->deskId(), recorder);
  host->setAutoConfirm(false);
  service->start(nullptr, std::chrono::milliseconds(20));
  settleUntil(KXCSServiceState::Failed);
  EXPECT_EQ(service->start(nullptr), Result::Done);
  host->settle();
  EXPECT_TRUE(host->confirmOldestSend(false, std::nullopt, 7001));
  host->setAutoConfirm(true);
  host->confirmOldestSend(true, std::nullopt, 0);  // the second handshake, if it was held
  host->settle();
  EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Failed(Timeout: 连接客服失败!)",
                                            "Connecting", "Connected", "Robot+"));
}

TEST_F(SessionApi, AHandshakeSentLateServesTheNextStartOnce) {
  // The first handshake goes out only after its start timed out, and the desk answers it. A
  // start made before that answer takes it over (no second handshake); one made after it sends
  // its own. Either way the app sees one Connected and one greeting.
  for (const bool startFirst : {true, false}) {
    SCOPED_TRACE(startFirst ? "started before the late send" : "started after the answer");
    KXCustomerServiceClient::sharedCustomerServiceClient().setHandShakeMessageSendTime(0);
    auto simulator = desk("{}");
    service = KXCSService::make(simulator->deskId(), recorder);
    host->setAutoConfirm(false);
    service->start(nullptr, std::chrono::milliseconds(20));
    settleUntil(KXCSServiceState::Failed);
    if (startFirst) {
      EXPECT_EQ(service->start(nullptr), Result::Done);
    }
    host->settle();
    EXPECT_TRUE(host->confirmOldestSend(true, std::nullopt, 0));  // the desk gets it, and answers
    host->settle();
    if (!startFirst) {
      EXPECT_EQ(service->start(nullptr), Result::Done);
      host->settle();
    }
    EXPECT_EQ(host->confirmOldestSend(true, std::nullopt, 0), !startFirst);
    host->setAutoConfirm(true);
    host->settle();
    EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Failed(Timeout: 连接客服失败!)",
                                              "Connecting", "Connected", "Robot+"));
    const auto lines = recorder->takeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "1 Robot: Hi, I am Ava, the Quor Shop assistant. How can I help?"),
              1);
    service.reset();
    host->settle();
  }
}

TEST_F(SessionApi, EndWhileConnectingThenStartGivesOneServiceAndOneGreeting) {
  auto simulator = desk("{}");
  service = KXCSService::make(simulator->deskId(), recorder);
  host->setAutoConfirm(false);
  service->start(nullptr);
  host->settle();
  EXPECT_EQ(service->end(), Result::Done);
  host->settle();
  EXPECT_EQ(service->start(nullptr), Result::Done);
  host->settle();
  host->setAutoConfirm(true);
  while (host->confirmOldestSend(true, std::nullopt, 0)) host->settle();
  host->settle();
  EXPECT_THAT(recorder->take(), ElementsAre("Connecting", "Ended(StoppedByApp)", "Connecting",
                                            "Connected", "Robot+"));
  EXPECT_EQ(greetings(simulator->deskId()), 1u);
  EXPECT_EQ(simulator->bodiesOf("KX:CsHs").size(), 1u);

  // Ended for good: the answer comes, the client's service stops, and the next start of
  // another service is not held back.
  service->end();
  host->setAutoConfirm(false);
  service->start(nullptr);
  host->settle();
  service->end();
  host->setAutoConfirm(true);
  while (host->confirmOldestSend(true, std::nullopt, 0)) host->settle();
  recorder->take();
  auto other = KXCSService::make(simulator->deskId(), recorder);
  other->start(nullptr);
  host->settle();
  EXPECT_EQ(other->status().state, KXCSServiceState::Robot);
}

TEST_F(SessionApi, TheConversationComesInOrderWithItsUnreadCount) {
  auto simulator = desk(R"({"evaluation": null})");
  service = KXCSService::make(simulator->deskId(), recorder);
  EXPECT_EQ(service->sendText("hello"), Result::NotConnected);
  service->start(nullptr);
  host->settle();
  EXPECT_EQ(service->sendText(""), Result::EmptyText);
  EXPECT_EQ(service->sendText("where is my order"), Result::Done);
  host->settle();
  EXPECT_EQ(service->unreadCount(), 2u);
  service->markRead();
  host->settle();
  EXPECT_EQ(service->unreadCount(), 0u);
  EXPECT_THAT(host->markedRead(), ElementsAre(simulator->deskId()));  // the host shares it
  ASSERT_EQ(service->askForAgent(), Result::Done);
  host->settle();
  service->chooseGroup("sales");
  host->settle();
  service->sendText("I want to return it");
  host->settle();
  simulator->endService("bye");
  host->settle();
  EXPECT_THAT(
      recorder->takeLines(),
      ElementsAre("1 Robot: Hi, I am Ava, the Quor Shop assistant. How can I help?", "unread 1",
                  "2 Customer: where is my order", "2 Sent",
                  "3 Robot: Orders ship within 24 hours; you can follow yours under Me > Orders.",
                  "unread 2", "unread 0", "4 Agent: Hello, this is Kai from Sales. How can I help?",
                  "unread 1", "5 Customer: I want to return it", "5 Sent",
                  "6 Agent: I have started the return: a courier will pick the parcel up tomorrow.",
                  "unread 2", "7 Notice: bye", "unread 3"));
  EXPECT_EQ(service->status().state, KXCSServiceState::Ended);
  // Read once the service is over: nothing goes out.
  service->markRead();
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("unread 0"));
  EXPECT_EQ(host->markedRead().size(), 1u);
  EXPECT_EQ(service->sendText("hello?"), Result::NotConnected);

  // The desk's invitation to leave a message is a line of its own, with its text.
  service->start(nullptr);
  host->settle();
  recorder->takeLines();
  simulator->inviteLeaveMessage("No agent is free: leave us a message?");
  host->settle();
  EXPECT_THAT(
      recorder->takeLines(),
      ElementsAre("9 LeaveMessageInvitation: No agent is free: leave us a message?", "unread 2"));
  // Read on another device of the account: the count goes to 0 here too.
  host->loadExtensionModule().notifyConversationRead(KXConversationTypeCustomerService,
                                                     simulator->deskId());
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("unread 0"));
  // A line of an earlier service that arrives now (a new device's archive) is not this one's.
  QuorWireMessage old;
  old.objectName = "KX:TxtMsg";
  old.targetId = simulator->deskId();
  old.senderUserId = simulator->deskId();
  old.body = R"({"content":"an answer from last week"})";
  old.sentTime = 1;
  host->receive(old, true);
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre());
  service->end();
  host->settle();

  // A line the host fails is reported Failed with the host's code.
  service->start(nullptr);
  host->settle();
  host->setAutoConfirm(false);
  service->sendText("anyone?");
  host->confirmOldestSend(false, std::nullopt, 9);
  host->settle();
  const auto lines = recorder->takeLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "11 Customer: anyone?");
  EXPECT_EQ(lines.back(), "11 Failed");
}

TEST_F(SessionApi, EachLineIsToldWhatBecameOfItAndARetryKeepsItsId) {
  constexpr int64_t kMayHaveArrived = 31003;
  constexpr int64_t kRefused = 31005;
  auto simulator = desk(R"({"evaluation": null})");
  service = open(simulator->deskId());
  recorder->takeLines();
  host->setUnconfirmedErrorCodes({kMayHaveArrived});
  host->setAutoConfirm(false);
  const std::string answer =
      "Robot: Orders ship within 24 hours; you can follow yours under Me > Orders.";

  // Written but not confirmed: Unconfirmed, sent once more under its id by itself, then Sent;
  // the desk answers once.
  ASSERT_EQ(service->sendText("where is my order"), Result::Done);
  ASSERT_TRUE(host->confirmOldestSend(false, std::nullopt, kMayHaveArrived));
  host->settle();
  ASSERT_TRUE(host->confirmOldestSend(true, std::nullopt, 0));
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("2 Customer: where is my order", "2 Unconfirmed",
                                                 "2 Sent", "3 " + answer, "unread 2"));
  EXPECT_EQ(service->retry(2), Result::NotRetryable);  // Sent

  // Refused: Failed, and the app's retry goes out under the same id (the desk takes it once).
  ASSERT_EQ(service->sendText("where is my order"), Result::Done);
  ASSERT_TRUE(host->confirmOldestSend(false, std::nullopt, kRefused));
  host->settle();
  EXPECT_EQ(service->retry(4), Result::Done);
  EXPECT_EQ(service->retry(4), Result::NotRetryable);  // Sending already
  ASSERT_TRUE(host->confirmOldestSend(true, std::nullopt, 0));
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("4 Customer: where is my order", "4 Failed",
                                                 "4 Sending", "4 Sent", "5 " + answer, "unread 3"));
  EXPECT_EQ(service->retry(99), Result::NotRetryable);

  // An unconfirmed line whose own resend is not confirmed either stays Unconfirmed.
  ASSERT_EQ(service->sendText("hello"), Result::Done);
  ASSERT_TRUE(host->confirmOldestSend(false, std::nullopt, kMayHaveArrived));
  host->settle();
  ASSERT_TRUE(host->confirmOldestSend(false, std::nullopt, kMayHaveArrived));
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("6 Customer: hello", "6 Unconfirmed"));
  EXPECT_EQ(service->retry(6), Result::Done);
}

TEST_F(SessionApi, TextsThatCannotBeSentAreRefusedBeforeAnythingIsSent) {
  auto simulator = desk(R"({"evaluation": null})");
  service = open(simulator->deskId());
  host->setAutoConfirm(false);
  const std::string invalid[] = {"\xff", "ab\xc3", "\xed\xa0\x80", "\xc0\xaf", "\xf4\x90\x80\x80"};
  for (const auto& text : invalid) {
    SCOPED_TRACE(::testing::PrintToString(text));
    EXPECT_EQ(service->sendText(text), Result::InvalidText);
    KXCSAgentRating rating;
    rating.dialogId = "d1";
    rating.stars = 5;
    rating.suggestion = text;
    EXPECT_EQ(service->rateAgent(rating), Result::InvalidText);
  }
  EXPECT_EQ(service->maxTextBytes(), KXCSService::kDefaultMaxTextBytes);
  service->setMaxTextBytes(100);
  // The limit counts the encoded body: the text escaped in its JSON object.
  EXPECT_EQ(service->sendText(std::string(80, 'x')), Result::Done);
  EXPECT_EQ(service->sendText(std::string(80, '"')), Result::TooLarge);
  EXPECT_EQ(service->sendText("\xe4\xbd\xa0\xe5\xa5\xbd"), Result::Done);  // 你好
  EXPECT_TRUE(host->confirmOldestSend(true, std::nullopt, 0));
  EXPECT_TRUE(host->confirmOldestSend(true, std::nullopt, 0));
  EXPECT_FALSE(host->confirmOldestSend(true, std::nullopt, 0));  // two sends went out, no more
}

TEST_F(SessionApi, TheLeaveMessageFormIsCheckedBeforeAnythingIsSent) {
  auto simulator = desk(R"({"end": {}})");
  service = open(simulator->deskId());
  auto check = service->leaveMessage({{"name", "Mei"}, {"phone", "123"}});
  EXPECT_EQ(check.result, Result::InvalidForm);
  EXPECT_EQ(check.fieldErrors,
            (std::map<std::string, std::string>{{"phone", "mobile"}, {"content", "required"}}));
  check = service->leaveMessage(
      {{"name", std::string(21, 'x')}, {"phone", "13800000000"}, {"content", "call me"}});
  EXPECT_EQ(check.fieldErrors, (std::map<std::string, std::string>{{"name", "too long"}}));
  check =
      service->leaveMessage({{"name", "梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅梅"},  // 20 characters
                             {"phone", "13800000000"},
                             {"content", "call me"},
                             {"extra", 1}});
  EXPECT_EQ(check.result, Result::Done);
  host->settle();
  EXPECT_EQ(simulator->bodiesOf("KX:CsLM").size(), 1u);
  ASSERT_EQ(recorder->left.size(), 1u);
  EXPECT_EQ(recorder->left[0].rfind("sent ", 0), 0u);
}

// Each verification the form knows, through leaveMessage(): what passes and what fails.
TEST_F(SessionApi, EachFormVerificationAcceptsAndRefuses) {
  const struct {
    const char* verification;
    const char* value;
    bool passes;
  } cases[] = {
      {"mobile", "13800000000", true}, {"mobile", "23800000000", false},
      {"mobile", "1380000000", false}, {"phone", "+86 10-1234 5678", true},
      {"phone", "12", false},          {"phone", "call me", false},
      {"tel", "010 12345678", true},   {"email", "mei@shop.example", true},
      {"email", "mei@shop", false},    {"email", "me i@shop.example", false},
      {"number", "0042", true},        {"number", "4.2", false},
      {"postcode", "anything", true},  // a check the library does not know passes
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.verification) + " " + c.value);
    const std::string profile = std::string(R"({"leaveMessage": {"fields": [{"name": "f",
        "verification": ")") + c.verification +
                                R"("}]}})";
    auto simulator = desk(profile.c_str());
    service = open(simulator->deskId());
    const auto check = service->leaveMessage({{"f", c.value}});
    EXPECT_EQ(check.result == Result::Done, c.passes);
    if (!c.passes) {
      EXPECT_EQ(check.fieldErrors.at("f"), c.verification);
    }
    service->end();
    host->settle();
  }
}

// The loopback host has one peer: this one hands each message to the desk it is addressed to.
class DeskRouter : public QuorLoopbackPeer {
 public:
  void onMessageFromClient(const QuorWireMessage& message) override {
    for (const auto& desk : desks) {
      if (desk->deskId() == message.targetId) desk->onMessageFromClient(message);
    }
  }
  std::vector<std::shared_ptr<QuorDeskSimulator>> desks;
};

TEST_F(SessionApi, TwoDesksAtOnceAndAnObserverReleasedEarly) {
  auto first = desk(R"({"deskId": "shop-a"})");
  auto second = desk(R"({"deskId": "shop-b", "serviceType": 1})");
  auto router = std::make_shared<DeskRouter>();
  router->desks = {first, second};
  host->connectPeer(router);
  auto other = std::make_shared<Recorder>();
  auto a = KXCSService::make("shop-a", recorder);
  auto b = KXCSService::make("shop-b", other);
  a->start(nullptr);
  b->start(nullptr);
  host->settle();
  EXPECT_EQ(a->status().state, KXCSServiceState::Robot);
  EXPECT_TRUE(a->status().canAskForAgent);
  EXPECT_EQ(b->status().state, KXCSServiceState::Robot);
  EXPECT_FALSE(b->status().canAskForAgent);

  other.reset();  // the app let its screen go: nothing reaches it, nothing breaks
  second->endService("bye");
  host->settle();
  EXPECT_EQ(b->status().state, KXCSServiceState::Ended);
  EXPECT_EQ(a->status().state, KXCSServiceState::Robot);
  a.reset();  // destroying a running service stops it
  host->settle();
  EXPECT_TRUE(first->suspended());
}

TEST_F(SessionApi, TypingAndReadTravelOnlyWhileTheServiceRuns) {
  auto simulator = desk(R"({"evaluation": null})");
  service = KXCSService::make(simulator->deskId(), recorder);
  const auto deskId = simulator->deskId();
  auto& module = host->loadExtensionModule();
  EXPECT_EQ(service->setTyping(true), Result::NotConnected);
  service->start(nullptr);
  host->settle();
  recorder->takeLines();
  const auto told = [&] { return host->typingTold(); };

  // The customer types on and on: the desk hears it once; a stop once; typing again at once is
  // within the interval and stays quiet; a sent line needs no stop.
  for (int key = 0; key < 50; ++key) ASSERT_EQ(service->setTyping(true), Result::Done);
  EXPECT_THAT(told(), ElementsAre(deskId + " typing"));
  service->setTyping(false);
  service->setTyping(false);
  service->setTyping(true);
  service->sendText("where is my order");
  host->settle();
  EXPECT_THAT(told(), ElementsAre(deskId + " typing", deskId + " stopped"));

  recorder->takeLines();
  const auto unread = service->unreadCount();
  const auto stored = host->conversation(deskId).size();

  // The desk types (told once per change) until its line arrives.
  module.notifyTypingStatus(KXConversationTypeCustomerService, deskId, true);
  module.notifyTypingStatus(KXConversationTypeCustomerService, deskId, true);
  host->settle();
  service->sendText("and my refund");
  host->settle();
  EXPECT_THAT(recorder->takeLines(),
              ElementsAre("desk typing", "4 Customer: and my refund", "4 Sent", "desk stopped",
                          "5 Robot: Returns are free within 30 days. An agent can start one for "
                          "you.",
                          "unread " + std::to_string(unread + 1)));

  // The desk read the second line: both lines are Read, once; unknown ids change nothing.
  module.notifyReadReceipt(KXConversationTypeCustomerService, deskId, 424242);
  module.notifyReadReceipt(KXConversationTypeCustomerService, deskId, recorder->idOf[4]);
  module.notifyReadReceipt(KXConversationTypeCustomerService, deskId, recorder->idOf[2]);
  module.notifyReadReceipt(KXConversationTypeCustomerService, "another-desk", recorder->idOf[4]);
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("2 Read", "4 Read"));
  EXPECT_EQ(service->unreadCount(), unread + 1) << "typing and receipts are not lines";
  EXPECT_EQ(host->conversation(deskId).size(), stored + 1) << "nor stored";

  // The service ends while the desk types: its typing ends too; afterwards nothing travels.
  module.notifyTypingStatus(KXConversationTypeCustomerService, deskId, true);
  host->settle();
  service->setTyping(true);
  service->end();
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("desk typing", "desk stopped"));
  EXPECT_EQ(service->setTyping(true), Result::NotConnected);
  module.notifyTypingStatus(KXConversationTypeCustomerService, deskId, true);
  service->sendText("late");
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre());
  EXPECT_EQ(told().size(), 2u);
}

// This process's own directory for the files of a test, emptied when the test ends.
std::string filesDirectory() {
  return ::testing::TempDir() + "/quor-cs-files-" + std::to_string(::getpid());
}

// A file of `bytes` in that directory.
std::string fileWith(const std::string& name, const std::string& bytes) {
  std::filesystem::create_directories(filesDirectory());
  const std::string path = filesDirectory() + "/" + name;
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

// A PNG's signature and header (640 x 480), padded to `size` bytes.
std::string pngOf(std::size_t size) {
  std::string png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x02\x80\0\0\x01\xe0", 24);
  png.resize(size, 'x');
  return png;
}

TEST_F(SessionApi, FilesGoUpWithProgressComeDownOnDemandAndRefusalsComeAtOnce) {
  auto simulator = desk(R"({"evaluation": null, "files": null})");  // no receipts
  service = open(simulator->deskId());
  recorder->takeLines();
  struct Cleanup {
    ~Cleanup() { std::filesystem::remove_all(filesDirectory()); }
  } cleanup;
  const std::string picture = fileWith("parcel.png", pngOf(200 * 1000));
  EXPECT_EQ(service->sendFile({picture, "", ""}), Result::FilesNotOffered);
  host->setMaxFileBytes(300 * 1000);
  EXPECT_EQ(KXCSService::maxFileBytes(), 300u * 1000);

  const struct {
    KXCSFileToSend file;
    Result result;
  } refused[] = {
      {{"", "", ""}, Result::FileUnreadable},
      {{filesDirectory(), "", ""}, Result::FileUnreadable},
      {{fileWith("empty.png", ""), "", ""}, Result::FileUnreadable},
      {{fileWith("huge.png", pngOf(300 * 1000 + 1)), "", ""}, Result::TooLarge},
      {{picture, "", "image/svg+xml"}, Result::TypeNotAccepted},
      {{fileWith("page.png", "<html><script>"), "", ""}, Result::TypeNotAccepted},
      {{picture, "\xff.png", ""}, Result::InvalidText},
  };
  for (const auto& each : refused) {
    SCOPED_TRACE(each.file.path + " " + each.file.mimeType);
    EXPECT_EQ(service->sendFile(each.file), each.result);
  }
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre()) << "nothing was sent";

  // A picture: its type and pixel size from its bytes, its progress, one outcome; the host
  // keeps its bytes.
  ASSERT_EQ(service->sendFile({picture, "parcel.png", ""}), Result::Done);
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("2 Customer: file parcel.png image/png 640x480",
                                                 "2 moved 200000", "2 Sent"));
  EXPECT_EQ(host->fileAt("loopback://files/1"), pngOf(200 * 1000));

  // Cancelled while it waits: Failed, once; a retry uploads it again.
  host->holdUploads(true);
  ASSERT_EQ(service->sendFile({picture, "parcel.png", "image/png"}), Result::Done);
  EXPECT_EQ(service->cancelFile(3), Result::Done);
  EXPECT_EQ(service->cancelFile(99), Result::NoSuchFile);
  host->holdUploads(false);
  host->settle();
  EXPECT_THAT(recorder->takeLines(),
              ElementsAre("3 Customer: file parcel.png image/png 640x480", "3 Failed"));
  EXPECT_EQ(service->retry(3), Result::Done);
  host->settle();
  EXPECT_THAT(recorder->takeLines(), ElementsAre("3 Sending", "3 moved 200000", "3 Sent"));

  // The desk's files come as lines and are fetched only when asked, into the cache, under a
  // safe name; a "picture" whose bytes are a page is not shown as a picture.
  const std::string cache = filesDirectory() + "/cache";
  host->setFileCacheDirectory(cache);
  const auto deskFile = [&](const std::string& name, const std::string& type,
                            const std::string& bytes) {
    KXFileMessage file;
    file.setName(name);
    file.setMimeType(type);
    file.setSize(bytes.size());
    file.setUrl(host->keepFile(bytes));
    QuorWireMessage message;
    message.objectName = "KX:FileMsg";
    message.targetId = simulator->deskId();
    message.senderUserId = simulator->deskId();
    message.body = file.encode();
    host->receive(message);
    host->settle();
  };
  deskFile("../../invoice.gif", "image/gif", std::string("GIF89a\x02\0\x03\0rest", 14));
  deskFile("cat.png", "image/png", "<svg onload=alert(1)>");
  EXPECT_THAT(recorder->takeLines(),
              ElementsAre("4 Robot: file ../../invoice.gif image/gif 0x0", "unread 2",
                          "5 Robot: file cat.png image/png 0x0", "unread 3"));
  EXPECT_FALSE(std::filesystem::exists(cache));
  EXPECT_EQ(service->downloadFile(2), Result::NoSuchFile);  // the customer's own
  EXPECT_EQ(service->downloadFile(4), Result::Done);
  EXPECT_EQ(service->downloadFile(5), Result::Done);
  host->settle();
  EXPECT_THAT(recorder->takeLines(),
              ElementsAre("4 moved 14", "4 downloaded image/gif 0", "5 moved 21",
                          "5 downloaded application/octet-stream 0"));
  EXPECT_EQ(std::filesystem::path(recorder->saved[4]).parent_path(), cache);
  EXPECT_NE(recorder->saved[4].find("invoice.gif"), std::string::npos);

  // The bytes, not the name, give a file's type and pixel size.
  service->setAcceptedFileTypes({"image/*", "application/pdf"});
  const auto bytes = [](std::initializer_list<int> values) {
    std::string made;
    for (int value : values) made += static_cast<char>(value);
    return made;
  };
  // A JPEG with one segment before its frame (300 high, 400 wide), a WebP of the extended kind.
  const std::string jpeg = bytes({0xFF, 0xD8, 0xFF, 0xE0, 0,    4, 0, 0, 0xFF, 0xC0, 0, 17,
                                  8,    1,    0x2C, 1,    0x90, 3, 0, 0, 0,    0,    0, 0});
  const std::string webp = "RIFF" + bytes({0, 0, 0, 0}) + "WEBPVP8X" +
                           bytes({10, 0, 0, 0, 0, 0, 0, 0, 99, 0, 0, 49, 0, 0, 0, 0});
  const struct {
    std::string name;
    std::string bytes;
    std::string seen;  // "" refused
  } files[] = {
      {"a.png", pngOf(100), "image/png 640x480"},
      {"a.txt", jpeg, "image/jpeg 400x300"},
      {"a.jpg", std::string("GIF89a\x10\0\x20\0", 10) + "rest", "image/gif 16x32"},
      {"a", webp, "image/webp 100x50"},
      {"a.png", "%PDF-1.7", "application/pdf 0x0"},
      {"a.png", "\x89PNG", ""},  // a signature cut short
      {"a.gif", "GIF", ""},
  };
  for (const auto& file : files) {
    SCOPED_TRACE(file.seen);
    const Result result = service->sendFile({fileWith(file.name, file.bytes), "", ""});
    EXPECT_EQ(result, file.seen.empty() ? Result::TypeNotAccepted : Result::Done);
    host->settle();
    if (file.seen.empty()) continue;
    const auto lines = recorder->takeLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.front(), ::testing::EndsWith("file " + file.name + " " + file.seen));
  }
}

}  // namespace
}  // namespace quor
