// The application may call any client operation from inside any of its callbacks: no deadlock,
// and the effects come in order.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using Reentrancy = ClientFixture;

TEST_F(Reentrancy, StopFromTheQuitAndModeCallbacks) {
  client().startCustomerService(
      "desk", nullptr, nullptr, nullptr,
      [this](KXCSModeType mode) {
        record("mode(" + std::to_string(mode) + ")");
        if (mode == KXCSModeNoService) client().stopCustomerService("desk");
      },
      nullptr, nullptr,
      [this](const std::string& text) {
        record("quit(" + text + ")");
        client().stopCustomerService("desk");
      });
  host->confirmSend(0, 1);
  deliver<KXCSHandShakeResponseMessage>(
      "desk", R"({"status":1,"data":{"serviceType":2,"suspendWhenQuit":1}})");
  deliver<KXCSUpdateMessage>("desk", R"({"serviceStatus":3})");
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("mode(2)@main", "mode(0)@main"));
  EXPECT_TRUE(session("desk")->isQuited());
  EXPECT_EQ(sent().back(), "KX:CsSp {}");

  start("desk");
  session("desk")->setIsQuited(false);
  session("desk")->setQuitBlock([this](const std::string& text) {
    record("quit(" + text + ")");
    client().stopCustomerService("desk");
  });
  deliver<KXCSTerminateMessage>("desk", R"({"code":0})");
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("quit(客服会话已结束!)@main"));
  EXPECT_EQ(host->sends().size(), 5u);  // two handshakes and a suspend for each stop
}

TEST_F(Reentrancy, StartAgainFromTheErrorCallback) {
  int attempts = 0;
  std::function<void()> open = [&] {
    client().startCustomerService(
        "desk", nullptr, nullptr,
        [&](int64_t code, const std::string&) {
          record("error(" + std::to_string(code) + ")");
          if (++attempts < 2) open();
        },
        nullptr, nullptr, nullptr, nullptr);
  };
  open();
  host->failSend(0, 7);
  host->drainMain();
  // The retry's start ran inside the callback; the stop that follows the report clears it.
  ASSERT_EQ(host->sends().size(), 2u);
  host->failSend(1, 8);
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("error(7)@main", "error(8)@main"));
  EXPECT_FALSE(client().kefuId());
}

TEST_F(Reentrancy, OperationsFromThePullEvaluationGroupAndLeaveMessageCallbacks) {
  client().startCustomerService(
      "desk", nullptr, nullptr, nullptr, nullptr,
      [](const KXString& dialogId) {
        client().evaluateCustomerService("desk", dialogId, 5, std::nullopt, 1);
      },
      [](const KXCustomerServiceGroupList& groups) {
        client().selectCustomerServiceGroup("desk", groups->front()->groupId());
      },
      nullptr);
  host->confirmSend(0, 1);
  deliver<KXCSHandShakeResponseMessage>(
      "desk", R"({"status":1,"data":{"serviceType":3,"groups":[{"id":"g"}]}})");
  client().switchToHumanMode("desk");
  deliver<KXCSPullEvaluateMessage>("desk", R"({"msgId":"d1"})");
  host->drainMain();

  int left = 0;
  std::function<void(int64_t)> leaveAgain = [&](int64_t) {
    if (++left < 3) client().leaveMessageCustomerService("desk", nullptr, leaveAgain, nullptr);
  };
  client().leaveMessageCustomerService("desk", nullptr, leaveAgain, nullptr);
  for (std::size_t i = 3; i < 6; ++i) host->confirmSend(i, 1);
  EXPECT_THAT(sent(), ElementsAre("KX:CsHs null", R"(KX:CsCha {"groupid":"g"})",
                                  R"(KX:CsEva {"sid":"d1","source":5,"isresolve":-1,"type":"1"})",
                                  "KX:CsLM null", "KX:CsLM null", "KX:CsLM null"));
  EXPECT_EQ(left, 3);
}

TEST_F(Reentrancy, EvaluationConfigurationCallbackMayRegisterAgainOnTheDeliveringThread) {
  start("desk");
  std::function<void(const std::shared_ptr<const KXDictionary>&)> again =
      [&](const std::shared_ptr<const KXDictionary>&) {
        record("evaConfig");
        client().getHumanEvaluateCustomerServiceConfig(again);
        client().stopCustomerService("other");
      };
  client().getHumanEvaluateCustomerServiceConfig(again);
  host->confirmSend(0, 1);
  deliver<KXCSHandShakeResponseMessage>("desk", R"({"status":1,"data":{"evaConf":{}}})");
  EXPECT_THAT(takeEvents(), ElementsAre("evaConfig@delivery"));
}

}  // namespace
}  // namespace quor::test
