// Whole services over a real XMPP server: the customer on QuorXmppHost, the desk simulator on
// the same server.
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

// The robot-first journey with a group, a rating and the desk's end runs over the server in
// Demo.XmppJourney (tests/check-demo.sh).

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
