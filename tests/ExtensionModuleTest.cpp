// What a host sees of the extension module: registrations, log entries, signal types and the
// answers it forwards.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using ExtensionModule = ClientFixture;

std::vector<std::string> namesOf(const std::vector<KXMessageContentType>& types) {
  std::vector<std::string> names;
  for (const auto& type : types) names.push_back(type.objectName());
  return names;
}

TEST_F(ExtensionModule, LoadsOnceAndRegistersTheTenReceivableTypesInOrder) {
  std::vector<QuorCustomerServiceExtensionModule*> loaded(4);
  std::vector<std::thread> threads;
  for (auto& slot : loaded) {
    threads.emplace_back(
        [&slot] { slot = &QuorCustomerServiceExtensionModule::loadQuorExtensionModule(); });
  }
  for (auto& thread : threads) thread.join();
  for (auto* module : loaded) EXPECT_EQ(module, loaded[0]);
  EXPECT_EQ(&QuorCustomerServiceExtensionModule::loadQuorExtensionModule(), loaded[0]);

  EXPECT_EQ(host->logs().size(), 5u);
  for (const auto& log : host->logs()) {
    EXPECT_EQ(log.level, 4);
    EXPECT_EQ(log.type, 1024);
    EXPECT_EQ(log.tag, "QuorCustomerServiceExtensionModule.cpp");
    EXPECT_EQ(log.text, "QuorCustomerServiceExtensionModule loadQuorExtensionModule");
  }
  const std::vector<std::string> expected = {"KX:CsCha", "KX:CsChaR", "KX:CsHs",     "KX:CsHsR",
                                             "KX:CsSp",  "KX:CsEnd",  "KX:CsUpdate", "KX:CsPullEva",
                                             "KX:CsPLM", "KX:CsLM"};
  EXPECT_EQ(namesOf(loaded[0]->messageTypeList()), expected);
  if (host->registrations().empty())
    GTEST_SKIP() << "the module was loaded earlier in this process";
  EXPECT_EQ(namesOf(host->registrations()), expected);
  const auto made = host->registrations()[7].create();
  EXPECT_TRUE(dynamic_cast<KXCSPullEvaluateMessage*>(made.get()));
  EXPECT_NE(made, host->registrations()[7].create());  // a fresh instance each time
  EXPECT_EQ(host->registrations()[8].persistentFlag(), 1u);
}

TEST_F(ExtensionModule, SignalTypesComeInAFreshListOfNine) {
  auto& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  EXPECT_THAT(namesOf(module.getSignalMessageClassList()),
              ElementsAre("KX:CsEva", "KX:CsUpdate", "KX:CsPullEva", "KX:CsChaR", "KX:CsEnd",
                          "KX:CsSp", "KX:CsHsR", "KX:CsHs", "KX:CsCha"));
  auto list = module.getSignalMessageClassList();
  list.clear();
  EXPECT_EQ(module.getSignalMessageClassList().size(), 9u);
}

TEST_F(ExtensionModule, ForwardsEveryMessageAndReturnsTheClientsAnswer) {
  QuorIMLibExtensionModule& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  start("desk");
  host->confirmSend(0, 100);
  for (const bool offline : {false, true}) {
    auto text = std::make_shared<KXTextMessage>();
    EXPECT_FALSE(module.didHoldReceivedMessage(receivedMessage(text, "desk", 200, 1), offline));
    EXPECT_FALSE(module.didHoldReceivedMessage(receivedMessage(text, "desk", 200), offline));
    EXPECT_FALSE(module.didHoldReceivedMessage(
        receivedMessage(decoded<KXCSPullEvaluateMessage>(KXDictionary::object()), "desk", 200),
        offline));
    EXPECT_TRUE(module.didHoldReceivedMessage(
        receivedMessage(decoded<KXCSUpdateMessage>(KXDictionary::object()), "desk", 1), offline));
  }
  EXPECT_EQ(host->pendingMain(), 2u);  // the two evaluation requests

  // destroyModule only logs; the module still forwards and the service keeps working.
  host->clear();
  module.destroyModule();
  EXPECT_THAT(logLines(), ElementsAre("4|QuorCustomerServiceExtensionModule destroyModule"));
  EXPECT_TRUE(module.didHoldReceivedMessage(
      receivedMessage(decoded<KXCSHandShakeResponseMessage>(
                          KXDictionary::parse(R"({"status":1,"data":{"sid":"c"}})")),
                      "desk", 100),
      false));
  EXPECT_EQ(session("desk")->cid(), "c");
}

TEST_F(ExtensionModule, LifecycleEventsOnlyLogTheAppKey) {
  QuorIMLibExtensionModule& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  host->clear();
  start("desk");
  module.setAppKey(KXString("key-1"));
  module.setAppKey(std::nullopt);
  module.setConfiguration(std::make_shared<KXNaviDataInfo>());
  module.setConfiguration(nullptr);
  module.setUserId("u");
  module.setCurrentToken("t");
  module.setDeviceToken("d");
  module.notifyConnectionStatusChanged(-1);
  module.notifyLogoutEvent();
  EXPECT_THAT(logLines(), ElementsAre("4|QuorCustomerServiceExtensionModule setAppKey = key-1",
                                      "4|QuorCustomerServiceExtensionModule setAppKey = (null)"));
  EXPECT_EQ(host->logs()[1].arguments.at(0).kind, KXLogArgument::Kind::Absent);
  EXPECT_EQ(client().kefuId(), "desk");
  EXPECT_EQ(host->sends().size(), 1u);
}

}  // namespace
}  // namespace quor::test
