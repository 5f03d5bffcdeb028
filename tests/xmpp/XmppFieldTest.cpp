// The XMPP path in field conditions: desks that restart, links that reset, and other accounts
// that try to fail a customer's sends.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>

#include <algorithm>
#include <atomic>
#include <deque>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "QuorPrivateServer/QuorTcpProxy.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;

using XmppField = XmppFixture;

TEST_F(XmppField, ADeskThatRestartsIsHeardByTheSameAndByANewAppProcess) {
  const std::string store = storePath("restarts");
  startDesk();
  host = makeHost("alice", store, view);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2));

  // The desk program restarts: the same app hears its answers to a new start.
  startDesk();
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 4));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)", "success", "mode(3)"));
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 4));

  // The app restarts on the same store and the desk restarts again: nothing it says is lost.
  host->logout();
  QuorHostBase::uninstall();
  host.reset();
  startDesk();
  AppView later;
  host = makeHost("alice", store, later);
  start("quor-shop", later);
  ASSERT_TRUE(eventsReach(later, 2));
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(later, 2));
  EXPECT_EQ(later.shown[1], view.shown[1]);
  EXPECT_EQ(host->history("quor-shop", 0, 100).size(), 9u);  // 3 greetings, 3 questions, 3 answers
}

// Whether `on` stays connected for the whole of `period`.
bool staysConnected(QuorXmppHost& on, std::chrono::milliseconds period) {
  const auto end = std::chrono::steady_clock::now() + period;
  while (std::chrono::steady_clock::now() < end) {
    if (on.connectionStatus() != QuorXmppConnectionStatus::Connected) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

TEST_F(XmppField, TwoDevicesOfOneAccountStayOnAndAStolenResourceEndsOneLogin) {
  auto phone = bareHost("alice");
  auto tablet = bareHost("alice");
  ASSERT_TRUE(phone->waitUntilOnline(kPatience));
  ASSERT_TRUE(tablet->waitUntilOnline(kPatience));
  EXPECT_NE(phone->connection().resource(), tablet->connection().resource());
  EXPECT_TRUE(staysConnected(*phone, std::chrono::milliseconds(1500)));
  EXPECT_TRUE(staysConnected(*tablet, std::chrono::milliseconds(10)));

  // A login that binds the phone's resource ends the phone's login, which does not fight back.
  QuorXmppOptions copy = accountOptions("alice", "alice-pw");
  copy.resource = phone->connection().resource();
  auto thief = bareHost("alice", &copy);
  ASSERT_TRUE(thief->waitUntilOnline(kPatience));
  ASSERT_TRUE(runUntil(
      *phone, [&] { return phone->connectionStatus() == QuorXmppConnectionStatus::Replaced; }));
  EXPECT_TRUE(staysConnected(*thief, std::chrono::milliseconds(1500)));
  EXPECT_EQ(phone->connectionStatus(), QuorXmppConnectionStatus::Replaced);
  for (auto& on : {phone, tablet, thief}) on->logout();
}

TEST_F(XmppField, AFullStoreIsLoggedAndHeardAndTheSendsGoOn) {
  // No desk is on: the server keeps the texts for it, and nothing answers.
  const std::string store = storePath("full");
  QuorXmppHost::Options options;
  options.connection = accountOptions("alice", "alice-pw");
  options.storePath = store;
  options.storeLimitBytes = 64 * 1024;
  host = QuorXmppHost::create(options, nullptr);
  ASSERT_TRUE(host);
  std::atomic<int> errorsLogged{0};
  host->setLogSink([&](const QuorLogEntry& entry) { errorsLogged += entry.level == 2; }, 2);
  std::vector<std::string> heard;
  std::set<int64_t> lost;
  host->setStoreErrorListener(
      [&](const std::shared_ptr<KXMessage>& message, const std::string& why) {
        heard.push_back(why);
        lost.insert(message->messageId());
      });
  host->connect();
  ASSERT_TRUE(host->waitUntilOnline(kPatience));
  Outcomes& outcomes = track();
  const std::string line(1000, 'x');
  for (int i = 0; i < 200; ++i) sendCounted(*host, line, outcomes);
  ASSERT_TRUE(runUntil([&] { return outcomes.reported() == 200; }));
  EXPECT_EQ(outcomes.succeeded, 200);
  ASSERT_TRUE(runUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard[0], "database or disk is full");
  EXPECT_EQ(static_cast<int>(heard.size()), errorsLogged.load());
  const auto kept = host->history("quor-shop", 0, 1000);
  EXPECT_EQ(kept.size() + heard.size(), 200u);
  for (const auto& entry : kept) {
    EXPECT_EQ(entry.status, QuorDeliveryStatus::Sent);
    EXPECT_EQ(lost.count(entry.message->messageId()), 0u);  // a lost send's id is not reused
  }
  EXPECT_FALSE(host->resendMessage(*lost.begin(), nullptr, nullptr));
  host->logout();
}

TEST_F(XmppField, ATextTheServerCannotTakeFailsOnceAndTheLinkStaysUp) {
  startDesk();
  // The host's own limit fails it unwritten; a client that writes it anyway sees the server end
  // the stream on it, twice, and then fails it instead of keeping the link in a loop. Either
  // way it fails once, and the text after it goes out.
  for (const std::size_t limit : {QuorXmppOptions().maxSendStanzaBytes, std::size_t{10 << 20}}) {
    QuorXmppOptions options = accountOptions("alice", "alice-pw");
    options.maxSendStanzaBytes = limit;
    host = makeHost("alice", ":memory:", view, &options);
    Outcomes& big = track();
    Outcomes& innocent = track();
    sendCounted(*host, std::string(300 * 1024, 'x'), big);
    sendCounted(*host, "where is my order?", innocent);
    ASSERT_TRUE(runUntil([&] { return big.reported() == 1 && innocent.reported() == 1; }));
    EXPECT_THAT(big.failed, ElementsAre(QuorXmppErrorTooLarge)) << limit;
    EXPECT_EQ(innocent.succeeded, 1) << limit;
    EXPECT_TRUE(host->waitUntilOnline(kPatience));
    // Failed in the history (a new host also reads the account's archive: the loop's first
    // pass left sent lines there, but never the text the server did not take).
    const auto kept = host->history("quor-shop", 0, 50);
    EXPECT_EQ(std::count_if(kept.begin(), kept.end(),
                            [](const auto& entry) {
                              return entry.status == QuorDeliveryStatus::Failed &&
                                     textOf(entry.message).size() == 300 * 1024;
                            }),
              1)
        << limit;
    host->logout();
    QuorHostBase::uninstall();
  }
}

TEST_F(XmppField, AWrongPasswordIsToldOnceAndNotTriedAgain) {
  std::vector<std::string> errors;
  std::mutex mutex;
  QuorXmppHost::Options options;
  options.connection = accountOptions("alice", "not-her-password");
  auto refused = QuorXmppHost::create(options, nullptr);
  refused->setLogSink(
      [&](const QuorLogEntry& entry) {
        std::lock_guard<std::mutex> lock(mutex);
        errors.push_back(entry.text);
      },
      2);
  Outcomes& outcomes = track();
  sendCounted(*refused, "hello", outcomes);
  refused->connect();
  const auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(refused->waitUntilOnline(kPatience));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
  EXPECT_EQ(refused->connectionStatus(), QuorXmppConnectionStatus::Refused);
  ASSERT_TRUE(runUntil(*refused, [&] { return outcomes.reported() == 1; }));
  EXPECT_THAT(outcomes.failed, ElementsAre(QuorXmppErrorNotOnline));
  // A retrying host would have tried and logged again within its first reconnection delay
  // (with its jitter): wait three of them.
  std::this_thread::sleep_for(options.connection.reconnectFirst * 3);
  {
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_THAT(errors[0], ::testing::HasSubstr("not-authorized"));
  }
  refused->logout();
}

TEST_F(XmppField, AFailedSendStaysFailedInTheHistory) {
  host = makeHost("alice", ":memory:", view);
  Outcomes& outcomes = track();
  sendCounted(*host, "anyone?", outcomes, "ghost-desk");
  ASSERT_TRUE(runUntil([&] { return outcomes.reported() == 1; }));
  const auto kept = host->history("ghost-desk");
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].status, QuorDeliveryStatus::Failed);
}

// A customer connected through a proxy that can hold the server's stanzas and slip others in
// ahead of them.
class XmppFieldProxy : public XmppField {
 protected:
  void SetUp() override {
    XmppField::SetUp();
    proxy = QuorTcpProxy::start(server->port());
    ASSERT_TRUE(proxy);
  }
  void TearDown() override {
    XmppField::TearDown();
    proxy.reset();
  }
  // Stanzas the proxy slips in were never sent by the server: with stream management on, the
  // client's count of them would rightly make the server end the stream.
  QuorXmppOptions throughProxy(const std::string& user) const {
    QuorXmppOptions options = accountOptions(user, user + "-pw");
    options.port = static_cast<uint16_t>(proxy->port());
    options.streamManagement = false;
    return options;
  }
  // The stanza id of the newest text the customer sent, as the proxy saw it.
  std::string newestSentId() const {
    const std::string sent = proxy->fromClients();
    static const std::regex id("<message[^>]* id=[\"'](quor-[^\"']+)[\"']");
    std::string newest;
    for (std::sregex_iterator it(sent.begin(), sent.end(), id), end; it != end; ++it) {
      newest = (*it)[1];
    }
    return newest;
  }

  std::unique_ptr<QuorTcpProxy> proxy;
};

TEST_F(XmppFieldProxy, OnlyTheServerOrTheRecipientCanFailASend) {
  startDesk();
  const QuorXmppOptions connection = throughProxy("alice");
  host = makeHost("alice", ":memory:", view, &connection);
  struct Case {
    const char* from;
    int64_t expected;  // 0: the send succeeds
  };
  const std::string deskJid = QuorDeskJid::toJid("quor-shop", "localhost");
  for (const Case& c :
       {Case{"bob@localhost/phone", 0}, Case{"bob@localhost", 0}, Case{"quor-shop@elsewhere", 0},
        Case{"", QuorXmppErrorNoSuchRecipient}, Case{"localhost", QuorXmppErrorNoSuchRecipient}}) {
    const std::string from = c.from == std::string("") ? deskJid : c.from;
    SCOPED_TRACE(from);
    proxy->holdToClient(true);
    const std::string before = newestSentId();
    Outcomes& outcomes = track();
    sendCounted(*host, "hello", outcomes);
    ASSERT_TRUE(runUntil([&] { return newestSentId() != before; }));
    proxy->injectToClient("<message type='error' from='" + from + "' id='" + newestSentId() +
                          "'><error type='cancel'><item-not-found "
                          "xmlns='urn:ietf:params:xml:ns:xmpp-stanzas'/></error></message>");
    proxy->holdToClient(false);
    ASSERT_TRUE(runUntil([&] { return outcomes.reported() == 1; }));
    if (c.expected == 0) {
      EXPECT_EQ(outcomes.succeeded, 1);
    } else {
      EXPECT_THAT(outcomes.failed, ElementsAre(c.expected));
    }
    host->waitForDelivery();
    host->mainRunLoop().runUntilIdle();
    EXPECT_EQ(outcomes.reported(), 1);
  }
}

TEST_F(XmppFieldProxy, AServerThatDropsWhileTheAppWritesNeitherKillsItNorLosesAnOutcome) {
  struct sigaction before {};
  ::sigaction(SIGPIPE, nullptr, &before);
  const QuorXmppOptions connection = throughProxy("alice");
  host = makeHost("alice", ":memory:", view, &connection);
  const std::string big(20000, 'x');
  Outcomes& outcomes = track();
  int sent = 0;
  for (int cycle = 0; cycle < 8; ++cycle) {
    ASSERT_TRUE(host->waitUntilOnline(kPatience));
    for (int i = 0; i < 60; ++i, ++sent) sendCounted(*host, big, outcomes);
    std::this_thread::sleep_for(std::chrono::milliseconds(2 + cycle));
    proxy->dropAll();
  }
  // Every outcome comes, however long a loaded machine takes to write 9 MiB eight times over.
  ASSERT_TRUE(runUntil(
      *host, [&] { return outcomes.reported() == sent; }, std::chrono::minutes(1)));
  host->waitForDelivery();
  host->mainRunLoop().runUntilIdle();
  EXPECT_EQ(outcomes.reported(), sent);  // each once
  EXPECT_TRUE(host->waitUntilOnline(kPatience));
  struct sigaction after {};
  ::sigaction(SIGPIPE, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);  // the app's disposition is untouched
}

}  // namespace
}  // namespace quor::test

namespace quor::test {
namespace {

using XmppDeadLink = XmppOnEachServer;

TEST_P(XmppDeadLink, IsNoticedAndWhatWasSaidMeanwhileArrivesOnce) {
  auto proxy = QuorTcpProxy::start(server->port());
  ASSERT_TRUE(proxy);
  startDesk();
  QuorXmppOptions connection = accountOptions("alice", "alice-pw");
  connection.port = static_cast<uint16_t>(proxy->port());
  connection.keepaliveInterval = std::chrono::milliseconds(300);
  connection.keepaliveTimeout = std::chrono::milliseconds(300);
  host = makeHost("alice", ":memory:", view, &connection);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  ASSERT_TRUE(shownReach(view, 1));

  proxy->setBlackHole(true);
  const auto silent = std::chrono::steady_clock::now();
  Outcomes& question = track();
  sendCounted(*host, "where is my order?", question);
  ASSERT_TRUE(
      runUntil([&] { return host->connectionStatus() != QuorXmppConnectionStatus::Connected; }));
  // Noticed within the keepalive's interval and timeout (and the scheduler's slack).
  EXPECT_LT(std::chrono::steady_clock::now() - silent, std::chrono::seconds(3));
  proxy->setBlackHole(false);
  ASSERT_TRUE(host->waitUntilOnline(kPatience));
  ASSERT_TRUE(shownReach(view, 2));
  ASSERT_TRUE(runUntil([&] { return question.reported() == 1; }));
  EXPECT_EQ(question.succeeded, 1);
  // The answer once: a later question's answer comes after a second copy's would have.
  Outcomes& later = track();
  sendCounted(*host, "thanks", later);
  ASSERT_TRUE(runUntil([&] { return view.shown.size() >= 3; }));
  EXPECT_EQ(std::count(view.shown.begin(), view.shown.end(),
                       "Orders ship within 24 hours; you can follow yours under Me > Orders."),
            1);
  EXPECT_GE(proxy->accepted(), 2u);
  proxy.reset();
  host->logout();
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppDeadLink);

TEST_F(XmppFieldProxy, AHostileServerIsCutOffAndTheHostComesBack) {
  const QuorXmppOptions connection = throughProxy("alice");
  host = makeHost("alice", ":memory:", view, &connection);
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "<a>";
  for (const std::string& attack :
       {"<message>" + nested, "<message><body>" + std::string(3 << 20, 'x') + "</body></message>",
        "<message a='" + std::string(3 << 20, 'x') + "'/>"}) {
    const std::size_t links = proxy->accepted();
    proxy->injectToClient(attack);
    ASSERT_TRUE(runUntil([&] { return proxy->accepted() > links; }));
    ASSERT_TRUE(host->waitUntilOnline(kPatience));
  }
  startDesk();
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
}

TEST_F(XmppField, FiveThousandOpenDescriptorsDoNotStopALogin) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit before = limit;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 6000);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<int> held;
  for (int i = 0; i < 5000; ++i) {
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd < 0) break;
    held.push_back(fd);
  }
  ASSERT_GT(held.size(), 1100u);  // past select()'s 1024 in any case
  startDesk();
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
  host->logout();
  desk.reset();
  for (const int fd : held) ::close(fd);
  ::setrlimit(RLIMIT_NOFILE, &before);
}

// A stock server: no stamping module. Sends still have exactly one outcome each, from the
// server's acknowledgement or its error.
TEST_F(XmppField, ASendLeftByAKilledAppIsDeliveredOnceByItsNextRun) {
  const std::string store = storePath("killed");
  // The app's process: it sends and dies at once, before any outcome. The test has no other
  // thread when it forks.
  const pid_t app = ::fork();
  ASSERT_GE(app, 0);
  if (app == 0) {
    QuorXmppHost::Options options;
    options.connection = accountOptions("alice", "alice-pw");
    options.storePath = store;
    auto doomed = QuorXmppHost::create(options, nullptr);
    doomed->setLogSink(nullptr, 0);
    doomed->connect();
    if (!doomed->waitUntilOnline(kPatience)) ::_exit(2);
    say(*doomed, "quor-shop", "call me back");
    doomed->waitForDelivery();  // its row is written; its outcome has not come
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(app, &status, 0), app);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  // The desk's side, as a plain account that shows what arrives.
  QuorXmppOptions deskAccount = accountOptions(deskLocalPart(), "desk-pw");
  auto deskSide = bareHost(deskLocalPart(), &deskAccount);
  std::vector<std::string> arrived;
  deskSide->addMessageListener(
      [&](const std::shared_ptr<KXMessage>& message) { arrived.push_back(textOf(message)); });
  ASSERT_TRUE(deskSide->waitUntilOnline(kPatience));
  host = makeHost("alice", store, view);
  ASSERT_TRUE(runUntil([&] {
    deskSide->mainRunLoop().runUntilIdle();
    const auto kept = host->history("quor-shop");
    return !arrived.empty() && kept.size() == 1 && kept[0].status == QuorDeliveryStatus::Sent;
  }));
  // A second copy would come before a text sent after it.
  say(*host, "quor-shop", "thanks");
  ASSERT_TRUE(runUntil([&] {
    deskSide->mainRunLoop().runUntilIdle();
    return arrived.back() == "thanks";
  }));
  EXPECT_THAT(arrived, ElementsAre("call me back", "thanks"));
  deskSide->logout();
}

TEST_F(XmppField, ADeskForgetsIdleAndLeastRecentSessions) {
  struct Case {
    const char* what;
    QuorXmppDesk::Limits limits;
    std::chrono::milliseconds pause;
  };
  for (const Case& c :
       {Case{"over the cap", {1, std::chrono::minutes(30)}, {}},
        Case{"idle", {100, std::chrono::milliseconds(200)}, std::chrono::milliseconds(400)}}) {
    SCOPED_TRACE(c.what);
    // New hosts read the accounts' archives from their start: only this case's lines count.
    const int64_t since = std::chrono::duration_cast<std::chrono::milliseconds>(
                              std::chrono::system_clock::now().time_since_epoch())
                              .count();
    desk = std::make_unique<QuorXmppDesk>(QuorDeskSimulator::defaultProfile(),
                                          accountOptions(deskLocalPart(), "desk-pw"), c.limits);
    desk->start();
    ASSERT_TRUE(desk->waitUntilOnline(kPatience));
    auto alice = bareHost("alice");
    auto bob = bareHost("bob");
    ASSERT_TRUE(alice->waitUntilOnline(kPatience) && bob->waitUntilOnline(kPatience));
    std::vector<std::string> aliceShown;
    alice->addMessageListener([&](const std::shared_ptr<KXMessage>& m) {
      if (m->sentTime() >= since) aliceShown.push_back(textOf(m));
    });
    say(*alice, "quor-shop", "where is my order?");
    ASSERT_TRUE(runUntil(*alice, [&] { return aliceShown.size() == 1; }));
    std::this_thread::sleep_for(c.pause);
    say(*bob, "quor-shop", "hello");
    ASSERT_TRUE(runUntil(*bob, [&] { return desk->serves(bob->bareJid()); }));
    EXPECT_EQ(desk->customerCount(), 1u);
    EXPECT_FALSE(desk->serves(alice->bareJid()));
    // A forgotten customer who writes again is served by a new session.
    say(*alice, "quor-shop", "where is my order?");
    ASSERT_TRUE(runUntil(*alice, [&] { return aliceShown.size() == 2; }));
    EXPECT_EQ(aliceShown[1], aliceShown[0]);
    alice->logout();
    bob->logout();
  }
}

class XmppStockServer : public XmppField {
 protected:
  void SetUp() override {
    QuorPrivateServer::Options options;
    options.accounts = {{"alice", "alice-pw"}, {deskLocalPart(), "desk-pw"}};
    options.stampingModule = false;
    std::string error;
    server = QuorPrivateServer::start(options, &error);
    ASSERT_TRUE(server) << error;
  }
};

TEST_F(XmppStockServer, EverySendSucceedsOrFailsOnce) {
  host = makeHost("alice", ":memory:", view);
  Outcomes& ghost = track();
  Outcomes& offline = track();
  sendCounted(*host, "anyone?", ghost, "ghost-desk");
  sendCounted(*host, "hello", offline);  // the desk exists but is not on: kept for it
  ASSERT_TRUE(runUntil([&] { return ghost.reported() == 1 && offline.reported() == 1; }));
  EXPECT_THAT(ghost.failed, ElementsAre(QuorXmppErrorNoSuchRecipient));
  EXPECT_EQ(offline.succeeded, 1);
  // A late second outcome (a bounce after the confirmation) would come before the outcome of a
  // send written after both.
  Outcomes& later = track();
  sendCounted(*host, "anyone now?", later, "ghost-desk");
  ASSERT_TRUE(runUntil([&] { return later.reported() == 1; }));
  EXPECT_EQ(ghost.reported() + offline.reported(), 2);

  startDesk();
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
}

}  // namespace
}  // namespace quor::test
