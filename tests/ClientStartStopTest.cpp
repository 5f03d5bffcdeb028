// Starting and stopping a service: sessions, the handshake send, its confirmation and failure.
#include <gmock/gmock.h>

#include <thread>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using StartStop = ClientFixture;

TEST_F(StartStop, SharedClientIsMadeOnceUnderConcurrentFirstCalls) {
  std::vector<KXCustomerServiceClient*> seen(8);
  std::vector<std::thread> threads;
  for (auto& slot : seen) {
    threads.emplace_back(
        [&slot] { slot = &KXCustomerServiceClient::sharedCustomerServiceClient(); });
  }
  for (auto& thread : threads) thread.join();
  for (auto* client : seen) EXPECT_EQ(client, seen[0]);
}

TEST_F(StartStop, StartRecordsTheDeskAndSendsTheHandshake) {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setUserId("u1");
  client().setCurrentCSModeType(KXCSModeHuman);
  start("desk", info);

  EXPECT_EQ(client().kefuId(), "desk");
  EXPECT_EQ(client().currentCSModeType(), KXCSModeNoService);
  ASSERT_EQ(host->sends().size(), 1u);
  const RecordedSend send = host->sends()[0];
  EXPECT_EQ(send.conversationType, 5);
  EXPECT_EQ(send.targetId, "desk");
  EXPECT_EQ(send.objectName, "KX:CsHs");
  EXPECT_EQ(send.body, info->encode());
  EXPECT_FALSE(send.pushContent);
  EXPECT_FALSE(send.pushData);
  EXPECT_EQ(send.closures, QuorSendClosures::Records);
  EXPECT_EQ(host->pendingMain(), 0u);  // no mode callback at start
  EXPECT_EQ(client().handShakeMessageSendTime(), 0);
}

TEST_F(StartStop, SessionsAreMadeOncePerDesk) {
  start("A");
  start("A");
  start("B");
  EXPECT_EQ(client().customerServiceSessions().size(), 2u);
  EXPECT_EQ(client().kefuId(), "B");
}

TEST_F(StartStop, ConfirmationSetsTheHandshakeTimeOnTheHostThreadEvenAfterStop) {
  start("desk");
  client().stopCustomerService("desk");
  runOnThread("host", [&] { host->confirmSend(0, 4242); });
  EXPECT_EQ(client().handShakeMessageSendTime(), 4242);
}

TEST_F(StartStop, SendFailureReportsOnceThenStops) {
  // The reused session still asks for a suspend from an earlier service.
  startAndAnswer("desk", R"({"uid":"u","sid":"c","pid":"p","suspendWhenQuit":1,"serviceType":2})");
  host->drainMain();
  takeEvents();
  start("desk");
  runOnThread("host", [&] { host->failSend(host->sends().size() - 1, -7); });
  EXPECT_TRUE(events().empty());  // nothing before the main thread runs
  host->drainMain();
  EXPECT_THAT(events(), ElementsAre("error(-7,连接客服失败!)@main"));
  EXPECT_FALSE(client().kefuId());
  EXPECT_TRUE(session("desk")->isQuited());
  EXPECT_THAT(sent().back(), R"(KX:CsSp {"uid":"u","sid":"c","pid":"p"})");
}

TEST_F(StartStop, SendFailureUsesTheErrorCallbackOfItsOwnStartAndStopsWithoutOne) {
  client().startCustomerService("desk", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr);
  start("desk");  // replaces the session's callbacks
  host->failSend(0, 3);
  host->drainMain();
  EXPECT_TRUE(events().empty());  // the first start had no error callback
  EXPECT_TRUE(session("desk")->isQuited());
  EXPECT_FALSE(session("desk")->successBlock());

  start("desk");
  host->failSend(1, 4);
  host->drainMain();
  EXPECT_THAT(events(), ElementsAre("error(4,连接客服失败!)@main"));
}

TEST_F(StartStop, StopClearsCallbacksAndSuspendsOnlyWhenAsked) {
  start("quiet");
  client().getHumanEvaluateCustomerServiceConfig([](const auto&) {});
  ASSERT_TRUE(session("quiet")->evaConfigBlock());
  client().stopCustomerService("quiet");
  const auto s = session("quiet");
  EXPECT_TRUE(s->isQuited());
  EXPECT_FALSE(client().kefuId());
  EXPECT_FALSE(s->successBlock() || s->errorBlock() || s->modeTypeBlock() ||
               s->pullEvaluationBlock() || s->selectGroupBlock() || s->quitBlock() ||
               s->evaConfigBlock());
  EXPECT_EQ(host->sends().size(), 1u);  // the handshake only

  // A session that asks for a suspend sends one, even with absent identifiers.
  start("loud");
  session("loud")->setSuspendWhenQuit(true);
  client().stopCustomerService("loud");
  EXPECT_EQ(sent().back(), "KX:CsSp {}");
  EXPECT_EQ(host->sends().back().closures, QuorSendClosures::None);

  // A second start replaces six callbacks; the evaluation-configuration callback stays absent.
  start("quiet");
  EXPECT_TRUE(session("quiet")->successBlock());
  EXPECT_FALSE(session("quiet")->evaConfigBlock());
}

TEST_F(StartStop, StopOfAnUnknownDeskOnlyClearsTheCurrentDesk) {
  start("desk");
  client().stopCustomerService("never-started");
  EXPECT_FALSE(client().kefuId());
  EXPECT_EQ(host->sends().size(), 1u);
  EXPECT_EQ(client().customerServiceSessions().size(), 1u);
  EXPECT_FALSE(session("desk")->isQuited());
}

TEST_F(StartStop, AnAbsentDeskIdKeepsNoSession) {
  client().startCustomerService(std::nullopt, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr);
  EXPECT_TRUE(client().customerServiceSessions().empty());
  ASSERT_EQ(host->sends().size(), 1u);
  EXPECT_FALSE(host->sends()[0].targetId);
  client().stopCustomerService(std::nullopt);
  client().switchToHumanMode(std::nullopt);
  EXPECT_EQ(host->sends().size(), 2u);
}

}  // namespace
}  // namespace quor::test
