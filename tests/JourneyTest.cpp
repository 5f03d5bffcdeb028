// One whole service through the public API: every message sent, every callback with its thread
// and argument, and the mode after each step.
#include <gmock/gmock.h>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using Journey = ClientFixture;

TEST_F(Journey, RobotFirstServiceWithGroupsFromStartToEnd) {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setUserId("c-42");
  start("shop", info);
  client().getHumanEvaluateCustomerServiceConfig(
      [this](const auto& config) { record("evaConfig(" + config->dump() + ")"); });
  runOnThread("host", [&] { host->confirmSend(0, 1000); });
  EXPECT_THAT(
      sent(),
      ElementsAre(R"(KX:CsHs {"userInfo":{"userId":"c-42"},"contactInfo":{},"requestInfo":{}})"));

  // Handshake response: robot first, two groups, the desk asks for a suspend when leaving.
  EXPECT_TRUE(deliver<KXCSHandShakeResponseMessage>("shop", R"({"status":1,"data":{
      "uid":"u1","sid":"s1","pid":"p1","serviceType":3,"robotName":"Ava","robotWelcome":"Hi, I am Ava",
      "suspendWhenQuit":1,"groups":[{"id":"g1","name":"Sales","online":1},{"id":"g2","name":"Support"}]}})",
                                                    1000));
  EXPECT_EQ(host->inserts().size(), 1u);  // the greeting
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("success@main", "mode(3) current=3@main"));

  // The user asks for a human agent and picks a group.
  client().switchToHumanMode("shop");
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("selectGroup(g1,g2)@main"));
  client().selectCustomerServiceGroup("shop", "g2");
  EXPECT_EQ(sent().back(), R"(KX:CsCha {"uid":"u1","sid":"s1","pid":"p1","groupid":"g2"})");

  // The desk connects an agent and sends the evaluation settings.
  EXPECT_TRUE(deliver<KXCSChangeModeResponseMessage>(
      "shop", R"({"code":200,"data":{"status":1,"satisfaction":[{"isQuestionFlag":1}]}})", 1001));
  EXPECT_THAT(takeEvents(),
              ElementsAre(R"(evaConfig({"evaConfig":[{"isQuestionFlag":1}]})@delivery)"));
  EXPECT_TRUE(session("shop")->reportResolveStatus());
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("mode(2) current=2@main"));

  // The desk asks for a rating; the user rates the agent.
  EXPECT_FALSE(deliver<KXCSPullEvaluateMessage>("shop", R"({"msgId":"dlg-9"})", 1002));
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("pullEvaluation(dlg-9)@main"));
  client().evaluateCustomerService("shop", KXString("dlg-9"), 5, KXString("great"), 1);
  EXPECT_EQ(sent().back(),
            R"(KX:CsEva {"sid":"dlg-9","source":5,"suggest":"great","isresolve":1,"type":"1"})");

  // The conversation id changes; the agent goes back to the robot.
  EXPECT_TRUE(deliver<KXCSUpdateMessage>("shop", R"({"sid":"s2","serviceStatus":1})", 1003));
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("mode(3) current=3@main"));

  // The desk ends the service with a text for the user.
  EXPECT_TRUE(
      deliver<KXCSTerminateMessage>("shop", R"({"code":0,"msg":"Thanks, bye","sid":"s2"})", 1004));
  ASSERT_EQ(host->fakeReceives().size(), 2u);  // the greeting and the end notice
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("quit(Thanks, bye)@main"));
  EXPECT_EQ(sent().back(), R"(KX:CsSp {"uid":"u1","sid":"s2","pid":"p1"})");
  EXPECT_TRUE(session("shop")->isQuited());
  EXPECT_FALSE(client().kefuId());
  EXPECT_EQ(client().currentCSModeType(), KXCSModeRobotFirst);  // stop leaves the mode alone
  EXPECT_EQ(host->sends().size(), 4u);
  for (const auto& send : host->sends()) {
    EXPECT_EQ(send.conversationType, 5);
    EXPECT_EQ(send.targetId, "shop");
    EXPECT_FALSE(send.pushContent || send.pushData);
  }
}

}  // namespace
}  // namespace quor::test
