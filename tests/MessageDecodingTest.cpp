// Received message types: keys, coercions, defaults and log lines of each decoder.
#include <gmock/gmock.h>

#include "QuorCustomerService/QuorCustomerService.h"
#include "support/HostFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using Decoding = HostFixture;

KXDictionary J(const char* text) { return KXDictionary::parse(text); }

TEST_F(Decoding, IntegerReadings) {
  // The update's "serviceStatus" is read as an integer.
  const std::vector<std::pair<const char*, int32_t>> cases = {
      {R"("12")", 12},
      {"3.9", 3},
      {"-3.9", -3},
      {"true", 1},
      {"false", 0},
      {R"("  -7x")", -7},
      {R"("+4")", 4},
      {R"("abc")", 0},
      {"null", 0},
      {"[1]", 0},
      {R"({"a":1})", 0},
      {"4294967298", 2},
      {"1e12", INT32_MAX},
      {"-1e12", INT32_MIN},
      {R"("99999999999")", INT32_MAX},
      {"18446744073709551615", -1},
  };
  for (const auto& [value, expected] : cases) {
    auto update =
        decoded<KXCSUpdateMessage>(J((std::string(R"({"serviceStatus":)") + value + "}").c_str()));
    EXPECT_EQ(update->serviceStatus(), expected) << value;
  }
}

TEST_F(Decoding, BooleanReadings) {
  // A group's "online" is read as a boolean.
  const std::vector<std::pair<const char*, bool>> cases = {
      {"true", true},        {"false", false},    {"1", true},           {"0", false},
      {"0.5", true},         {"-2", true},        {R"("Yes")", true},    {R"("yes")", true},
      {R"("T")", true},      {R"("true")", true}, {R"("  -007")", true}, {R"("000")", false},
      {R"("no")", false},    {R"("")", false},    {"null", false},       {"[1]", false},
      {R"({"a":1})", false},
  };
  for (const auto& [value, expected] : cases) {
    auto response = decoded<KXCSHandShakeResponseMessage>(
        J((std::string(R"({"status":1,"data":{"groups":[{"online":)") + value + "}]}}").c_str()));
    ASSERT_EQ(response->groupList()->size(), 1u) << value;
    EXPECT_EQ(response->groupList()->at(0)->online(), expected) << value;
  }
}

TEST_F(Decoding, StringReadingsKeepNonStringsAsJsonText) {
  const std::vector<std::pair<const char*, KXString>> cases = {
      {R"("e1")", "e1"},
      {R"("")", ""},
      {"42", "42"},
      {"1.5", "1.5"},
      {"true", "true"},
      {"null", std::nullopt},
      {R"({"a":[1]})", R"({"a":[1]})"},
  };
  for (const auto& [value, expected] : cases) {
    auto pull =
        decoded<KXCSPullEvaluateMessage>(J((std::string(R"({"msgId":)") + value + "}").c_str()));
    EXPECT_EQ(pull->evaluateId(), expected) << value;
  }
}

TEST_F(Decoding, HandShakeResponseReadsEveryKey) {
  host->setSuspendWhenLeave(true);
  auto r = decoded<KXCSHandShakeResponseMessage>(J(R"({
    "status": 1, "msg": "ok",
    "data": {"uid": "u", "sid": "s", "pid": "p", "companyName": "ACME", "isblack": 1,
      "serviceType": "3", "adminTipTime": 30, "adminTipWord": "aw", "userTipTime": 60,
      "userTipWord": "uw", "suspendWhenQuit": false, "disableLocation": 1, "robotName": "Bot",
      "robotIcon": "http://i", "robotWelcome": "Hi", "notAutoCha": true,
      "robotSessionNoEva": "y", "humanSessionNoEva": 0,
      "groups": [{"id": "g1", "name": "Sales", "online": true}, 7, {"id": 2}],
      "evaluateList": [{"description": "good", "value": 5}, {"description": "bad", "value": 1}],
      "evaConf": {"evaEntryPoint": 2, "evaType": -1, "reportResolveStatus": 1},
      "leaveMsgConf": {"type": 1, "customConf": {"url": "http://lm"},
        "defaultConf": [{"title": "Name", "required": "1", "max": "20"},
                        {"name": "phone", "type": "tel", "verification": "mobile",
                         "defaultText": "...", "message": ["bad"]}]},
      "announceMsgFlag": "1", "announceMsg": "News", "announceClickFlag": 1,
      "announceClickUrl": "http://a"}})"));
  EXPECT_EQ(r->code(), 1);
  EXPECT_EQ(r->msg(), "ok");
  EXPECT_EQ(r->uid(), "u");
  EXPECT_EQ(r->cid(), "s");
  EXPECT_EQ(r->pid(), "p");
  EXPECT_EQ(r->companyName(), "ACME");
  EXPECT_TRUE(r->isBlack());
  EXPECT_EQ(r->type(), 3);
  EXPECT_EQ(r->adminTipTime(), 30);
  EXPECT_EQ(r->adminTipWord(), "aw");
  EXPECT_EQ(r->userTipTime(), 60);
  EXPECT_EQ(r->userTipWord(), "uw");
  EXPECT_FALSE(r->suspendWhenQuit());  // present false does not fall back
  EXPECT_EQ(r->disableLocation(), 1);
  EXPECT_EQ(r->robotName(), "Bot");
  EXPECT_EQ(r->robotLogo(), "http://i");
  EXPECT_EQ(r->robotHelloWord(), "Hi");
  EXPECT_TRUE(r->requiredChangMode());
  EXPECT_TRUE(r->robotSessionNoEva());
  EXPECT_FALSE(r->humanSessionNoEva());
  ASSERT_EQ(r->groupList()->size(), 2u);  // the non-object entry is skipped
  EXPECT_EQ(r->groupList()->at(0)->groupId(), "g1");
  EXPECT_EQ(r->groupList()->at(0)->name(), "Sales");
  EXPECT_EQ(r->groupList()->at(1)->groupId(), "2");
  ASSERT_EQ(r->humanEvaluationItems()->size(), 2u);
  EXPECT_EQ(r->humanEvaluationItems()->at(0)->value(), 5);
  EXPECT_EQ(r->humanEvaluationItems()->at(0)->describe(), "good");
  EXPECT_EQ(r->humanEvaluationItems()->at(1)->value(), 1);
  ASSERT_TRUE(r->evaConfig());
  EXPECT_EQ(*r->evaConfig(), J(R"({"evaEntryPoint": 2, "evaType": -1, "reportResolveStatus": 1})"));
  EXPECT_EQ(r->evaEntryPoint(), 2u);
  EXPECT_EQ(r->evaType(), 18446744073709551615ull);
  EXPECT_EQ(r->reportResolveStatus(), 1);
  EXPECT_EQ(r->leaveMessageType(), 1u);
  EXPECT_EQ(r->leaveMessageWebUrl(), "http://lm");
  ASSERT_EQ(r->leaveMessageNativeInfo()->size(), 2u);
  const auto& first = *r->leaveMessageNativeInfo()->at(0);
  EXPECT_EQ(first.title(), "Name");
  EXPECT_TRUE(first.required());
  EXPECT_EQ(first.max(), 20);
  EXPECT_FALSE(first.type());
  EXPECT_FALSE(first.verification());
  EXPECT_FALSE(first.message());
  const auto& second = *r->leaveMessageNativeInfo()->at(1);
  EXPECT_EQ(second.name(), "phone");
  EXPECT_EQ(second.type(), "tel");
  EXPECT_EQ(second.verification(), "mobile");
  EXPECT_EQ(second.defaultText(), "...");
  EXPECT_EQ(*second.message(), J(R"(["bad"])"));
  EXPECT_EQ(r->announceMsg(), "News");
  EXPECT_EQ(r->announceClickUrl(), "http://a");
  EXPECT_EQ(host->logs().size(), 1u);

  // The configuration as JSON and back: every field survives, 64-bit values whole.
  const KXDictionary json = r->configuration();
  EXPECT_EQ(json["evaType"], 18446744073709551615ull);
  EXPECT_EQ(json["leaveMessageNativeInfo"][1]["verification"], "mobile");
  EXPECT_EQ(KXDictionary(json.get<KXCSConfiguration>()), json);
  EXPECT_EQ(
      KXCSConfiguration::fromJson(J(R"({"isBlack": "yes", "evaType": "1", "x": 1})")).toJson(),
      KXCSConfiguration().toJson());  // a key of another type reads as absent
}

TEST_F(Decoding, HandShakeResponseDefaultsAndFallbacks) {
  host->setSuspendWhenLeave(true);
  struct Case {
    const char* body;
    std::function<void(const KXCSHandShakeResponseMessage&)> check;
  };
  const std::vector<Case> cases = {
      {R"({"status":0,"msg":"closed","data":{"sid":"s"}})",
       [](const auto& r) {
         EXPECT_EQ(r.code(), 0);
         EXPECT_EQ(r.msg(), "closed");
         EXPECT_FALSE(r.cid());  // "data" is not read on failure
         EXPECT_TRUE(r.groupList()->empty());
         EXPECT_TRUE(r.leaveMessageNativeInfo()->empty());
         EXPECT_FALSE(r.humanEvaluationItems());
         EXPECT_FALSE(r.suspendWhenQuit());
       }},
      {R"({"status":1})",
       [](const auto& r) {
         EXPECT_EQ(r.code(), 1);
         EXPECT_TRUE(r.groupList()->empty());
         EXPECT_TRUE(r.humanEvaluationItems()->empty());
         EXPECT_TRUE(r.leaveMessageNativeInfo()->empty());
         EXPECT_TRUE(r.suspendWhenQuit());  // the local setting
         EXPECT_FALSE(r.msg());
         EXPECT_FALSE(r.evaConfig());
         EXPECT_EQ(r.type(), 0);
       }},
      {R"({"status":-4,"data":{"isBlack":true,"announceMsgFlag":0,"announceMsg":"x","announceClickFlag":1,"announceClickUrl":"u"}})",
       [](const auto& r) {
         EXPECT_EQ(r.code(), -4);
         EXPECT_FALSE(r.isBlack());  // only "isblack" counts
         EXPECT_FALSE(r.announceMsg());
         EXPECT_FALSE(r.announceClickUrl());
       }},
      {R"({"status":1,"data":{"announceMsgFlag":1,"announceMsg":"x","announceClickFlag":0,"announceClickUrl":"u"}})",
       [](const auto& r) {
         EXPECT_EQ(r.announceMsg(), "x");
         EXPECT_FALSE(r.announceClickUrl());
       }},
      {R"({"status":1,"data":{"leaveMsgConf":{"type":2}}})",
       [](const auto& r) {
         EXPECT_EQ(r.leaveMessageType(), 2u);
         EXPECT_FALSE(r.leaveMessageWebUrl());
         EXPECT_TRUE(r.leaveMessageNativeInfo()->empty());
       }},
      {R"({"status":1,"data":{"leaveMsgConf":{"customConf":{}}}})",
       [](const auto& r) { EXPECT_FALSE(r.leaveMessageWebUrl()); }},
      // Values of the wrong JSON type where an object or list is expected read as missing.
      {R"({"status":1,"data":{"groups":{"id":"g"},"evaConf":[1],"leaveMsgConf":"x","evaluateList":null}})",
       [](const auto& r) {
         EXPECT_TRUE(r.groupList()->empty());
         EXPECT_FALSE(r.evaConfig());
         EXPECT_TRUE(r.humanEvaluationItems()->empty());
         EXPECT_EQ(r.leaveMessageType(), 0u);
       }},
      {R"({"status":1,"data":[{"sid":"s"}]})",
       [](const auto& r) {
         EXPECT_FALSE(r.cid());
         EXPECT_TRUE(r.suspendWhenQuit());
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    host->clear();
    c.check(*decoded<KXCSHandShakeResponseMessage>(J(c.body)));
    EXPECT_THAT(host->logs().size(), 1u);
  }
}

TEST_F(Decoding, ChangeModeResponseShapes) {
  struct Case {
    const char* body;
    int32_t result;
    KXString errMsg;
    const char* evaConfig;  // null: absent
    bool logged;
  };
  const std::vector<Case> cases = {
      {R"({"code":200,"data":{"status":1}})", 1, std::nullopt, nullptr, true},
      {R"({"code":1,"data":{"status":"4","satisfaction":{"evaConfig":[{"isQuestionFlag":1}]}}})", 4,
       std::nullopt, R"({"evaConfig":{"evaConfig":[{"isQuestionFlag":1}]}})", true},
      {R"({"code":1,"data":{"status":1,"satisfaction":null}})", 1, std::nullopt,
       R"({"evaConfig":null})", true},
      {R"({"code":0,"msg":"busy"})", 2, "busy", nullptr, false},
      {R"({})", 2, std::nullopt, nullptr, false},
      {R"({"code":1})", 0, std::nullopt, nullptr, true},
      {R"({"code":1,"data":{"status":3},"msg":"m"})", 3, std::nullopt, nullptr, true},
      {R"({"code":"yes","data":"status"})", 0, std::nullopt, nullptr, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    host->clear();
    auto response = decoded<KXCSChangeModeResponseMessage>(J(c.body));
    EXPECT_EQ(response->result(), c.result);
    EXPECT_EQ(response->errMsg(), c.errMsg);
    if (c.evaConfig) {
      ASSERT_TRUE(response->evaConfig());
      EXPECT_EQ(*response->evaConfig(), J(c.evaConfig));
    } else {
      EXPECT_FALSE(response->evaConfig());
    }
    if (c.logged) {
      EXPECT_THAT(logLines(),
                  ElementsAre(std::string("4|KX:CsChaR JSON is : ") + J(c.body).dump()));
    } else {
      EXPECT_TRUE(host->logs().empty());
    }
  }
}

TEST_F(Decoding, TerminateUpdatePullEvaluateAndInvitation) {
  auto end = decoded<KXCSTerminateMessage>(J(R"({"code":1,"msg":"bye","cid":"c","sid":"s"})"));
  EXPECT_EQ(end->code(), 1);
  EXPECT_EQ(end->msg(), "bye");
  EXPECT_EQ(end->cid(), "c");
  EXPECT_EQ(decoded<KXCSTerminateMessage>(J(R"({"sid":"s"})"))->cid(), "s");
  EXPECT_FALSE(decoded<KXCSTerminateMessage>(J(R"({"msg":"x"})"))->cid());
  // A null "cid" counts as present: the "sid" fallback does not run.
  EXPECT_EQ(decoded<KXCSTerminateMessage>(J(R"({"cid":null,"sid":"s"})"))->cid(), "null");

  auto update = decoded<KXCSUpdateMessage>(J(R"({"sid":"s2","cid":"c2","serviceStatus":"2"})"));
  EXPECT_EQ(update->cid(), "s2");  // only "sid" counts
  EXPECT_EQ(update->serviceStatus(), 2);
  EXPECT_EQ(decoded<KXCSUpdateMessage>(J("{}"))->serviceStatus(), 0);

  EXPECT_EQ(decoded<KXCSPullEvaluateMessage>(J(R"({"msgId":"d1"})"))->evaluateId(), "d1");

  auto invitation = decoded<KXCSPullLeaveMessage>(J(R"({"content":"Leave us a note"})"));
  EXPECT_EQ(invitation->content(), "Leave us a note");
  EXPECT_EQ(invitation->conversationDigest(), "Leave us a note");

  EXPECT_THAT(
      logLines(),
      ElementsAre(R"(4|KX:CsEnd JSON is : {"code":1,"msg":"bye","cid":"c","sid":"s"})",
                  R"(4|KX:CsEnd JSON is : {"sid":"s"})", R"(4|KX:CsEnd JSON is : {"msg":"x"})",
                  R"(4|KX:CsEnd JSON is : {"cid":null,"sid":"s"})",
                  R"(4|KX:CsUpdate JSON is : {"sid":"s2","cid":"c2","serviceStatus":"2"})",
                  "4|KX:CsUpdate JSON is : {}", R"(4|KX:CsPullEva JSON is : {"msgId":"d1"})",
                  R"(4|KX:CsPLM JSON is : {"content":"Leave us a note"})"));
  for (const auto& log : host->logs()) {
    EXPECT_EQ(log.type, 1024);
    EXPECT_EQ(log.tag.find('/'), std::string::npos);
    EXPECT_NE(log.tag.find(".cpp"), std::string::npos);
  }
  EXPECT_EQ(host->logs()[0].tag, "KXCSTerminateMessage.cpp");
}

}  // namespace
}  // namespace quor::test
