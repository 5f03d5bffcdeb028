// Received messages: the answer for every kind of message, the staleness filter, and the
// handshake response.
#include <gmock/gmock.h>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using Dispatch = ClientFixture;

template <class T>
std::function<bool(Dispatch&, int64_t, int32_t)> delivering(const char* body) {
  return [body](Dispatch& test, int64_t sentTime, int32_t type) {
    return test.template deliver<T>("desk", body, sentTime, type);
  };
}

TEST_F(Dispatch, AnswersForEveryKindOfMessage) {
  struct Row {
    const char* name;
    std::function<bool(Dispatch&, int64_t, int32_t)> deliver;
    bool current;  // the answer when current; stale control messages always answer true
  };
  const std::vector<Row> rows = {
      {"CsChaR", delivering<KXCSChangeModeResponseMessage>(R"({"code":1,"data":{"status":9}})"),
       true},
      {"CsEnd", delivering<KXCSTerminateMessage>(R"({"code":9})"), true},
      {"CsHsR", delivering<KXCSHandShakeResponseMessage>(R"({"status":0})"), true},
      {"CsUpdate", delivering<KXCSUpdateMessage>(R"({"serviceStatus":9})"), true},
      {"CsPullEva", delivering<KXCSPullEvaluateMessage>(R"({"msgId":"d"})"), false},
      {"CsPLM", delivering<KXCSPullLeaveMessage>(R"({"content":"c"})"), false},
      {"text", delivering<KXTextMessage>(R"({"content":"hi"})"), false},
  };
  start("desk");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const bool control = std::string(row.name) != "CsPLM" && std::string(row.name) != "text";
    client().setHandShakeMessageSendTime(
        0);  // nothing confirmed yet: every control message is stale
    EXPECT_EQ(row.deliver(*this, 500, 5), control ? true : row.current);
    client().setHandShakeMessageSendTime(500);
    EXPECT_EQ(row.deliver(*this, 499, 5),
              control ? true : row.current);             // older than the handshake
    EXPECT_EQ(row.deliver(*this, 500, 5), row.current);  // equal counts as current
    EXPECT_EQ(row.deliver(*this, 501, 5), row.current);
    EXPECT_FALSE(row.deliver(*this, 501, 1));  // another conversation type
  }
  EXPECT_FALSE(client().onCustomerServiceMessageReceived(nullptr));
  // Stale messages were ignored; current ones had nothing to call beyond the failed handshake.
  host->drainMain();
}

TEST_F(Dispatch, StaleMessagesChangeNothing) {
  startAndAnswer("desk", R"({"serviceType":1})", 100);
  host->drainMain();
  takeEvents();
  EXPECT_TRUE(deliver<KXCSTerminateMessage>("desk", R"({"code":0})", 99));
  EXPECT_TRUE(deliver<KXCSHandShakeResponseMessage>("desk", R"({"status":0})", 50));
  host->drainMain();
  EXPECT_TRUE(events().empty());
  EXPECT_FALSE(session("desk")->isQuited());
}

TEST_F(Dispatch, SuccessfulHandshakeResponse) {
  start("desk");
  client().getHumanEvaluateCustomerServiceConfig(
      [this](const auto& config) { record("evaConfig(" + config->dump() + ")"); });
  host->confirmSend(0, 100);
  EXPECT_TRUE(deliver<KXCSHandShakeResponseMessage>("desk", R"({"status":1,"data":{
      "uid":"u","sid":"c","pid":"p","serviceType":3,"robotName":"Bot","robotIcon":"logo",
      "robotWelcome":"Hello!","companyName":"ACME","isblack":true,"robotSessionNoEva":1,
      "humanSessionNoEva":1,"adminTipTime":1,"adminTipWord":"a","userTipTime":2,"userTipWord":"b",
      "disableLocation":1,"suspendWhenQuit":true,"notAutoCha":true,
      "announceMsgFlag":1,"announceMsg":"news","announceClickFlag":1,"announceClickUrl":"url",
      "groups":[{"id":"g1"},{"id":"g2"}],"evaluateList":[{"value":5}],
      "evaConf":{"evaEntryPoint":3,"evaType":4,"reportResolveStatus":1},
      "leaveMsgConf":{"type":5,"customConf":{"url":"lm"},"defaultConf":[{"name":"n"}]}}})",
                                                    100));

  // On the delivering thread: session, evaluation configuration, greeting.
  EXPECT_THAT(
      events(),
      ElementsAre(
          R"(evaConfig({"evaEntryPoint":3,"evaType":4,"reportResolveStatus":1})@delivery)"));
  const auto s = session("desk");
  EXPECT_EQ(s->uid(), "u");
  EXPECT_EQ(s->cid(), "c");
  EXPECT_EQ(s->pid(), "p");
  EXPECT_EQ(s->type(), 3);
  EXPECT_EQ(s->robotName(), "Bot");
  EXPECT_EQ(s->robotLogo(), "logo");
  EXPECT_EQ(s->robotHelloWord(), "Hello!");
  EXPECT_EQ(s->groupList()->size(), 2u);
  EXPECT_TRUE(s->reportResolveStatus());
  EXPECT_TRUE(s->suspendWhenQuit());
  EXPECT_FALSE(s->isQuited());

  ASSERT_EQ(host->inserts().size(), 1u);
  const RecordedInsert greeting = host->inserts()[0];
  EXPECT_EQ(greeting.thread, "delivery");
  EXPECT_EQ(greeting.conversationType, 5);
  EXPECT_EQ(greeting.targetId, "desk");
  EXPECT_EQ(greeting.senderUserId, "desk");
  EXPECT_EQ(greeting.receivedStatus, 1);
  const auto& text = dynamic_cast<KXTextMessage&>(*greeting.content);
  EXPECT_EQ(text.content(), "Hello!");
  ASSERT_TRUE(text.senderUserInfo());
  EXPECT_EQ(text.senderUserInfo()->userId(), "desk");
  EXPECT_EQ(text.senderUserInfo()->name(), "Bot");
  EXPECT_EQ(text.senderUserInfo()->portraitUri(), "logo");
  ASSERT_EQ(host->fakeReceives().size(), 1u);
  EXPECT_EQ(host->fakeReceives()[0].message, greeting.record);
  EXPECT_EQ(host->sends().size(), 1u);  // robot-first never switches by itself

  // On the main thread: success, then the mode.
  EXPECT_EQ(client().currentCSModeType(), KXCSModeNoService);
  host->drainMain();
  EXPECT_THAT(
      takeEvents(),
      ElementsAre(
          "evaConfig({\"evaEntryPoint\":3,\"evaType\":4,\"reportResolveStatus\":1})@delivery",
          "success@main", "mode(3) current=3@main"));
  // The configuration is the response's one record (its fields' decoding: MessageDecoding);
  // only the app's own companyUrl stays unset.
  const auto& config = *lastConfig;
  EXPECT_EQ(config.companyName(), "ACME");
  EXPECT_FALSE(config.companyUrl());
  EXPECT_EQ(config.leaveMessageNativeInfo()->at(0)->name(), "n");
  EXPECT_EQ(config.announceClickUrl(), "url");
}

TEST_F(Dispatch, GreetingAndAutomaticSwitchByServiceType) {
  struct Row {
    const char* data;
    int mode;
    bool greeting;
    bool senderInfo;
    KXString senderName;
    bool switched;
  };
  const std::vector<Row> rows = {
      {R"({"serviceType":1,"robotWelcome":"hi","robotName":"","robotIcon":""})",
       1,
       true,
       false,
       {},
       false},
      {R"({"serviceType":1,"robotWelcome":"hi","robotName":"","robotIcon":"L"})", 1, true, true, "",
       false},
      {R"({"serviceType":1,"robotWelcome":"hi","robotIcon":"L"})", 1, true, true, std::nullopt,
       false},
      {R"({"serviceType":1,"robotWelcome":""})", 1, false, false, {}, false},
      {R"({"serviceType":3,"robotWelcome":"hi","robotName":"R","notAutoCha":1})", 3, true, true,
       "R", false},
      {R"({"serviceType":2,"robotWelcome":"hi","notAutoCha":1})", 2, false, false, {}, true},
      {R"({"serviceType":4,"notAutoCha":"true"})", 2, false, false, {}, true},
      {R"({"serviceType":4,"notAutoCha":0})", 2, false, false, {}, false},
      {R"({"serviceType":7})", 2, false, false, {}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.data);
    host->clear();
    takeEvents();
    startAndAnswer("desk", row.data);
    host->drainMain();
    EXPECT_EQ(events().back(), "mode(" + std::to_string(row.mode) +
                                   ") current=" + std::to_string(row.mode) + "@main");
    ASSERT_EQ(host->inserts().size(), row.greeting ? 1u : 0u);
    if (row.greeting) {
      const auto& sender = host->inserts()[0].content->senderUserInfo();
      ASSERT_EQ(bool(sender), row.senderInfo);
      if (sender) {
        EXPECT_EQ(sender->name(), row.senderName);
      }
    }
    // The switch sends one mode-change request carrying the new identifiers.
    EXPECT_EQ(host->sends().size(), row.switched ? 2u : 1u);
    if (row.switched) {
      EXPECT_EQ(host->sends()[1].objectName, "KX:CsCha");
    }
  }
}

TEST_F(Dispatch, FailedHandshakeReportsTheDesksText) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {R"({"status":0,"msg":"closed today"})", "error(0,closed today)@main"},
      {R"({"status":0,"msg":""})", "error(0,连接客服失败!)@main"},
      {R"({"status":"0"})", "error(0,连接客服失败!)@main"},
  };
  for (const auto& [body, expected] : rows) {
    start("desk");
    session("desk")->setIsQuited(true);
    host->confirmSend(host->sends().size() - 1, 100);
    EXPECT_TRUE(deliver<KXCSHandShakeResponseMessage>("desk", body, 100));
    host->drainMain();
    EXPECT_THAT(takeEvents(), ElementsAre(expected));
    EXPECT_TRUE(session("desk")->isQuited());  // unchanged, and not stopped
    EXPECT_EQ(client().kefuId(), "desk");
  }
}

TEST_F(Dispatch, ModeIsRecordedOnlyWithItsCallbackAndStopSilencesPostedCallbacks) {
  client().startCustomerService("quiet", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr);
  host->confirmSend(0, 100);
  deliver<KXCSHandShakeResponseMessage>("quiet", R"({"status":1,"data":{"serviceType":2}})", 100);
  host->drainMain();
  EXPECT_EQ(client().currentCSModeType(), KXCSModeNoService);

  startAndAnswer("desk", R"({"serviceType":2})");
  client().stopCustomerService("desk");
  host->drainMain();
  EXPECT_TRUE(events().empty());
  EXPECT_EQ(client().currentCSModeType(), KXCSModeNoService);
}

TEST_F(Dispatch, ResponsesFindTheirDeskBySenderAndIgnoreUnknownDesks) {
  start("A");
  start("B");
  host->confirmSend(1, 100);
  EXPECT_TRUE(
      deliver<KXCSHandShakeResponseMessage>("A", R"({"status":1,"data":{"sid":"a1"}})", 100));
  EXPECT_EQ(session("A")->cid(), "a1");
  EXPECT_FALSE(session("B")->cid());
  EXPECT_TRUE(deliver<KXCSHandShakeResponseMessage>("nobody", R"({"status":1,"data":{}})", 100));
  EXPECT_EQ(client().customerServiceSessions().size(), 2u);
}

TEST_F(Dispatch, AFailedInsertHandsAnAbsentRecordOn) {
  host->setInsertFails(true);
  startAndAnswer("desk", R"({"serviceType":1,"robotWelcome":"hi"})");
  ASSERT_EQ(host->fakeReceives().size(), 1u);
  EXPECT_FALSE(host->fakeReceives()[0].message);
}

}  // namespace
}  // namespace quor::test
