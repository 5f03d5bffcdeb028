// The app's life cycle over real servers: in the background customer-service messages and the
// confirmations of sends still flow; suspended, each desk answer wakes the device with one push
// notification naming the desk, and nothing else does; back in the foreground the session
// resumes (no new login) with everything the desk sent meanwhile, once. And quor-cs-push, the
// program, hands each notification on to a command or an endpoint.
#include <httplib.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <thread>

#include "QuorLoopbackHost/QuorRecordingModule.h"
#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorPushService/QuorPushService.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

using Clock = std::chrono::steady_clock;

class XmppPush : public XmppOnEachServer {
 protected:
  void SetUp() override {
    XmppOnEachServer::SetUp();
    if (HasFatalFailure()) return;
    QuorPushService::Options options;
    options.port = static_cast<uint16_t>(server->componentPort());
    options.domain = server->pushDomain();
    options.componentSecret = server->componentSecret();
    push = std::make_unique<QuorPushService>(options, [this](const QuorPushNotification& note) {
      std::lock_guard<std::mutex> lock(mutex);
      notifications.push_back(note);
    });
    push->start();
    ASSERT_TRUE(push->waitUntilOnline(kPatience));
  }

  void TearDown() override {
    if (phone) phone->logout();
    phone.reset();
    deskAccount.reset();
    push.reset();
    XmppOnEachServer::TearDown();
  }

  // Alice's phone: registered for push with `token`, recording the desk's texts it receives.
  void startPhone(const std::string& token) {
    QuorXmppOptions options = accountOptions("alice", "alice-pw");
    options.push = {server->pushDomain(), "", token, ""};
    phone = bareHost("alice", &options);
    phone->setWireObserver([this](const QuorXmppPayload& payload, bool fromClient) {
      std::lock_guard<std::mutex> lock(mutex);
      if (!fromClient) arrived.push_back(payload.body.value_or(""));
    });
    ASSERT_TRUE(phone->waitUntilOnline(kPatience));
  }

  // The desk's account, writing customer-service messages to Alice and counting hers (with the
  // stanza ids they came under).
  QuorXmppHost& desk() {
    if (!deskAccount) {
      const QuorXmppOptions options = accountOptions(deskLocalPart(), "desk-pw");
      deskAccount = bareHost(deskLocalPart(), &options);
      deskAccount->setWireObserver([this](const QuorXmppPayload& payload, bool fromClient) {
        if (fromClient) return;
        std::lock_guard<std::mutex> lock(mutex);
        deskStanzas.push_back(payload.stanzaId);
        ++deskHeard;
      });
      EXPECT_TRUE(deskAccount->waitUntilOnline(kPatience));
    }
    return *deskAccount;
  }
  void deskSends(const std::string& objectName, const std::string& body) {
    QuorXmppPayload payload;
    payload.peer = server->jid("alice");
    payload.objectName = objectName;
    payload.body = body;
    desk().connection().send(payload, nullptr);
  }
  void deskSays(const std::string& text) {
    deskSends("KX:TxtMsg", "{\"content\":\"" + text + "\"}");
  }

  // An app's host of Alice, as an app makes it: texts are stored, control messages held by the
  // module.
  std::shared_ptr<QuorXmppHost> appHost() {
    QuorXmppHost::Options options;
    options.connection = accountOptions("alice", "alice-pw");
    auto made = QuorXmppHost::create(options, nullptr);
    made->setLogSink(nullptr, 0);
    made->install();
    made->loadExtensionModule();
    made->connect();
    return made;
  }
  // The stored conversation with the desk, oldest first: "sent TEXT" or "received TEXT".
  static std::vector<std::string> linesOf(const QuorXmppHost& host) {
    std::vector<std::string> seen;
    for (const auto& entry : host.history("quor-shop")) {
      seen.insert(
          seen.begin(),
          (entry.message->messageDirection() == KXMessageDirectionSend ? "sent " : "received ") +
              textOf(entry.message));
    }
    return seen;
  }

  template <typename Done>
  static bool waitFor(Done done, std::chrono::milliseconds patience) {
    const auto end = Clock::now() + patience;
    while (!done()) {
      if (Clock::now() >= end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }
  std::size_t notified() {
    std::lock_guard<std::mutex> lock(mutex);
    return notifications.size();
  }
  std::size_t heard() {
    std::lock_guard<std::mutex> lock(mutex);
    return arrived.size();
  }

  std::mutex mutex;
  // Modules the hosts below may call until they are gone.
  QuorRecordingModule appSignals, deskSignals;
  std::vector<QuorPushNotification> notifications;
  std::vector<std::string> arrived;
  std::atomic<int> deskHeard{0};
  std::vector<std::string> deskStanzas;  // under mutex
  std::unique_ptr<QuorPushService> push;
  std::shared_ptr<QuorXmppHost> phone;
  std::shared_ptr<QuorXmppHost> deskAccount;
};

TEST_P(XmppPush, InTheBackgroundSendsAreConfirmedAndTheDeskIsHeardAtOnce) {
  startPhone("token-1");
  phone->setAppState(QuorAppState::Background);
  Outcomes& outcomes = track();
  const auto sent = Clock::now();
  QuorXmppPayload question;
  question.peer = QuorDeskJid::toJid("quor-shop", server->domain());
  question.objectName = "KX:TxtMsg";
  question.body = std::string("{\"content\":\"still there?\"}");
  phone->connection().send(question, [&outcomes](int64_t code, int64_t) {
    std::lock_guard<std::mutex> lock(outcomes.mutex);
    if (code == 0)
      ++outcomes.succeeded;
    else
      outcomes.failed.push_back(code);
  });
  ASSERT_TRUE(waitFor([&] { return outcomes.reported() == 1; }, kPatience));
  EXPECT_EQ(outcomes.succeeded, 1);
  EXPECT_LT(Clock::now() - sent, std::chrono::seconds(2));

  const auto asked = Clock::now();
  deskSays("yes");
  ASSERT_TRUE(waitFor([&] { return heard() == 1; }, kPatience));
  EXPECT_LT(Clock::now() - asked, std::chrono::seconds(2));
  // The app is connected: nothing to push.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(notified(), 0u);
}

TEST_P(XmppPush, ASuspendedAppIsWokenOncePerDeskAnswerAndResumesWithEverything) {
  startPhone("token-1");
  const auto before = phone->connection().traffic();
  // The app's last send goes out just before the system freezes it: its confirmation may reach
  // the sleeping session, and wakes nobody.
  QuorXmppPayload question;
  question.peer = QuorDeskJid::toJid("quor-shop", server->domain());
  question.objectName = "KX:TxtMsg";
  question.body = std::string("{\"content\":\"my parcel?\"}");
  phone->connection().send(question, nullptr);
  phone->setAppState(QuorAppState::Suspended);
  ASSERT_TRUE(
      waitFor([&] { return phone->connectionStatus() == QuorXmppConnectionStatus::Disconnected; },
              kPatience));

  for (int answer = 1; answer <= 2; ++answer) {
    const auto asked = Clock::now();
    deskSays("answer " + std::to_string(answer));
    ASSERT_TRUE(waitFor([&] { return notified() == static_cast<std::size_t>(answer); },
                        std::chrono::seconds(5)))
        << "answer " << answer;
    EXPECT_LT(Clock::now() - asked, std::chrono::seconds(2)) << "answer " << answer;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  ASSERT_EQ(notified(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    const QuorPushNotification& note = notifications[i];
    EXPECT_EQ(note.account, "alice@localhost");
    EXPECT_EQ(note.deskId, "quor-shop");
    EXPECT_EQ(note.deskJid, QuorDeskJid::toJid("quor-shop", "localhost"));
    EXPECT_EQ(note.token, "token-1");
    EXPECT_EQ(note.node, phone->connection().resource());
    EXPECT_EQ(note.unread, static_cast<int64_t>(i + 1));
    QuorPushNotification read;
    ASSERT_TRUE(QuorPushNotification::fromJson(note.toJson(), &read));
    EXPECT_EQ(read.deskId, "quor-shop");
  }
  EXPECT_EQ(heard(), 0u);

  // Back in the foreground: the session resumes, both answers arrive once, and a desk answer to
  // a live app wakes nobody.
  phone->setAppState(QuorAppState::Foreground);
  ASSERT_TRUE(phone->waitUntilOnline(kPatience));
  ASSERT_TRUE(waitFor([&] { return heard() == 2; }, kPatience));
  const auto after = phone->connection().traffic();
  EXPECT_EQ(after.logins, before.logins);
  EXPECT_EQ(after.resumptions, before.resumptions + 1);
  deskSays("answer 3");
  ASSERT_TRUE(waitFor([&] { return heard() == 3; }, kPatience));
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(notified(), 2u);
  EXPECT_EQ(heard(), 3u);
}

TEST_P(XmppPush, ADeviceCatchesUpFromTheArchiveWhatAnotherDeviceTook) {
  // The phone stays online; the tablet keeps its store between its logins.
  startPhone("token-1");
  std::mutex tabletMutex;
  std::vector<std::string> tabletHeard;
  const std::string tabletStore = storePath("tablet");
  const auto tablet = [&] {
    QuorXmppHost::Options options;
    options.connection = accountOptions("alice", "alice-pw");
    options.storePath = tabletStore;
    auto made = QuorXmppHost::create(options, nullptr);
    made->setLogSink(nullptr, 0);
    made->setWireObserver([&](const QuorXmppPayload& payload, bool fromClient) {
      std::lock_guard<std::mutex> lock(tabletMutex);
      if (!fromClient) tabletHeard.push_back(payload.body.value_or(""));
    });
    made->connect();
    return made;
  };
  const auto tabletCount = [&] {
    std::lock_guard<std::mutex> lock(tabletMutex);
    return tabletHeard.size();
  };
  auto first = tablet();
  ASSERT_TRUE(first->waitUntilOnline(kPatience));
  deskSays("one");
  ASSERT_TRUE(waitFor([&] { return tabletCount() == 1 && heard() == 1; }, kPatience));
  first->logout();
  first.reset();

  // While the tablet is away the phone takes everything: the server keeps no offline copy.
  for (const char* text : {"two", "three"}) deskSays(text);
  ASSERT_TRUE(waitFor([&] { return heard() == 3; }, kPatience));

  auto second = tablet();
  ASSERT_TRUE(second->waitUntilOnline(kPatience));
  ASSERT_TRUE(waitFor([&] { return tabletCount() == 3; }, kPatience));
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  {
    std::lock_guard<std::mutex> lock(tabletMutex);
    EXPECT_EQ(tabletHeard,
              (std::vector<std::string>{"{\"content\":\"one\"}", "{\"content\":\"two\"}",
                                        "{\"content\":\"three\"}"}));
  }
  second->logout();
}

TEST_P(XmppPush, AnAppInstalledAgainGetsItsConversationAndTheServiceBack) {
  startPhone("token-1");
  QuorXmppPayload question;
  question.peer = QuorDeskJid::toJid("quor-shop", server->domain());
  question.objectName = "KX:TxtMsg";
  question.body = std::string("{\"content\":\"my parcel?\"}");
  phone->connection().send(question, nullptr);
  deskSends("KX:CsHsR", "{\"status\":1,\"data\":{\"serviceType\":2}}");
  deskSays("on its way");
  ASSERT_TRUE(waitFor([&] { return heard() == 2 && deskHeard == 1; }, kPatience));
  EXPECT_EQ(phone->lastServiceState("quor-shop"), KXCSServiceState::Agent);
  phone->logout();
  phone.reset();

  // Installed again: an empty store reads the account's archive from its start.
  phone = appHost();
  const auto lines = [&] { return linesOf(*phone); };
  ASSERT_TRUE(waitFor([&] { return lines().size() == 2; }, kPatience))
      << ::testing::PrintToString(lines());
  EXPECT_THAT(lines(), ::testing::ElementsAre("sent my parcel?", "received on its way"));
  ASSERT_TRUE(waitFor(
      [&] { return phone->lastServiceState("quor-shop") == KXCSServiceState::Agent; }, kPatience));
  // The desk ends the service: the record follows what comes live too.
  deskSends("KX:CsEnd", "{\"code\":0}");
  EXPECT_TRUE(waitFor(
      [&] { return phone->lastServiceState("quor-shop") == KXCSServiceState::Ended; }, kPatience));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(lines().size(), 2u);
  EXPECT_EQ(deskHeard, 1) << "the installed app sent nothing again";
}

TEST_P(XmppPush, TwoDevicesOfTheAccountShowTheSameConversationAndReadIt) {
  auto phoneApp = appHost();
  auto tablet = appHost();
  QuorRecordingModule phoneHeard, tabletHeard;
  phoneApp->loadExtensionModule(phoneHeard);
  tablet->loadExtensionModule(tabletHeard);
  std::atomic<int> tabletShown{0};
  tablet->addMessageListener([&](const std::shared_ptr<KXMessage>&) { ++tabletShown; });
  ASSERT_TRUE(phoneApp->waitUntilOnline(kPatience) && tablet->waitUntilOnline(kPatience));
  // Each device's own line and the desk's answer, on both (the other's line through carbons).
  phoneApp->sendMessage(KXConversationTypeCustomerService, std::string("quor-shop"),
                        KXTextMessage::messageWithContent(std::string("from the phone")),
                        std::nullopt, std::nullopt, nullptr, nullptr);
  ASSERT_TRUE(waitFor([&] { return linesOf(*tablet).size() == 1; }, kPatience));
  tablet->sendMessage(KXConversationTypeCustomerService, std::string("quor-shop"),
                      KXTextMessage::messageWithContent(std::string("from the tablet")),
                      std::nullopt, std::nullopt, nullptr, nullptr);
  ASSERT_TRUE(waitFor([&] { return linesOf(*phoneApp).size() == 2; }, kPatience));
  deskSays("hello both");
  const std::vector<std::string> conversation = {"sent from the phone", "sent from the tablet",
                                                 "received hello both"};
  EXPECT_TRUE(waitFor(
      [&] { return linesOf(*phoneApp) == conversation && linesOf(*tablet) == conversation; },
      kPatience))
      << ::testing::PrintToString(linesOf(*phoneApp)) << ::testing::PrintToString(linesOf(*tablet));
  // The tablet's listeners saw the phone's line and the answer; the main queue runs them.
  const auto end = Clock::now() + kPatience;
  while (tabletShown < 2 && Clock::now() < end) tablet->mainRunLoop().runOnce(kPatience / 100);
  EXPECT_EQ(tabletShown, 2);
  // Read on the phone: the tablet hears it (a read marker's carbon copy); the phone does not.
  phoneApp->markConversationRead(KXConversationTypeCustomerService, std::string("quor-shop"));
  EXPECT_TRUE(waitFor([&] { return !tabletHeard.read().empty(); }, kPatience));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_THAT(tabletHeard.read(), ::testing::ElementsAre("5 quor-shop"));
  EXPECT_THAT(phoneHeard.read(), ::testing::IsEmpty());
  phoneApp->logout();
  tablet->logout();
}

TEST_P(XmppPush, TypingAndReadMarkersTravelBothWaysAndAreNeverLines) {
  phone = appHost();
  phone->loadExtensionModule(appSignals);
  desk().loadExtensionModule(deskSignals);
  ASSERT_TRUE(phone->waitUntilOnline(kPatience));
  const std::string alice = server->jid("alice");

  // The customer types, then stops: the desk's account hears both, in order.
  phone->sendTypingStatus(KXConversationTypeCustomerService, std::string("quor-shop"), true);
  phone->sendTypingStatus(KXConversationTypeCustomerService, std::string("quor-shop"), false);
  EXPECT_TRUE(waitFor([&] { return deskSignals.signals().size() == 2; }, kPatience));
  EXPECT_THAT(deskSignals.signals(), ::testing::ElementsAre("alice typing", "alice stopped"));

  // The customer's line reaches the desk; the desk types and then reads it.
  std::atomic<int64_t> sentId{0};
  phone->sendMessage(
      KXConversationTypeCustomerService, std::string("quor-shop"),
      KXTextMessage::messageWithContent(std::string("my parcel?")), std::nullopt, std::nullopt,
      [&](int64_t id) { sentId = id; }, nullptr);
  ASSERT_TRUE(waitFor([&] { return sentId != 0 && deskHeard == 1; }, kPatience));
  desk().connection().sendChatState(alice, true);
  std::string stanzaId;
  {
    std::lock_guard<std::mutex> lock(mutex);
    stanzaId = deskStanzas.back();
  }
  desk().connection().sendReadMarker(alice, "an id nobody sent");
  desk().connection().sendReadMarker(alice, stanzaId);
  const std::vector<std::string> heard = {"quor-shop typing",
                                          "quor-shop read " + std::to_string(sentId)};
  EXPECT_TRUE(waitFor([&] { return appSignals.signals() == heard; }, kPatience))
      << ::testing::PrintToString(appSignals.signals());
  // Neither is a line of the conversation, nor offered to the modules as a message.
  EXPECT_THAT(linesOf(*phone), ::testing::ElementsAre("sent my parcel?"));
  EXPECT_THAT(appSignals.offered(), ::testing::IsEmpty());
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppPush);

}  // namespace
}  // namespace quor::test

namespace quor::test {
namespace {

// quor-cs-push, the program: each desk answer to a sleeping app reaches the deployer's command
// and endpoint once, as the notification's JSON.
class XmppPushProgram : public XmppFixture {
 protected:
  std::unique_ptr<QuorChildProcess> startProgram(const std::vector<std::string>& relay) {
    std::vector<std::string> arguments = {"env",
                                          "QUOR_CS_PUSH_SECRET=" + server->componentSecret(),
                                          QUOR_CS_PUSH_PROGRAM,
                                          "--domain",
                                          server->pushDomain(),
                                          "--port",
                                          std::to_string(server->componentPort())};
    arguments.insert(arguments.end(), relay.begin(), relay.end());
    std::string error;
    auto program = QuorChildProcess::start(arguments, output_, &error);
    EXPECT_TRUE(program) << error;
    if (program) {
      EXPECT_TRUE(program->waitForOutput("quor-cs-push: serving as " + server->pushDomain(), 0,
                                         kPatience, &error))
          << error;
    }
    return program;
  }

  // Alice's phone, suspended, and one desk answer to it.
  void answerASleepingPhone() {
    QuorXmppOptions options = accountOptions("alice", "alice-pw");
    options.push = {server->pushDomain(), "phone-1", "token-1", ""};
    auto phone = bareHost("alice", &options);
    ASSERT_TRUE(phone->waitUntilOnline(kPatience));
    phone->setAppState(QuorAppState::Suspended);
    while (phone->connectionStatus() == QuorXmppConnectionStatus::Connected) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const QuorXmppOptions deskOptions = accountOptions(deskLocalPart(), "desk-pw");
    auto deskAccount = bareHost(deskLocalPart(), &deskOptions);
    ASSERT_TRUE(deskAccount->waitUntilOnline(kPatience));
    QuorXmppPayload payload;
    payload.peer = server->jid("alice");
    payload.objectName = "KX:TxtMsg";
    payload.body = std::string("{\"content\":\"it ships today\"}");
    deskAccount->connection().send(payload, nullptr);
    phones_.push_back(phone);
    phones_.push_back(deskAccount);
  }

  void TearDown() override {
    for (auto& made : phones_) made->logout();
    phones_.clear();
    XmppFixture::TearDown();
  }

  std::string output_ = ::testing::TempDir() + "/push-" + std::to_string(::getpid()) + ".out";
  std::vector<std::shared_ptr<QuorXmppHost>> phones_;
};

void expectOneNotificationIn(const std::string& text) {
  ASSERT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  QuorPushNotification read;
  ASSERT_TRUE(QuorPushNotification::fromJson(text, &read)) << text;
  EXPECT_EQ(read.deskId, "quor-shop");
  EXPECT_EQ(read.node, "phone-1");
  EXPECT_EQ(read.token, "token-1");
  EXPECT_EQ(read.unread, 1);
}

TEST_F(XmppPushProgram, HandsANotificationToACommandOnItsInput) {
  const std::string received =
      ::testing::TempDir() + "/push-command-" + std::to_string(::getpid()) + ".json";
  std::filesystem::remove(received);
  auto program = startProgram({"--command", "cat >> '" + received + "'"});
  ASSERT_TRUE(program);
  answerASleepingPhone();
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (QuorChildProcess::readFile(received).empty() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  expectOneNotificationIn(QuorChildProcess::readFile(received));
  program->stop(SIGTERM, std::chrono::seconds(5));
  EXPECT_NE(QuorChildProcess::readFile(output_).find("stopped after 1 notifications"),
            std::string::npos);
  std::filesystem::remove(received);
  std::filesystem::remove(output_);
}

TEST_F(XmppPushProgram, PostsANotificationToAnEndpoint) {
  httplib::Server endpoint;
  std::mutex mutex;
  std::string posted;
  std::string type;
  endpoint.Post("/push", [&](const httplib::Request& request, httplib::Response& response) {
    std::lock_guard<std::mutex> lock(mutex);
    posted += request.body + "\n";
    type = request.get_header_value("Content-Type");
    response.status = 204;
  });
  const int port = endpoint.bind_to_any_port("127.0.0.1");
  std::thread serving([&] { endpoint.listen_after_bind(); });
  auto program = startProgram({"--post", "http://127.0.0.1:" + std::to_string(port) + "/push"});
  answerASleepingPhone();
  const auto end = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (!posted.empty() || std::chrono::steady_clock::now() >= end) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  endpoint.stop();
  serving.join();
  expectOneNotificationIn(posted);
  EXPECT_EQ(type, "application/json");
  std::filesystem::remove(output_);
}

}  // namespace
}  // namespace quor::test
