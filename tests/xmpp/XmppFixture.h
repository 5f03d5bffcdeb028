// A private server with a desk and a customer on it: the fixture of the XMPP host's tests.
#pragma once

#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppDesk/QuorXmppDesk.h"
#include "QuorXmppHost/QuorDeskJid.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace quor::test {

constexpr auto kPatience = std::chrono::seconds(10);

// What the application saw: callbacks and shown messages, in order, as texts.
struct AppView {
  std::vector<std::string> events;
  std::vector<std::string> shown;
  KXCustomerServiceGroupList groups;
  KXString dialog;
};

// A shown message as text: a text's content, a notice as "notice: ...", else "[object name]".
inline std::string textOf(const std::shared_ptr<KXMessage>& message) {
  if (auto* text = dynamic_cast<KXTextMessage*>(message->content().get())) {
    return text->content().value_or("");
  }
  if (auto* notice = dynamic_cast<KXInformationNotificationMessage*>(message->content().get())) {
    return "notice: " + notice->message().value_or("");
  }
  return "[" + message->objectName().value_or("") + "]";
}

// The outcomes of sends: how many succeeded, and the codes of those that failed.
struct Outcomes {
  std::atomic<int> succeeded{0};
  std::mutex mutex;
  std::vector<int64_t> failed;

  int reported() {
    std::lock_guard<std::mutex> lock(mutex);
    return succeeded + static_cast<int>(failed.size());
  }
};

inline void sendCounted(QuorXmppHost& on, const std::string& text, Outcomes& outcomes,
                        const std::string& deskId = "quor-shop") {
  on.sendMessage(
      KXConversationTypeCustomerService, deskId, KXTextMessage::messageWithContent(text),
      std::nullopt, std::nullopt, [&outcomes](int64_t) { ++outcomes.succeeded; },
      [&outcomes](int64_t code, int64_t) {
        std::lock_guard<std::mutex> lock(outcomes.mutex);
        outcomes.failed.push_back(code);
      });
}

class XmppFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    QuorPrivateServer::Options options;
    options.accounts = {{"alice", "alice-pw"},
                        {"bob", "bob-pw"},
                        {deskLocalPart(), "desk-pw"},
                        {"python-desk", "python-pw"}};
    std::string error;
    server = QuorPrivateServer::start(options, &error);
    ASSERT_TRUE(server) << error;
  }

  void TearDown() override {
    if (host) host->logout();
    QuorHostBase::uninstall();
    host.reset();
    desk.reset();
    server.reset();
    for (const auto& path : stores_) removeStore(path);
  }

  // A store file of this test's own, removed (with SQLite's side files) when the test ends.
  std::string storePath(const std::string& name) {
    stores_.push_back(::testing::TempDir() + "/" + name + "-" + std::to_string(::getpid()) +
                      ".sqlite");
    removeStore(stores_.back());
    return stores_.back();
  }
  static void removeStore(const std::string& path) {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
      std::filesystem::remove(path + suffix);
  }

  static std::string deskLocalPart(const std::string& deskId = "quor-shop") {
    const std::string jid = QuorDeskJid::toJid(deskId, "localhost");
    return jid.substr(0, jid.find('@'));
  }

  QuorXmppOptions accountOptions(const std::string& user, const std::string& password) const {
    QuorXmppOptions options = server->account(user, password);
    options.reconnectFirst = std::chrono::milliseconds(50);
    options.reconnectLongest = std::chrono::milliseconds(200);
    return options;
  }

  // The desk of `profileChanges` (merged into the default profile) on the server.
  void startDesk(const char* profileChanges = "{}") {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    profile.merge_patch(KXDictionary::parse(profileChanges));
    desk = std::make_unique<QuorXmppDesk>(profile, accountOptions(deskLocalPart(), "desk-pw"));
    desk->start();
    ASSERT_TRUE(desk->waitUntilOnline(kPatience));
  }

  // A host of `user` that is not the library's: connected, quiet, nothing loaded.
  std::shared_ptr<QuorXmppHost> bareHost(const std::string& user,
                                         const QuorXmppOptions* connection = nullptr) {
    QuorXmppHost::Options options;
    options.connection = connection ? *connection : accountOptions(user, user + "-pw");
    auto made = QuorXmppHost::create(options, nullptr);
    made->setLogSink(nullptr, 0);
    made->connect();
    return made;
  }

  // A customer host, installed, with the module loaded and a listener that records into `view`.
  std::shared_ptr<QuorXmppHost> makeHost(const std::string& user, const std::string& storePath,
                                         AppView& view,
                                         const QuorXmppOptions* connection = nullptr) {
    QuorXmppHost::Options options;
    options.connection = connection ? *connection : accountOptions(user, user + "-pw");
    options.storePath = storePath;
    std::string error;
    auto made = QuorXmppHost::create(options, &error);
    EXPECT_TRUE(made) << error;
    if (!made) return nullptr;
    made->setLogSink(nullptr, 0);
    made->install();
    made->loadExtensionModule();
    made->addMessageListener([&view](const std::shared_ptr<KXMessage>& message) {
      view.shown.push_back(textOf(message));
    });
    made->connect();
    EXPECT_TRUE(made->waitUntilOnline(kPatience));
    return made;
  }

  void start(const std::string& deskId, AppView& view) {
    client.startCustomerService(
        deskId, nullptr, [&view](auto) { view.events.push_back("success"); },
        [&view](int64_t code, const std::string& text) {
          view.events.push_back("error(" + std::to_string(code) + "," + text + ")");
        },
        [&view](KXCSModeType mode) { view.events.push_back("mode(" + std::to_string(mode) + ")"); },
        [&view](const KXString& dialog) {
          view.dialog = dialog;
          view.events.push_back("rate(" + dialog.value_or("") + ")");
        },
        [&view](const KXCustomerServiceGroupList& groups) {
          view.groups = groups;
          view.events.push_back("groups(" + std::to_string(groups ? groups->size() : 0) + ")");
        },
        [&view](const std::string& text) { view.events.push_back("quit(" + text + ")"); });
  }

  void say(QuorXmppHost& on, const std::string& deskId, const std::string& text) {
    on.sendMessage(KXConversationTypeCustomerService, deskId,
                   KXTextMessage::messageWithContent(text), std::nullopt, std::nullopt, nullptr,
                   nullptr);
  }

  // Runs `on`'s main run loop until `done` holds; false after the patience ran out.
  static bool runUntil(QuorXmppHost& on, const std::function<bool()>& done,
                       std::chrono::milliseconds patience = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!done()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      on.mainRunLoop().runOnce(std::chrono::milliseconds(10));
    }
    return true;
  }
  bool runUntil(const std::function<bool()>& done) { return runUntil(*host, done); }

  // Runs the main run loop until `view` saw `count` events.
  bool eventsReach(AppView& view, std::size_t count) {
    return runUntil([&] { return view.events.size() >= count; });
  }
  bool shownReach(AppView& view, std::size_t count) {
    return runUntil([&] { return view.shown.size() >= count; });
  }

  // Outcomes live as long as the fixture: a test that stops early still has closures waiting.
  Outcomes& track() { return tracked_.emplace_back(); }

  std::unique_ptr<QuorPrivateServer> server;
  std::unique_ptr<QuorXmppDesk> desk;
  std::shared_ptr<QuorXmppHost> host;
  AppView view;
  std::vector<std::string> stores_;
  std::deque<Outcomes> tracked_;
  KXCustomerServiceClient& client = KXCustomerServiceClient::sharedCustomerServiceClient();
};

// A test run on each server software, with the accounts of alice and the desk.
class XmppOnEachServer : public XmppFixture,
                         public ::testing::WithParamInterface<QuorPrivateServer::Software> {
 protected:
  void SetUp() override {
    QuorPrivateServer::Options options;
    options.software = GetParam();
    options.accounts = {{"alice", "alice-pw"}, {deskLocalPart(), "desk-pw"}};
    configure(options);
    std::string error;
    server = QuorPrivateServer::start(options, &error);
    ASSERT_TRUE(server) << error;
  }
  // A suite's own server options.
  virtual void configure(QuorPrivateServer::Options& /*options*/) {}

 public:
  static std::string nameOf(const ::testing::TestParamInfo<QuorPrivateServer::Software>& info) {
    return info.param == QuorPrivateServer::Software::Prosody ? "Prosody" : "Ejabberd";
  }
};
#define QUOR_INSTANTIATE_ON_EACH_SERVER(Suite)                                       \
  INSTANTIATE_TEST_SUITE_P(Servers, Suite,                                           \
                           ::testing::Values(QuorPrivateServer::Software::Prosody,   \
                                             QuorPrivateServer::Software::Ejabberd), \
                           XmppOnEachServer::nameOf)

}  // namespace quor::test
