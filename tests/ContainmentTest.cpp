// Whatever the application's callbacks and the host's objects do (throw, report a send twice,
// re-enter the load), the library throws nothing at them and every step its rules require
// still happens.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Containment = ClientFixture;

[[noreturn]] void fault() { throw std::runtime_error("app fault"); }

int errorLines(const RecordingHost& host) {
  int count = 0;
  for (const auto& log : host.logs()) count += log.level == 2;
  return count;
}

// A callback that throws is logged and the handling goes on with its next step: the stop after
// the error and quit callbacks, the mode report after the success and evaluation-configuration
// callbacks, the leave-message report's end.
TEST_F(Containment, AThrowingCallbackNeverCancelsTheStepAfterIt) {
  struct Case {
    const char* name;
    std::function<void(Containment&)> run;
    std::vector<std::string> events;
    bool stopped;
    int thrown = 1;
  };
  const auto answered = [](Containment& t, const char* data) {
    t.host->confirmSend(t.host->sends().size() - 1, 10);
    t.deliver<KXCSHandShakeResponseMessage>("desk",
                                            std::string(R"({"status":1,"data":)") + data + "}");
  };
  const std::vector<Case> cases = {
      {"error callback, then the stop",
       [&](Containment& t) {
         client().startCustomerService(
             "desk", nullptr, nullptr, [](int64_t, auto&) { fault(); }, nullptr, nullptr, nullptr,
             nullptr);
         t.host->failSend(0, 7);
       },
       {},
       true},
      {"quit callback, then the stop",
       [&](Containment& t) {
         client().startCustomerService("desk", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       [](auto&) { fault(); });
         answered(t, R"({"serviceType":2,"suspendWhenQuit":true})");
         t.deliver<KXCSTerminateMessage>("desk", R"({"code":0})");
       },
       {},
       true},
      {"success and evaluation-configuration callbacks, then the mode",
       [&](Containment& t) {
         client().startCustomerService(
             "desk", nullptr, [](auto) { fault(); }, nullptr,
             [&t](KXCSModeType mode) { t.record("mode(" + std::to_string(mode) + ")"); }, nullptr,
             nullptr, nullptr);
         client().getHumanEvaluateCustomerServiceConfig([](const auto&) { fault(); });
         answered(t, R"({"serviceType":3,"evaConf":{}})");
       },
       {"mode(3)@main"},
       false,
       2},
      {"the host's insert of the greeting throws: success and mode still come",
       [&](Containment& t) {
         t.start("desk");
         t.host->setThrows(HostCall::Insert, true);
         answered(t, R"({"serviceType":1,"robotWelcome":"Hi"})");
       },
       {"success@main", "mode(1) current=1@main"},
       false},
      {"a leave-message callback",
       [&](Containment& t) {
         client().leaveMessageCustomerService(
             "desk", std::make_shared<KXDictionary>(KXDictionary::object()),
             [](int64_t) { fault(); }, [](int64_t, int64_t) { fault(); });
         t.host->confirmSend(0, 10);
       },
       {},
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TearDown();
    SetUp();
    client().startCustomerService("desk", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr);
    answered(*this, R"({"suspendWhenQuit":true})");  // a stop now sends a suspend message
    host->clear();
    host->drainMain();
    c.run(*this);
    EXPECT_NO_THROW(host->drainMain());
    EXPECT_EQ(takeEvents(), c.events);
    EXPECT_EQ(errorLines(*host), c.thrown) << ::testing::PrintToString(logLines());
    EXPECT_EQ(session("desk")->isQuited(), c.stopped);
    if (c.stopped) {
      EXPECT_EQ(sent().back(), "KX:CsSp {}");
      EXPECT_FALSE(client().kefuId());
      EXPECT_FALSE(session("desk")->modeTypeBlock() || session("desk")->errorBlock() ||
                   session("desk")->quitBlock());
    }
  }
}

// Every call into the host may throw: the library logs it (when the logger works) and throws
// nothing back, whichever operation made the call.
TEST_F(Containment, AHostThatThrowsGetsNothingThrownBack) {
  const std::vector<std::pair<HostCall, const char*>> calls = {
      {HostCall::Send, "send"}, {HostCall::Insert, "insert"},     {HostCall::FakeReceive, "fake"},
      {HostCall::Log, "log"},   {HostCall::Configuration, "cfg"}, {HostCall::Post, "post"}};
  for (const auto& [call, name] : calls) {
    SCOPED_TRACE(name);
    host->setThrows(call, true);
    EXPECT_NO_THROW({
      auto& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
      EXPECT_NE(QuorCustomerServiceLoadExtensionModule(), nullptr);
      module.setAppKey("key");
      module.destroyModule();
      start("desk");
      host->failSend(host->sends().size() - 1, 3);
      host->confirmSend(0, 10);
      for (const char* body :
           {R"({"status":1,"data":{"serviceType":1,"robotWelcome":"Hi"}})", "{", "[]"}) {
        deliver<KXCSHandShakeResponseMessage>("desk", body, 20);
      }
      deliver<KXCSChangeModeResponseMessage>("desk", R"({"code":1,"data":{"status":3}})", 20);
      deliver<KXCSTerminateMessage>("desk", R"({"code":0,"msg":"bye"})", 20);
      client().notifyCustomerService("desk", "note", false);
      client().evaluateCustomerService("desk", "k", true, "s");
      client().leaveMessageCustomerService("desk", nullptr, nullptr, nullptr);
      client().stopCustomerService("desk");
      host->drainMain();
    });
    host->setThrows(call, false);
  }
}

// However often and however contradictorily the host reports a send, the library acts on its
// first report only: one leave-message callback, one error callback and stop per start.
TEST_F(Containment, ASendReportedTwiceCountsOnce) {
  struct Case {
    const char* name;
    std::function<void(RecordingHost&)> report;
    std::vector<std::string> leaveEvents;
    std::vector<std::string> startEvents;
  };
  const std::vector<Case> cases = {
      {"sent twice",
       [](RecordingHost& h) {
         h.confirmSend(0, 5);
         h.confirmSend(0, 6);
       },
       {"left"},
       {}},
      {"sent, then failed",
       [](RecordingHost& h) {
         h.confirmSend(0, 5);
         h.failSend(0, 9);
       },
       {"left"},
       {}},
      {"failed twice",
       [](RecordingHost& h) {
         h.failSend(0, 9);
         h.failSend(0, 8);
       },
       {"notLeft(9)"},
       {"error(9,连接客服失败!)@main"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> leave;
    client().leaveMessageCustomerService(
        "desk", nullptr, [&](int64_t) { leave.push_back("left"); },
        [&](int64_t code, int64_t) { leave.push_back("notLeft(" + std::to_string(code) + ")"); });
    c.report(*host);
    EXPECT_EQ(leave, c.leaveEvents);

    host->clear();
    client().setHandShakeMessageSendTime(0);
    client().startCustomerService(
        "desk", nullptr, nullptr,
        [this](int64_t code, const std::string& text) {
          record("error(" + std::to_string(code) + "," + text + ")");
        },
        nullptr, nullptr, nullptr, nullptr);
    c.report(*host);
    host->drainMain();
    EXPECT_EQ(takeEvents(), c.startEvents);
    EXPECT_EQ(client().handShakeMessageSendTime(), c.startEvents.empty() ? 5 : 0);
    host->clear();
  }
}

// A registration that throws is logged; the next load goes on with the type that failed, so
// that in the end each type is registered once, in order. A load from inside the host's
// registration returns at once.
TEST_F(Containment, ARegistrationThatThrowsIsFinishedByTheNextLoad) {
  host->setThrows(HostCall::Register, true);
  auto& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  if (errorLines(*host) == 0) GTEST_SKIP() << "the module was loaded earlier in this process";
  EXPECT_THAT(host->registrations(), IsEmpty());
  host->setThrows(HostCall::Register, false);
  EXPECT_EQ(&QuorCustomerServiceExtensionModule::loadQuorExtensionModule(), &module);
  EXPECT_EQ(host->registrations().size(), 10u);
  EXPECT_EQ(host->registrations()[0].objectName(), "KX:CsCha");
  host->clear();
  QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  EXPECT_THAT(host->registrations(), IsEmpty());
}

}  // namespace
}  // namespace quor::test
