// The desk's mode-change responses, ends, updates and evaluation requests.
#include <gmock/gmock.h>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using ControlMessages = ClientFixture;

TEST_F(ControlMessages, ModeChangeResponses) {
  struct Row {
    int serviceType;
    const char* body;
    std::vector<std::string> events;
    int typeAfter;
    std::vector<std::string> notices;
    bool greeting;
  };
  const std::vector<Row> rows = {
      {3, R"({"code":1,"data":{"status":1}})", {"mode(2) current=2@main"}, 3, {}, false},
      {3, R"({"code":1,"data":{"status":4}})", {"mode(2) current=2@main"}, 3, {}, false},
      {4, R"({"code":0})", {"mode(3) current=3@main"}, 3, {}, true},  // failure reads as 2
      {2, R"({"code":1,"data":{"status":2}})", {"mode(0) current=0@main"}, 2, {}, false},
      {1, R"({"code":1,"data":{"status":2}})", {}, 1, {}, false},
      {3, R"({"code":1,"data":{"status":3}})", {}, 3, {"你已被拉黑"}, false},
      {3, R"({"code":0,"msg":""})", {}, 3, {}, false},  // result 2 for a robot-first service
      {3, R"({"code":1,"data":{"status":7}})", {}, 3, {}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    SetUp();
    startAndAnswer("desk", ("{\"serviceType\":" + std::to_string(row.serviceType) +
                            R"(,"robotWelcome":"Hi","robotName":"Bot"})")
                               .c_str());
    host->drainMain();
    host->clear();
    takeEvents();
    client().setCurrentCSModeType(static_cast<KXCSModeType>(9));
    EXPECT_TRUE(deliver<KXCSChangeModeResponseMessage>("desk", row.body));
    host->drainMain();
    EXPECT_EQ(takeEvents(), row.events);
    EXPECT_EQ(session("desk")->type(), row.typeAfter);
    std::vector<std::string> notices;
    for (const auto& fake : host->fakeReceives()) {
      if (auto* notice =
              dynamic_cast<KXInformationNotificationMessage*>(fake.message->content().get())) {
        notices.push_back(*notice->message());
        EXPECT_EQ(fake.thread, "delivery");
      }
    }
    EXPECT_EQ(notices, row.notices);
    ASSERT_EQ(host->inserts().size(), row.greeting ? 1u : 0u);
    if (row.greeting) {
      EXPECT_EQ(host->inserts()[0].thread, "main");
      EXPECT_EQ(dynamic_cast<KXTextMessage&>(*host->inserts()[0].content).content(), "Hi");
    }
    if (row.events.empty()) {
      EXPECT_EQ(client().currentCSModeType(), 9u);
    }
  }
}

TEST_F(ControlMessages, RefusalTextAndHumanFirstFallbackWithoutGreeting) {
  startAndAnswer("desk", R"({"serviceType":4})");
  host->drainMain();
  takeEvents();
  deliver<KXCSChangeModeResponseMessage>("desk", R"({"code":0,"msg":"blocked"})");
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("mode(3) current=3@main"));
  EXPECT_TRUE(host->inserts().empty());
  EXPECT_EQ(session("desk")->type(), 3);
}

TEST_F(ControlMessages, EvaluationConfigurationSetsTheResolveFlag) {
  struct Row {
    const char* satisfaction;
    bool before;
    bool after;
  };
  const std::vector<Row> rows = {
      {R"([{"isQuestionFlag":true},{}])", true, false},
      {R"([{"isQuestionFlag":true},{"isQuestionFlag":null}])", false, true},
      {R"([{"isQuestionFlag":"0"}])", true, false},
      {R"([{"isQuestionFlag":1},7])", true, false},
      {R"([])", true, true},
      {R"({"isQuestionFlag":1})", false, false},
      {R"(null)", true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.satisfaction);
    SetUp();
    takeEvents();
    start("desk");
    client().getHumanEvaluateCustomerServiceConfig(
        [this](const auto& config) { record("evaConfig(" + config->dump() + ")"); });
    session("desk")->setReportResolveStatus(row.before);
    client().setHandShakeMessageSendTime(1);
    deliver<KXCSChangeModeResponseMessage>(
        "desk",
        std::string(R"({"code":1,"data":{"status":9,"satisfaction":)") + row.satisfaction + "}}");
    EXPECT_EQ(session("desk")->reportResolveStatus(), row.after);
    EXPECT_EQ(events(), std::vector<std::string>{"evaConfig({\"evaConfig\":" +
                                                 std::string(row.satisfaction) + "})@delivery"});
  }

  // Without the callback, or without a configuration, the flag is left alone.
  SetUp();
  start("desk");
  session("desk")->setReportResolveStatus(true);
  client().setHandShakeMessageSendTime(1);
  deliver<KXCSChangeModeResponseMessage>("desk", R"({"code":1,"data":{"satisfaction":[{}]}})");
  EXPECT_TRUE(session("desk")->reportResolveStatus());
}

TEST_F(ControlMessages, EndOfService) {
  struct Row {
    const char* body;
    std::vector<std::string> events;
    std::vector<std::string> notices;
    bool stopped;
  };
  const std::vector<Row> rows = {
      {R"({"code":0,"msg":""})", {"quit(客服会话已结束!)@main"}, {}, true},
      {R"({"code":0,"msg":"Bye","cid":"c"})", {"quit(Bye)@main"}, {"Bye"}, true},
      {R"({"code":0,"sid":"c"})", {"quit(客服会话已结束!)@main"}, {}, true},
      {R"({"code":0,"cid":"other"})", {}, {}, false},
      {R"({"code":0,"cid":null})", {}, {}, false},
      {R"({"code":1,"msg":"Agent left"})", {"mode(3) current=3@main"}, {"Agent left"}, false},
      {R"({"code":5})", {}, {}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    SetUp();
    startAndAnswer("desk", R"({"sid":"c","serviceType":2,"suspendWhenQuit":true})");
    host->drainMain();
    host->clear();
    takeEvents();
    EXPECT_TRUE(deliver<KXCSTerminateMessage>("desk", row.body));
    std::vector<std::string> notices;
    for (const auto& fake : host->fakeReceives()) {
      notices.push_back(
          *dynamic_cast<KXInformationNotificationMessage&>(*fake.message->content()).message());
    }
    EXPECT_EQ(notices, row.notices);  // shown first, on the delivering thread
    host->drainMain();
    EXPECT_EQ(takeEvents(), row.events);
    EXPECT_EQ(session("desk")->isQuited(), row.stopped);
    EXPECT_EQ(sent(), row.stopped ? std::vector<std::string>{R"(KX:CsSp {"sid":"c"})"}
                                  : std::vector<std::string>{});
  }

  // After a stop, a further end is ignored.
  client().stopCustomerService("desk");
  host->clear();
  EXPECT_TRUE(deliver<KXCSTerminateMessage>("desk", R"({"code":0,"msg":"again"})"));
  host->drainMain();
  EXPECT_TRUE(host->fakeReceives().empty());
  EXPECT_TRUE(host->sends().empty());
}

TEST_F(ControlMessages, Updates) {
  struct Row {
    int serviceType;
    const char* body;
    std::vector<std::string> events;
  };
  const std::vector<Row> rows = {
      {1, R"({"serviceStatus":2})", {"mode(2) current=2@main"}},
      {1, R"({"serviceStatus":1})", {"mode(1) current=1@main"}},
      {2, R"({"serviceStatus":"1"})", {"mode(1) current=1@main"}},
      {3, R"({"serviceStatus":1})", {"mode(3) current=3@main"}},
      {4, R"({"serviceStatus":1})", {"mode(3) current=3@main"}},
      {3, R"({"serviceStatus":3})", {"mode(0) current=0@main"}},
      {3, R"({"serviceStatus":0})", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    SetUp();
    startAndAnswer(
        "desk",
        ("{\"sid\":\"old\",\"serviceType\":" + std::to_string(row.serviceType) + "}").c_str());
    host->drainMain();
    takeEvents();
    EXPECT_TRUE(deliver<KXCSUpdateMessage>("desk", row.body));
    EXPECT_EQ(session("desk")->cid(), "old");
    host->drainMain();
    EXPECT_EQ(takeEvents(), row.events);
  }
  EXPECT_TRUE(deliver<KXCSUpdateMessage>("desk", R"({"sid":"new","serviceStatus":2})"));
  EXPECT_EQ(session("desk")->cid(), "new");
  EXPECT_TRUE(deliver<KXCSUpdateMessage>("unknown", R"({"sid":"x","serviceStatus":2})"));
  host->drainMain();
}

TEST_F(ControlMessages, EvaluationRequests) {
  startAndAnswer("desk", R"({"serviceType":2})");
  host->drainMain();
  takeEvents();
  EXPECT_FALSE(deliver<KXCSPullEvaluateMessage>("desk", R"({"msgId":"dialog-7"})"));
  EXPECT_FALSE(deliver<KXCSPullEvaluateMessage>("desk", R"({})"));
  EXPECT_FALSE(deliver<KXCSPullEvaluateMessage>("unknown", R"({"msgId":"x"})"));
  EXPECT_EQ(host->pendingMain(), 3u);
  host->drainMain();
  EXPECT_THAT(takeEvents(),
              ElementsAre("pullEvaluation(dialog-7)@main", "pullEvaluation(null)@main"));
}

}  // namespace
}  // namespace quor::test
