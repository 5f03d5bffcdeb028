// The XMPP host's own duties on a real server: failures on the way, history, several customers,
// and hostile stanzas.
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "QuorXmppHost/QuorXmppErrors.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using XmppHost = XmppFixture;

// The server dies mid-service and comes back. By default what the app sends meanwhile waits in
// the outbox and goes out once the host is back; with no outbox it fails at once. Either way
// each send is reported once.
class XmppServerDies : public XmppFixture, public ::testing::WithParamInterface<bool> {};

TEST_P(XmppServerDies, WhatWaitsIsReportedOnceAndTheHostComesBack) {
  const bool outbox = GetParam();
  startDesk();
  QuorXmppOptions connection = accountOptions("alice", "alice-pw");
  if (!outbox) connection.outboxTimeout = std::chrono::milliseconds(0);
  host = makeHost("alice", ":memory:", view, &connection);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));

  server->kill();
  std::atomic<int> leaveErrors{0}, leaveSuccesses{0};
  std::atomic<int64_t> leaveCode{0};
  client.leaveMessageCustomerService(
      "quor-shop", std::make_shared<const KXDictionary>(KXDictionary{{"content", "call me"}}),
      [&](int64_t) { ++leaveSuccesses; },
      [&](int64_t code, int64_t) { leaveCode = code, ++leaveErrors; });
  if (!outbox) {
    start("quor-shop", view);  // the handshake cannot go out either
    ASSERT_TRUE(eventsReach(view, 3));
    EXPECT_THAT(view.events[2], ::testing::MatchesRegex("error\\(3100[12],连接客服失败!\\)"));
    ASSERT_TRUE(runUntil([&] { return leaveErrors + leaveSuccesses > 0; }));
    EXPECT_EQ(leaveErrors, 1);
    EXPECT_TRUE(leaveCode == QuorXmppErrorNotOnline || leaveCode == QuorXmppErrorConnectionLost);
  }

  std::string error;
  ASSERT_TRUE(server->restart(&error)) << error;
  ASSERT_TRUE(host->waitUntilOnline(kPatience));
  ASSERT_TRUE(desk->waitUntilOnline(kPatience));
  // With the outbox the message is left now, once (and the desk ends the service after it).
  ASSERT_TRUE(runUntil([&] { return leaveErrors + leaveSuccesses > 0; }));
  EXPECT_EQ(leaveSuccesses, outbox ? 1 : 0);
  if (outbox) {
    ASSERT_TRUE(runUntil([&] { return view.events.back().rfind("quit(", 0) == 0; }));
  }
  const std::size_t before = view.events.size();
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, before + 2));
  EXPECT_THAT(std::vector<std::string>(view.events.begin() + before, view.events.end()),
              ElementsAre("success", "mode(3)"));
  host->waitForDelivery();
  host->mainRunLoop().runUntilIdle();
  EXPECT_EQ(leaveErrors + leaveSuccesses, 1);  // reported once, however the connection went
}

INSTANTIATE_TEST_SUITE_P(Outbox, XmppServerDies, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Waits" : "None"; });

TEST_F(XmppHost, TlsWithASelfSignedCertificateIsTrustedOnlyWhenAsked) {
  QuorPrivateServer::Options options;
  options.accounts = {{"alice", "alice-pw"}, {"bob", "bob-pw"}, {deskLocalPart(), "desk-pw"}};
  options.tls = true;
  std::string error;
  server = QuorPrivateServer::start(options, &error);
  ASSERT_TRUE(server) << error;
  auto secure = [this](const std::string& user, const std::string& password, bool trust) {
    QuorXmppOptions account = accountOptions(user, password);
    account.tls = QuorXmppOptions::Tls::Required;
    account.trustSelfSignedCertificate = trust;
    return account;
  };
  const QuorXmppOptions careful = secure("bob", "bob-pw", false);
  auto refusing = bareHost("bob", &careful);
  EXPECT_FALSE(refusing->waitUntilOnline(std::chrono::milliseconds(1500)));
  refusing->logout();

  KXDictionary profile = QuorDeskSimulator::defaultProfile();
  desk = std::make_unique<QuorXmppDesk>(profile, secure(deskLocalPart(), "desk-pw", true));
  desk->start();
  ASSERT_TRUE(desk->waitUntilOnline(kPatience));
  const QuorXmppOptions trusting = secure("alice", "alice-pw", true);
  host = makeHost("alice", ":memory:", view, &trusting);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
}

TEST_F(XmppHost, ADeskWithoutAnAccountFailsTheStart) {
  host = makeHost("alice", ":memory:", view);
  start("ghost-desk", view);
  ASSERT_TRUE(eventsReach(view, 1));
  EXPECT_EQ(view.events[0],
            "error(" + std::to_string(QuorXmppErrorNoSuchRecipient) + ",连接客服失败!)");
}

TEST_F(XmppHost, HistorySurvivesARestartNewestFirstInPages) {
  startDesk();
  const std::string store = storePath("history");
  host = makeHost("alice", store, view);
  start("quor-shop", view);
  ASSERT_TRUE(shownReach(view, 1));
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2));
  host->logout();
  QuorHostBase::uninstall();
  host.reset();

  AppView later;
  host = makeHost("alice", store, later);
  const auto newest = host->history("quor-shop", 0, 2);
  ASSERT_EQ(newest.size(), 2u);
  EXPECT_EQ(textOf(newest[0].message),
            "Orders ship within 24 hours; you can follow yours under Me > Orders.");
  EXPECT_EQ(textOf(newest[1].message), "where is my order?");
  EXPECT_EQ(newest[1].message->messageDirection(), 1);
  EXPECT_EQ(newest[1].status, QuorDeliveryStatus::Sent);
  EXPECT_GT(newest[1].message->sentTime(), 0);  // the server's stamp, kept after the confirmation
  const auto older = host->history("quor-shop", newest[1].message->messageId(), 10);
  ASSERT_EQ(older.size(), 1u);  // the greeting, inserted locally; signals were never stored
  EXPECT_EQ(textOf(older[0].message), "Hi, I am Ava, the Quor Shop assistant. How can I help?");
  EXPECT_TRUE(host->history("someone-else").empty());
}

TEST_F(XmppHost, OneDeskServesTwoCustomersAtOnce) {
  startDesk();
  host = makeHost("alice", ":memory:", view);
  // Bob speaks the wire through a second host that is not the library's installed one.
  auto bob = bareHost("bob");
  std::vector<std::string> bobShown;
  bob->addMessageListener(
      [&](const std::shared_ptr<KXMessage>& m) { bobShown.push_back(textOf(m)); });
  ASSERT_TRUE(bob->waitUntilOnline(kPatience));

  start("quor-shop", view);
  bob->sendMessage(5, "quor-shop", std::make_shared<KXCSHandShakeMessage>(), std::nullopt,
                   std::nullopt, nullptr, nullptr);
  say(*bob, "quor-shop", "can I return a parcel?");
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2));
  ASSERT_TRUE(runUntil(*bob, [&] { return bobShown.size() >= 2; }));
  EXPECT_EQ(view.shown[1], "Orders ship within 24 hours; you can follow yours under Me > Orders.");
  EXPECT_THAT(bobShown, Contains(::testing::HasSubstr("Returns")));
  EXPECT_THAT(bobShown, Not(Contains(view.shown[1])));
  EXPECT_EQ(desk->customerCount(), 2u);
}

TEST_F(XmppHost, HostileStanzasChangeNothingButWhatTheLibrarysRulesSay) {
  startDesk();
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  ASSERT_TRUE(shownReach(view, 1));

  auto mallory = bareHost("bob");
  ASSERT_TRUE(mallory->waitUntilOnline(kPatience));
  const std::string to = host->bareJid();
  const std::string ns = QuorXmppPayloadNamespace;
  const std::string huge(200000, 'x');
  for (const std::string& xml : {
           "<message to='" + to + "' type='chat'><body>no payload</body></message>",
           "<message to='" + to + "' type='chat'><cs xmlns='" + ns + "'>no name</cs></message>",
           "<message to='" + to + "' type='chat'><cs xmlns='" + ns +
               "' name='X:Unknown'>{}</cs></message>",
           "<message to='" + to + "' type='chat'><cs xmlns='" + ns +
               "' name='KX:TxtMsg' stamp='1'>not json</cs></message>",
           // The desk's end, forged by another account: it has no service, so nothing ends.
           "<message to='" + to + "' type='chat'><cs xmlns='" + ns +
               "' name='KX:CsEnd' "
               "sender='quor-shop'>{\"code\":0,\"msg\":\"forged\"}</cs></message>",
           "<message to='" + to + "' type='headline'><confirmed xmlns='" + ns +
               "' id='quor-1' stamp='1'/></message>",
           "<message to='" + to + "' type='chat'><cs xmlns='" + ns +
               "' name='KX:TxtMsg'>{\"content\":\"" + huge + "\"}</cs></message>",
       }) {
    mallory->connection().sendRaw(xml);
  }
  ASSERT_TRUE(shownReach(view, 4));
  EXPECT_EQ(view.shown[1], "[X:Unknown]");
  EXPECT_EQ(view.shown[2], "");  // a body that is not JSON decodes to an empty text
  EXPECT_EQ(view.shown[3].size(), huge.size());
  say(*host, "quor-shop", "where is my order?");  // the service goes on
  ASSERT_TRUE(shownReach(view, 5));
  EXPECT_EQ(view.shown[4], "Orders ship within 24 hours; you can follow yours under Me > Orders.");
  EXPECT_EQ(view.events.size(), 2u);  // no quit, no error
  const auto stored = host->history(QuorDeskJid::fromJid(mallory->bareJid(), "localhost"), 0, 10);
  ASSERT_EQ(stored.size(), 3u);
  EXPECT_GT(stored[1].message->sentTime(), 1);  // the server replaced the forged stamp
}

}  // namespace
}  // namespace quor::test
