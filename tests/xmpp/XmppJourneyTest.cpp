// Whole services over a real XMPP server: the customer on QuorXmppHost, the desk simulator on
// the same server.
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using XmppJourney = XmppFixture;

TEST_F(XmppJourney, RobotFirstServiceWithAGroupARatingAndTheDesksEnd) {
  startDesk(R"({"evaluation": {"askAfterAgentReplies": 1}, "end": {"afterEvaluation": true}})");
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  ASSERT_TRUE(eventsReach(view, 2));
  EXPECT_THAT(view.events, ElementsAre("success", "mode(3)"));
  ASSERT_TRUE(shownReach(view, 1));
  EXPECT_EQ(view.shown[0], "Hi, I am Ava, the Quor Shop assistant. How can I help?");

  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2));
  EXPECT_EQ(view.shown[1], "Orders ship within 24 hours; you can follow yours under Me > Orders.");

  client.switchToHumanMode("quor-shop");
  ASSERT_TRUE(eventsReach(view, 3));
  ASSERT_TRUE(view.groups && view.groups->size() == 2);
  client.selectCustomerServiceGroup("quor-shop", view.groups->at(1)->groupId());
  ASSERT_TRUE(eventsReach(view, 4));
  EXPECT_EQ(view.events[3], "mode(2)");

  say(*host, "quor-shop", "I want a refund");
  ASSERT_TRUE(eventsReach(view, 5));
  EXPECT_EQ(view.events[4], "rate(dialog-1)");
  client.evaluateCustomerService("quor-shop", view.dialog, 5, KXString("thanks"), 1);
  ASSERT_TRUE(eventsReach(view, 6));
  EXPECT_EQ(view.events[5], "quit(Thank you for contacting Quor Shop. Goodbye!)");
  ASSERT_TRUE(runUntil([&] {
    return desk->sessionOf(host->bareJid()) && desk->sessionOf(host->bareJid())->suspended();
  }));
}

// Each service type from the start to the desk's end, over the server.
struct ServiceTypeCase {
  const char* profile;
  std::vector<std::string> eventsAfterStart;
  const char* firstShown;
};

void PrintTo(const ServiceTypeCase& serviceCase, std::ostream* out) { *out << serviceCase.profile; }

class XmppServiceTypes : public XmppFixture,
                         public ::testing::WithParamInterface<ServiceTypeCase> {};

TEST_P(XmppServiceTypes, StartTalkAndEnd) {
  startDesk(GetParam().profile);
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  const auto& expected = GetParam().eventsAfterStart;
  ASSERT_TRUE(eventsReach(view, expected.size())) << ::testing::PrintToString(view.events);
  EXPECT_EQ(view.events, expected);
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2)) << ::testing::PrintToString(view.shown);
  EXPECT_EQ(view.shown[0], GetParam().firstShown);
  desk->sessionOf(host->bareJid())->endService("Bye now");
  ASSERT_TRUE(eventsReach(view, expected.size() + 1));
  EXPECT_EQ(view.events.back(), "quit(Bye now)");
}

INSTANTIATE_TEST_SUITE_P(
    AllTypes, XmppServiceTypes,
    ::testing::Values(
        ServiceTypeCase{R"({"serviceType": 1})",
                        {"success", "mode(1)"},
                        "Hi, I am Ava, the Quor Shop assistant. How can I help?"},
        ServiceTypeCase{R"({"serviceType": 2, "switchToHumanAtStart": true, "groups": null})",
                        {"success", "mode(2)", "mode(2)"},
                        "Hello, this is Lin from After-sales. Let me look at your order."},
        ServiceTypeCase{R"({"serviceType": 4, "switchToHumanAtStart": true, "groups": null})",
                        {"success", "mode(2)", "mode(2)"},
                        "Hello, this is Lin from After-sales. Let me look at your order."}));

}  // namespace
}  // namespace quor::test
