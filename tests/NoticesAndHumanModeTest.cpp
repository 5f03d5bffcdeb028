// Local notices, group selection and the request for a human agent.
#include <gmock/gmock.h>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using NoticesAndHumanMode = ClientFixture;

TEST_F(NoticesAndHumanMode, SaveFlagIsInverted) {
  // true: delivered from memory, nothing stored.
  client().notifyCustomerService("desk", "", true);
  EXPECT_TRUE(host->inserts().empty());
  ASSERT_EQ(host->fakeReceives().size(), 1u);
  const auto memory = host->fakeReceives()[0].message;
  EXPECT_EQ(memory->conversationType(), 5);
  EXPECT_EQ(memory->targetId(), "desk");
  EXPECT_EQ(memory->messageDirection(), 2);
  EXPECT_EQ(memory->messageId(), 0);
  EXPECT_EQ(memory->receivedStatus(), 1);
  EXPECT_EQ(dynamic_cast<KXInformationNotificationMessage&>(*memory->content()).message(), "");

  // false: stored once, and the stored record is delivered.
  client().notifyCustomerService("desk", "kept", false);
  ASSERT_EQ(host->inserts().size(), 1u);
  const RecordedInsert insert = host->inserts()[0];
  EXPECT_EQ(insert.targetId, "desk");
  EXPECT_EQ(insert.senderUserId, "desk");
  EXPECT_EQ(insert.receivedStatus, 1);
  EXPECT_EQ(dynamic_cast<KXInformationNotificationMessage&>(*insert.content).message(), "kept");
  EXPECT_FALSE(dynamic_cast<KXInformationNotificationMessage&>(*insert.content).extra());
  EXPECT_EQ(host->fakeReceives()[1].message, insert.record);
}

TEST_F(NoticesAndHumanMode, SwitchToHumanMode) {
  struct Row {
    const char* name;
    std::function<void(NoticesAndHumanMode&)> prepare;
    std::vector<std::string> sent;
    std::vector<std::string> events;
  };
  const std::vector<Row> rows = {
      {"two groups: the user chooses",
       [](auto& t) {
         t.startAndAnswer("desk", R"({"sid":"c","groups":[{"id":"g1"},{"id":"g2"}]})");
       },
       {},
       {"selectGroup(g1,g2)@main"}},
      {"empty group list: request at once",
       [](auto& t) { t.startAndAnswer("desk", R"({"uid":"u","sid":"c","pid":"p","groups":[]})"); },
       {R"(KX:CsCha {"uid":"u","sid":"c","pid":"p"})"},
       {}},
      {"never started: request without identifiers", [](auto&) {}, {"KX:CsCha {}"}, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    SetUp();
    row.prepare(*this);
    host->drainMain();
    host->clear();
    takeEvents();
    const KXCSModeType modeBefore = client().currentCSModeType();
    client().switchToHumanMode("desk");
    EXPECT_EQ(sent(), row.sent);
    EXPECT_TRUE(events().empty());  // the group callback waits for the main thread
    host->drainMain();
    EXPECT_EQ(takeEvents(), row.events);
    EXPECT_EQ(client().currentCSModeType(), modeBefore)
        << "only the desk's answer changes the mode";
  }
}

TEST_F(NoticesAndHumanMode, GroupCallbackReadsTheSessionWhenItRuns) {
  startAndAnswer("desk", R"({"groups":[{"id":"g1"},{"id":"g2"}]})");
  host->drainMain();
  takeEvents();
  client().switchToHumanMode("desk");
  client().switchToHumanMode("desk");
  auto replaced = std::make_shared<std::vector<std::shared_ptr<KXCustomerServiceGroupItem>>>(
      std::vector<std::shared_ptr<KXCustomerServiceGroupItem>>{
          std::make_shared<KXCustomerServiceGroupItem>()});
  replaced->at(0)->setGroupId("g9");
  session("desk")->setGroupList(replaced);
  host->drainMain();
  EXPECT_THAT(takeEvents(), ElementsAre("selectGroup(g9)@main", "selectGroup(g9)@main"));

  client().switchToHumanMode("desk");
  client().stopCustomerService("desk");
  host->drainMain();
  EXPECT_TRUE(events().empty());
  EXPECT_TRUE(host->sends().size() == 1);  // the handshake only
}

TEST_F(NoticesAndHumanMode, GroupSelectionSendsWhateverGroupIsNamed) {
  startAndAnswer("desk", R"({"uid":"u","sid":"c","groups":[{"id":"g1"}]})");
  client().selectCustomerServiceGroup("desk", "never-offered");
  client().sendChangeModelMessage("desk", "");
  client().sendChangeModelMessage("other", std::nullopt);
  EXPECT_THAT(sent(), ElementsAre("KX:CsHs null",
                                  R"(KX:CsCha {"uid":"u","sid":"c","groupid":"never-offered"})",
                                  R"(KX:CsCha {"uid":"u","sid":"c","groupid":""})", "KX:CsCha {}"));
  for (const auto& send : host->sends()) {
    if (send.objectName == "KX:CsCha") {
      EXPECT_EQ(send.closures, QuorSendClosures::None);
      EXPECT_FALSE(send.pushContent || send.pushData);
    }
  }
}

}  // namespace
}  // namespace quor::test
