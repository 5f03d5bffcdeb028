// The XMPP host and the desk program on ejabberd, the second server: a stock configuration with
// stream management, where the server counts a stanza before it bounces it.
#include <set>
#include <thread>

#include "QuorPrivateServer/QuorTcpProxy.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;

class XmppEjabberd : public XmppFixture {
 protected:
  void SetUp() override {
    QuorPrivateServer::Options options;
    options.software = QuorPrivateServer::Software::Ejabberd;
    options.accounts = {{"alice", "alice-pw"}, {deskLocalPart(), "desk-pw"}};
    std::string error;
    server = QuorPrivateServer::start(options, &error);
    ASSERT_TRUE(server) << error;
  }
};

TEST_F(XmppEjabberd, TheDeskProgramServesAJourneyAndAMissingDeskFailsAtOnce) {
  startDesk();
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
  ASSERT_TRUE(shownReach(view, 1));
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2));
  EXPECT_EQ(view.shown[1], "Orders ship within 24 hours; you can follow yours under Me > Orders.");

  // ejabberd acknowledges a stanza to an account that does not exist before it bounces it: the
  // send fails all the same, and a text to nobody is never reported sent.
  Outcomes& ghost = track();
  const auto sent = std::chrono::steady_clock::now();
  sendCounted(*host, "anyone?", ghost, "ghost-desk");
  ASSERT_TRUE(runUntil([&] { return ghost.reported() == 1; }));
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(2));
  EXPECT_THAT(ghost.failed, ElementsAre(QuorXmppErrorNoSuchRecipient));
  EXPECT_EQ(host->history("ghost-desk").at(0).status, QuorDeliveryStatus::Failed);

  AppView missing;
  const auto started = std::chrono::steady_clock::now();
  client.stopCustomerService("quor-shop");
  start("ghost-desk", missing);
  ASSERT_TRUE(eventsReach(missing, 1));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(2));
  EXPECT_EQ(missing.events[0],
            "error(" + std::to_string(QuorXmppErrorNoSuchRecipient) + ",连接客服失败!)");
}

// Two nodes of one cluster: the customer on one, the desk on the other.
TEST(XmppEjabberdCluster, ACustomerOnOneNodeIsServedByTheDeskOnTheOther) {
  const std::string deskJid = QuorDeskJid::toJid("quor-shop", "localhost");
  const std::string deskAccount = deskJid.substr(0, deskJid.find('@'));
  QuorPrivateServer::Options options;
  options.software = QuorPrivateServer::Software::Ejabberd;
  options.nodes = 2;
  options.accounts = {{"alice", "alice-pw"}, {deskAccount, "desk-pw"}};
  std::string error;
  auto cluster = QuorPrivateServer::start(options, &error);
  ASSERT_TRUE(cluster) << error;
  ASSERT_NE(cluster->account("alice", "alice-pw", 1).port, cluster->port());

  QuorXmppDesk desk(QuorDeskSimulator::defaultProfile(),
                    cluster->account(deskAccount, "desk-pw", 0));
  desk.start();
  ASSERT_TRUE(desk.waitUntilOnline(kPatience));
  QuorXmppHost::Options hostOptions;
  hostOptions.connection = cluster->account("alice", "alice-pw", 1);
  auto host = QuorXmppHost::create(hostOptions, &error);
  ASSERT_TRUE(host) << error;
  host->setLogSink(nullptr, 0);
  host->install();
  host->loadExtensionModule();
  std::vector<std::string> shown;
  host->addMessageListener(
      [&shown](const std::shared_ptr<KXMessage>& message) { shown.push_back(textOf(message)); });
  host->connect();
  ASSERT_TRUE(host->waitUntilOnline(kPatience));

  struct Lines : KXCSServiceObserver {
    void onMessage(const KXCSConversationMessage& line) override { got.push_back(line); }
    std::vector<KXCSConversationMessage> got;
  };
  auto lines = std::make_shared<Lines>();
  auto service = KXCSService::make("quor-shop", lines);
  ASSERT_EQ(service->start(nullptr, std::chrono::seconds(10)), KXCSServiceResult::Done);
  const auto until = [&](const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done() && std::chrono::steady_clock::now() < deadline)
      host->mainRunLoop().runOnce(std::chrono::milliseconds(10));
    return done();
  };
  ASSERT_TRUE(until([&] { return service->status().state == KXCSServiceState::Robot; }));
  ASSERT_EQ(service->sendText("where is my order?"), KXCSServiceResult::Done);
  ASSERT_TRUE(until([&] { return shown.size() >= 2; }));
  EXPECT_EQ(shown[1], "Orders ship within 24 hours; you can follow yours under Me > Orders.");
  // Each line that came to the customer carries the id under which the history knows it.
  std::set<int64_t> stored;
  for (const auto& entry : host->history("quor-shop", 0, 10))
    stored.insert(entry.message->messageId());
  ASSERT_TRUE(until([&] { return lines->got.size() >= 3; }));
  for (const auto& line : lines->got) {
    if (line.author != KXCSMessageAuthor::Customer) {
      EXPECT_EQ(stored.count(line.messageId), 1u) << line.text;
    }
  }
  service.reset();
  host->logout();
  QuorHostBase::uninstall();
  desk.stop();
}

}  // namespace
}  // namespace quor::test
