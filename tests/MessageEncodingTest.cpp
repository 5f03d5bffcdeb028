// Sent message types: bodies, key names, one-way rule, type table.
#include <gmock/gmock.h>

#include "QuorCustomerService/QuorCustomerService.h"
#include "support/HostFixture.h"

namespace quor::test {
namespace {

using Encoding = HostFixture;
KXDictionary J(const char* text) { return KXDictionary::parse(text); }
KXDictionary body(KXMessageContent& content) {
  const KXData bytes = content.encode();
  return bytes ? KXDictionary::parse(*bytes) : KXDictionary();
}

TEST_F(Encoding, CustomerInformationGroups) {
  KXCustomerServiceInfo info;
  EXPECT_EQ(info.encode(), R"({"contactInfo":{},"requestInfo":{}})");

  info.setUserId("u1");
  info.setNickName("Ann");
  info.setMobileNo("138");
  EXPECT_EQ(
      info.encode(),
      R"({"userInfo":{"userId":"u1","nickName":"Ann"},"contactInfo":{"mobileNo":"138"},"requestInfo":{}})");

  KXCustomerServiceInfo memoOnly;
  memoOnly.setMemo("");
  EXPECT_EQ(memoOnly.encode(), R"({"userInfo":{"memo":""},"contactInfo":{},"requestInfo":{}})");

  KXCustomerServiceInfo listOnly;
  listOnly.setListUrl(std::make_shared<std::vector<std::string>>());
  EXPECT_EQ(listOnly.encode(), R"({"contactInfo":{},"requestInfo":{"listUrl":[]}})");

  KXCustomerServiceInfo all;
  all.setUserId("  7 ");
  all.setUserId(std::nullopt);  // set then cleared: left out
  all.setAge("30");
  all.setQQ("q");
  all.setWeixin("w");
  all.setPage("p");
  all.setListUrl(std::make_shared<std::vector<std::string>>(std::vector<std::string>{"a", "b"}));
  all.setDefine("d");
  all.setProductId("x\"y");
  EXPECT_EQ(all.encode(),
            R"({"userInfo":{"age":"30"},"contactInfo":{"QQ":"q","weixin":"w"},)"
            R"("requestInfo":{"page":"p","listUrl":["a","b"],"define":"d","productId":"x\"y"}})");
}

TEST_F(Encoding, HandShakeCarriesOnlyTheInformation) {
  KXCSHandShakeMessage handShake;
  EXPECT_FALSE(handShake.encode());
  auto info = std::make_shared<KXCustomerServiceInfo>();
  handShake.setInfo(info);
  info->setCity("Hangzhou");  // read when encoding, not when set
  EXPECT_EQ(handShake.encode(), info->encode());
  handShake.decodeWithData(std::string(R"({"x":1})"));
  EXPECT_EQ(handShake.info(), info);
  EXPECT_TRUE(host->logs().empty());
}

TEST_F(Encoding, IdentifiersTravelUnderUidSidPid) {
  KXCSChangeModeMessage changeMode;
  EXPECT_EQ(changeMode.encode(), "{}");
  changeMode.setGroupid("");
  EXPECT_EQ(body(changeMode), J(R"({"groupid":""})"));
  changeMode.setUid("u");
  changeMode.setCid("c");
  changeMode.setPid("p");
  changeMode.setGroupid("g");
  EXPECT_EQ(body(changeMode), J(R"({"uid":"u","sid":"c","pid":"p","groupid":"g"})"));

  KXCSSuspendMessage suspend;
  EXPECT_EQ(suspend.encode(), "{}");
  suspend.setCid("c");
  EXPECT_EQ(suspend.encode(), R"({"sid":"c"})");
  EXPECT_TRUE(host->logs().empty());  // only the evaluation logs what it writes
}

TEST_F(Encoding, EvaluationBody) {
  struct Case {
    std::function<void(KXCSEvaluateMessage&)> fill;
    const char* expected;
  };
  const std::vector<Case> cases = {
      {[](auto& m) { m.setType(1); }, R"({"source":0,"isresolve":0,"type":"1"})"},
      {[](auto& m) {
         m.setSuggest("");
         m.setTagText("");
       },
       R"({"source":0,"isresolve":0,"type":"0"})"},
      {[](auto& m) {
         m.setSuggest("s");
         m.setTagText("t");
         m.setResolveStatus(-1);
         m.setSource(5);
       },
       R"({"source":5,"suggest":"s","isresolve":-1,"type":"0","tag":"t"})"},
      {[](auto& m) {
         m.setCid("k");
         m.setExtra(std::make_shared<KXDictionary>(J(R"({"type":7,"x":[1]})")));
       },
       R"({"sid":"k","source":0,"isresolve":0,"type":7,"x":[1]})"},
      {[](auto& m) { m.setExtra(std::make_shared<KXDictionary>(KXDictionary::object())); },
       R"({"source":0,"isresolve":0,"type":"0"})"},
  };
  for (const auto& c : cases) {
    host->clear();
    KXCSEvaluateMessage message;
    c.fill(message);
    EXPECT_EQ(body(message), J(c.expected));
    ASSERT_EQ(host->logs().size(), 1u);
    EXPECT_EQ(host->logs()[0].level, 4);
    EXPECT_EQ(host->logs()[0].text, std::string("KX:CsEva JSON is : ") + J(c.expected).dump());
  }
}

TEST_F(Encoding, LeaveMessageIsTheDictionaryItself) {
  KXCSLeaveMessage leave;
  EXPECT_FALSE(leave.encode());
  leave.setLeaveMessageDic(std::make_shared<KXDictionary>(KXDictionary::object()));
  EXPECT_EQ(leave.encode(), "{}");
  leave.setLeaveMessageDic(std::make_shared<KXDictionary>(J(R"({"zeta":"1","alpha":"2"})")));
  EXPECT_EQ(leave.encode(), R"({"zeta":"1","alpha":"2"})");  // the application's order
}

TEST_F(Encoding, TypeTableAndOneWayRule) {
  struct Row {
    std::shared_ptr<KXMessageContent> content;
    std::string objectName;
    uint32_t flag;
    bool received;
  };
  const std::vector<Row> rows = {
      {std::make_shared<KXCSHandShakeMessage>(), "KX:CsHs", 0, false},
      {std::make_shared<KXCSHandShakeResponseMessage>(), "KX:CsHsR", 0, true},
      {std::make_shared<KXCSChangeModeMessage>(), "KX:CsCha", 0, false},
      {std::make_shared<KXCSChangeModeResponseMessage>(), "KX:CsChaR", 0, true},
      {std::make_shared<KXCSEvaluateMessage>(), "KX:CsEva", 0, false},
      {std::make_shared<KXCSPullEvaluateMessage>(), "KX:CsPullEva", 0, true},
      {std::make_shared<KXCSLeaveMessage>(), "KX:CsLM", 0, false},
      {std::make_shared<KXCSPullLeaveMessage>(), "KX:CsPLM", 1, true},
      {std::make_shared<KXCSSuspendMessage>(), "KX:CsSp", 0, false},
      {std::make_shared<KXCSTerminateMessage>(), "KX:CsEnd", 0, true},
      {std::make_shared<KXCSUpdateMessage>(), "KX:CsUpdate", 0, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.objectName);
    EXPECT_EQ(row.content->objectName(), row.objectName);
    EXPECT_EQ(row.content->messagePersistentFlag(), row.flag);
    if (row.received) {
      row.content->decodeWithData(
          std::string(R"({"status":1,"code":1,"msgId":"m","content":"c","sid":"s"})"));
      EXPECT_FALSE(row.content->encode());  // even with fields set
    }
  }
  EXPECT_EQ(KXCSPullLeaveMessage::persistentFlag(), 1u);
  EXPECT_EQ(KXCSUpdateMessage::getObjectName(), "KX:CsUpdate");

  // Sent types ignore received bytes.
  KXCSSuspendMessage suspend;
  suspend.setUid("u");
  suspend.decodeWithData(std::string(R"({"uid":"other"})"));
  EXPECT_EQ(suspend.uid(), "u");
  KXCSEvaluateMessage evaluate;
  evaluate.setSource(3);
  evaluate.decodeWithData(std::nullopt);
  EXPECT_EQ(evaluate.source(), 3);
}

TEST_F(Encoding, LogArgumentsAreFormattedByTheLogger) {
  const KXDictionary json = J(R"({"a":[1,"x"]})");
  EXPECT_EQ(KXFwLog::format("k = %@, j = %@, n = %@, extra %@",
                            {KXLogArgument("v"), KXLogArgument(json), KXLogArgument()}),
            R"(k = v, j = {"a":[1,"x"]}, n = (null), extra (null))");
  EXPECT_EQ(KXFwLog::format("no placeholders", {KXLogArgument("unused")}), "no placeholders");
}

}  // namespace
}  // namespace quor::test
