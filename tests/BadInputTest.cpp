// Every decoder takes any bytes without crashing or throwing; every encoder returns absent bytes
// for values it cannot write.
#include <dirent.h>
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "QuorCustomerService/QuorCustomerService.h"
#include "support/HostFixture.h"

namespace quor::test {
namespace {

using BadInput = HostFixture;

struct ReceivedType {
  std::function<std::shared_ptr<KXMessageContent>()> make;
  std::string errorLine;
  // Whether every field still holds its initial value.
  std::function<bool(const KXMessageContent&)> untouched;
};

template <class T>
const T& as(const KXMessageContent& content) {
  return dynamic_cast<const T&>(content);
}

const std::vector<ReceivedType>& receivedTypes() {
  static const std::vector<ReceivedType> types = {
      {[] { return std::make_shared<KXCSHandShakeResponseMessage>(); },
       "ERROR: KXCSHandShakeResponseMessage JSON is nil!!",
       [](const KXMessageContent& c) {
         const auto& r = as<KXCSHandShakeResponseMessage>(c);
         // The two lists are set to empty lists even when the body does not parse.
         return r.code() == 0 && !r.msg() && !r.cid() && r.groupList() && r.groupList()->empty() &&
                r.leaveMessageNativeInfo() && r.leaveMessageNativeInfo()->empty() &&
                !r.humanEvaluationItems() && !r.evaConfig();
       }},
      {[] { return std::make_shared<KXCSChangeModeResponseMessage>(); },
       "ERROR: KXCSChangeModeResponseMessage JSON is nil!!",
       [](const KXMessageContent& c) {
         const auto& r = as<KXCSChangeModeResponseMessage>(c);
         return r.result() == 0 && !r.errMsg() && !r.evaConfig();
       }},
      {[] { return std::make_shared<KXCSPullEvaluateMessage>(); },
       "ERROR: KXCSPullEvaluateMessage JSON is nil!!",
       [](const KXMessageContent& c) { return !as<KXCSPullEvaluateMessage>(c).evaluateId(); }},
      {[] { return std::make_shared<KXCSPullLeaveMessage>(); },
       "ERROR: KXCSLeaveMessage JSON is nil!!",
       [](const KXMessageContent& c) {
         return !as<KXCSPullLeaveMessage>(c).content() && !c.conversationDigest();
       }},
      {[] { return std::make_shared<KXCSTerminateMessage>(); },
       "ERROR: KXCSTerminateMessage JSON is nil!!",
       [](const KXMessageContent& c) {
         const auto& r = as<KXCSTerminateMessage>(c);
         return r.code() == 0 && !r.msg() && !r.cid();
       }},
      {[] { return std::make_shared<KXCSUpdateMessage>(); },
       "ERROR: KXCSUpdateMessage JSON is nil!!",
       [](const KXMessageContent& c) {
         const auto& r = as<KXCSUpdateMessage>(c);
         return r.serviceStatus() == 0 && !r.cid();
       }},
  };
  return types;
}

std::string nested(int depth) {
  return "{\"a\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
}

TEST_F(BadInput, UnparsableBodiesWriteOneErrorLineAndLeaveFieldsUntouched) {
  const std::vector<std::string> bodies = {
      "",
      "{",
      "[]",
      "[1,2]",
      "5",
      "\"text\"",
      "null",
      "true",
      "{\"a\":1,}",
      "{\"msg\":\"\xff\xfe\"}",
      "{\"n\":1e400}",
      nested(129),
      "{\"a\":1} x",
      std::string("{\"a\":\"\0\"}", 9),
  };
  for (const auto& type : receivedTypes()) {
    for (const auto& body : bodies) {
      SCOPED_TRACE(type.errorLine + " <- " + body.substr(0, 40));
      host->clear();
      auto content = type.make();
      content->decodeWithData(body);
      EXPECT_TRUE(type.untouched(*content));
      ASSERT_EQ(host->logs().size(), 1u);
      EXPECT_EQ(host->logs()[0].level, 2);
      EXPECT_EQ(host->logs()[0].text, type.errorLine);
    }
  }
}

TEST_F(BadInput, AbsentBytesSetNothingAndLogNothing) {
  for (const auto& type : receivedTypes()) {
    auto content = type.make();
    content->decodeWithData(std::nullopt);
    if (auto* response = dynamic_cast<KXCSHandShakeResponseMessage*>(content.get())) {
      EXPECT_FALSE(response->groupList());
      EXPECT_FALSE(response->leaveMessageNativeInfo());
    } else {
      EXPECT_TRUE(type.untouched(*content));
    }
  }
  EXPECT_TRUE(host->logs().empty());
}

TEST_F(BadInput, LargeButValidValuesParse) {
  auto update = std::make_shared<KXCSUpdateMessage>();
  update->decodeWithData(R"({"serviceStatus":123456789012345678901234567890,"x":)" + nested(127) +
                         "}");
  EXPECT_EQ(update->serviceStatus(), INT32_MAX);
  ASSERT_EQ(host->logs().size(), 1u);
  EXPECT_EQ(host->logs()[0].level, 4);
}

std::vector<std::string> suiteFiles() {
  std::vector<std::string> files;
  const std::string dir = QUOR_CS_TESTDATA_DIR "/JSONTestSuite/test_parsing";
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* entry = readdir(d)) {
      if (entry->d_name[0] != '.') files.push_back(dir + "/" + entry->d_name);
    }
    closedir(d);
  }
  return files;
}

TEST_F(BadInput, EveryDecoderSurvivesTheJsonTestSuite) {
  const auto files = suiteFiles();
  ASSERT_GT(files.size(), 300u) << "the corpus belongs in tests/data";
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    const std::string name = file.substr(file.rfind('/') + 1);
    for (const auto& type : receivedTypes()) {
      host->clear();
      type.make()->decodeWithData(bytes.str());
      // One line at most: the mode-change response logs nothing for a body without "code".
      ASSERT_LE(host->logs().size(), 1u) << name;
      const bool rejected = !host->logs().empty() && host->logs()[0].level == 2;
      // Files that must be rejected never decode; accepted files decode only when their top level
      // is an object.
      if (name[0] == 'n') {
        EXPECT_TRUE(rejected) << name;
      }
      // Logging the decoded value must not throw either.
      for (const auto& log : host->logs()) EXPECT_FALSE(log.text.empty());
    }
  }
}

TEST_F(BadInput, EncodersReturnAbsentForInvalidUtf8) {
  const std::string bad = "\xc3\x28";
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setName(bad);
  EXPECT_FALSE(info->encode());

  KXCSHandShakeMessage handShake;
  handShake.setInfo(info);
  EXPECT_FALSE(handShake.encode());

  KXCSChangeModeMessage changeMode;
  changeMode.setGroupid(bad);
  EXPECT_FALSE(changeMode.encode());

  KXCSSuspendMessage suspend;
  suspend.setUid(bad);
  EXPECT_FALSE(suspend.encode());

  KXCSEvaluateMessage evaluate;
  evaluate.setSuggest(bad);
  EXPECT_FALSE(evaluate.encode());

  KXCSLeaveMessage leave;
  leave.setLeaveMessageDic(std::make_shared<KXDictionary>(KXDictionary{{"k", bad}}));
  EXPECT_FALSE(leave.encode());

  // Too deep to write safely: refused before anything copies or writes it (a copy or a write
  // recurses as deep as the value; 200,000 levels overflowed the stack).
  for (const int levels : {200, 200000}) {
    auto deep = std::make_shared<KXDictionary>(KXDictionary::object());
    KXDictionary* innermost = &(*deep)["k"];
    for (int i = 0; i < levels; ++i) innermost = &(*innermost)["k"];
    leave.setLeaveMessageDic(deep);
    EXPECT_FALSE(leave.encode());
    KXCSEvaluateMessage rating;
    rating.setExtra(deep);
    EXPECT_FALSE(rating.encode());
  }
}

// Objects of any size are built in linear time (the benchmarks check the time); a repeated
// key keeps its first place and takes its last value, in received bodies and in a rating's
// extra alike.
TEST_F(BadInput, RepeatedKeysTakeTheLastValueAtTheFirstPlace) {
  KXCSHandShakeResponseMessage response;
  response.decodeWithData(
      R"({"status":0,"data":{"sid":"a","evaConf":{"x":1,"y":2,"x":3}},"status":1})");
  EXPECT_EQ(response.code(), 1);
  EXPECT_EQ(response.evaConfig()->dump(), R"({"x":3,"y":2})");

  std::string many = R"({"status":1,"data":{)";
  for (int i = 0; i < 50000; ++i)
    many += "\"k" + std::to_string(i % 20000) + "\":" + std::to_string(i) + ",";
  many += R"("evaConf":{}}})";
  response.decodeWithData(many);
  EXPECT_TRUE(response.evaConfig());

  KXCSEvaluateMessage rating;
  auto extra = std::make_shared<KXDictionary>(KXDictionary::object());
  for (int i = 0; i < 2000; ++i) (*extra)["e" + std::to_string(i)] = i;
  (*extra)["source"] = "mine";
  rating.setExtra(extra);
  const auto body = KXDictionary::parse(*rating.encode());
  EXPECT_EQ(body.size(), 2000u + 3);  // source (overridden in place), isresolve, type + extra
  EXPECT_EQ(body.begin().key(), "source");
  EXPECT_EQ(body["source"], "mine");
}

}  // namespace
}  // namespace quor::test

namespace quor::test {
namespace {

// Very large bodies decode without trouble (their time is measured by the benchmarks).
TEST_F(BadInput, LargeBodiesDecode) {
  std::string big =
      R"({"status":1,"msg":")" + std::string(10 * 1024 * 1024, 'x') + R"(","data":{"groups":[)";
  for (int i = 0; i < 200000; ++i)
    big += (i ? ",{\"id\":\"" : "{\"id\":\"") + std::to_string(i) + "\"}";
  big += "]}}";
  KXCSHandShakeResponseMessage response;
  response.decodeWithData(big);
  EXPECT_EQ(response.msg()->size(), 10u * 1024 * 1024);
  EXPECT_EQ(response.groupList()->size(), 200000u);
  EXPECT_EQ(response.groupList()->back()->groupId(), "199999");
}

}  // namespace
}  // namespace quor::test
