// Ratings, the evaluation-configuration callback and leaving a message.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using EvaluationAndLeaveMessage = ClientFixture;

// Whether `evaluateCustomerService(kefuId, id, value, suggest)` compiles for this value type.
template <class Value, class = void>
struct RatesTheRobotWith : std::false_type {};
template <class Value>
struct RatesTheRobotWith<
    Value, std::void_t<decltype(std::declval<KXCustomerServiceClient&>().evaluateCustomerService(
               std::declval<KXString>(), std::declval<KXString>(), std::declval<Value>(),
               std::declval<KXString>()))>> : std::true_type {};

// A human rating that forgot its resolve status must not turn into a robot rating.
static_assert(RatesTheRobotWith<bool>::value);
static_assert(!RatesTheRobotWith<int>::value && !RatesTheRobotWith<int32_t>::value);
static_assert(!RatesTheRobotWith<double>::value && !RatesTheRobotWith<uint64_t>::value);
static_assert(!RatesTheRobotWith<char>::value);

TEST_F(EvaluationAndLeaveMessage, EvaluationBodies) {
  struct Row {
    const char* name;
    bool reportResolveStatus;
    KXCSModeType mode;
    std::function<void(KXCustomerServiceClient&)> rate;
    const char* body;
  };
  const auto extra = std::make_shared<const KXDictionary>(KXDictionary{{"orderId", "o1"}});
  const std::vector<Row> rows = {
      {"robot, knowledge id", false, KXCSModeRobotFirst,
       [](auto& c) { c.evaluateCustomerService("desk", KXString("k1"), true, std::nullopt); },
       R"({"sid":"k1","source":0,"isresolve":1,"type":"0"})"},
      {"robot, session identifiers", false, KXCSModeRobotFirst,
       [](auto& c) { c.evaluateCustomerService("desk", std::nullopt, false, KXString("meh")); },
       R"({"uid":"u","sid":"c","pid":"p","source":0,"suggest":"meh","isresolve":0,"type":"0"})"},
      {"human, resolve status not asked", false, KXCSModeHuman,
       [](auto& c) { c.evaluateCustomerService("desk", KXString("d"), 5, std::nullopt, 2); },
       R"({"sid":"d","source":5,"isresolve":-1,"type":"1"})"},
      {"human, resolve status asked, empty dialog id", true, KXCSModeRobotFirst,
       [](auto& c) { c.evaluateCustomerService("desk", KXString(""), 5, KXString("ok"), 2); },
       R"({"sid":"","source":5,"suggest":"ok","isresolve":2,"type":"1"})"},
      {"human, low 32 bits kept", true, KXCSModeHuman,
       [](auto& c) {
         c.evaluateCustomerService("desk", KXString("d"), 1, std::nullopt, 0x1FFFFFFFFull);
       },
       R"({"sid":"d","source":1,"isresolve":-1,"type":"1"})"},
      {"tagged in human mode", true, KXCSModeHuman,
       [&](auto& c) {
         c.evaluateCustomerService("desk", std::nullopt, 4, std::nullopt, 1, KXString("fast"),
                                   extra);
       },
       R"({"uid":"u","sid":"c","pid":"p","source":4,"isresolve":1,"type":"1","tag":"fast","orderId":"o1"})"},
      {"tagged in robot mode goes out as type 0", true, KXCSModeRobotFirst,
       [](auto& c) {
         c.evaluateCustomerService("desk", KXString("d"), 3, std::nullopt, 1, std::nullopt,
                                   nullptr);
       },
       R"({"sid":"d","source":3,"isresolve":1,"type":"0"})"},
      {"unknown desk", true, KXCSModeHuman,
       [](auto& c) { c.evaluateCustomerService("nobody", std::nullopt, 5, std::nullopt, 1); },
       R"({"source":5,"isresolve":-1,"type":"1"})"},
  };
  startAndAnswer("desk", R"({"uid":"u","sid":"c","pid":"p"})");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    host->clear();
    session("desk")->setReportResolveStatus(row.reportResolveStatus);
    client().setCurrentCSModeType(row.mode);
    row.rate(client());
    ASSERT_EQ(host->sends().size(), 1u);
    const RecordedSend send = host->sends()[0];
    EXPECT_EQ(send.objectName, "KX:CsEva");
    EXPECT_EQ(send.json, KXDictionary::parse(row.body));
    EXPECT_EQ(send.closures, QuorSendClosures::None);
    EXPECT_EQ(send.targetId, std::string(row.name) == "unknown desk" ? "nobody" : "desk");
  }
}

TEST_F(EvaluationAndLeaveMessage, EvaluationConfigurationCallbackFollowsTheLastStartedDesk) {
  // Before any start: dropped, and no later handshake calls it.
  client().getHumanEvaluateCustomerServiceConfig([this](const auto&) { record("early"); });
  start("A");
  start("B");
  client().getHumanEvaluateCustomerServiceConfig(
      [this](const auto& c) { record("B" + c->dump()); });
  host->confirmSend(1, 100);
  deliver<KXCSHandShakeResponseMessage>("A", R"({"status":1,"data":{"evaConf":{"x":1}}})", 100);
  deliver<KXCSHandShakeResponseMessage>("B", R"({"status":1,"data":{"evaConf":{"y":2}}})", 100);
  deliver<KXCSHandShakeResponseMessage>("B", R"({"status":1,"data":{}})", 100);
  EXPECT_THAT(events(), ElementsAre(R"(B{"y":2}@delivery)"));

  // After a stop there is no current desk: dropped.
  client().stopCustomerService("B");
  client().getHumanEvaluateCustomerServiceConfig([this](const auto&) { record("late"); });
  EXPECT_FALSE(session("B")->evaConfigBlock());
}

TEST_F(EvaluationAndLeaveMessage, LeaveMessageReportsTheHostsOutcomeOnItsThread) {
  const auto form =
      std::make_shared<const KXDictionary>(KXDictionary::parse(R"({"name":"Ann","tel":"138"})"));
  const auto succeed = [this](int64_t id) { record("leaveSuccess(" + std::to_string(id) + ")"); };
  const auto fail = [this](int64_t code, int64_t id) {
    record("leaveFailure(" + std::to_string(code) + "," + std::to_string(id) + ")");
  };
  client().leaveMessageCustomerService("never-started", form, succeed, fail);
  client().leaveMessageCustomerService(
      "never-started", std::make_shared<const KXDictionary>(KXDictionary::object()), succeed, fail);
  EXPECT_THAT(sent(), ElementsAre(R"(KX:CsLM {"name":"Ann","tel":"138"})", "KX:CsLM {}"));
  EXPECT_EQ(host->sends()[0].closures, QuorSendClosures::Ids);
  EXPECT_EQ(host->sends()[0].targetId, "never-started");
  runOnThread("host", [&] {
    host->confirmSend(0, 1);
    host->failSend(1, -33);
    host->confirmSend(1, 1);  // a send reports once
  });
  EXPECT_THAT(events(), ElementsAre("leaveSuccess(1)@host", "leaveFailure(-33,2)@host"));
  EXPECT_EQ(host->pendingMain(), 0u);

  // A missing callback is simply not called.
  client().leaveMessageCustomerService("desk", form, nullptr, nullptr);
  host->confirmSend(2, 1);
  client().leaveMessageCustomerService("desk", form, succeed, nullptr);
  host->failSend(3, 9);
  EXPECT_EQ(events().size(), 2u);
}

}  // namespace
}  // namespace quor::test
