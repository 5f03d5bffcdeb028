// An app developer's integration test: the library on the loopback host against the desk
// simulator, driven only through public APIs.
#include <gmock/gmock.h>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

namespace {

using namespace quor;
using ::testing::Contains;
using ::testing::ElementsAre;

class SupportScreenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host->install();
    host->setLogSink(nullptr, 0);
    host->loadExtensionModule();
    host->addMessageListener([this](const std::shared_ptr<KXMessage>& message) {
      if (auto* text = dynamic_cast<KXTextMessage*>(message->content().get())) {
        shown.push_back(text->content().value_or(""));
      } else if (auto* notice =
                     dynamic_cast<KXInformationNotificationMessage*>(message->content().get())) {
        shown.push_back("notice: " + notice->message().value_or(""));
      }
    });
  }
  void TearDown() override { QuorLoopbackHost::uninstall(); }

  std::shared_ptr<QuorDeskSimulator> deskWith(const char* changes) {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    profile.merge_patch(KXDictionary::parse(changes));
    std::string error;
    auto desk = QuorDeskSimulator::fromProfile(profile, &error);
    EXPECT_TRUE(desk) << error;
    desk->attach(host);
    return desk;
  }

  void open(const std::shared_ptr<QuorDeskSimulator>& desk) {
    client.startCustomerService(
        desk->deskId(), nullptr,
        [this](auto config) { company = config->companyName().value_or(""); },
        [this](int64_t, const std::string& text) { errors.push_back(text); },
        [this](KXCSModeType mode) { modes.push_back(mode); },
        [this](const KXString& dialog) { ratingRequests.push_back(dialog.value_or("")); },
        [this](const KXCustomerServiceGroupList& groups) { offered = groups; },
        [this](const std::string& text) { quitText = text; });
    host->settle();
  }

  void type(const std::shared_ptr<QuorDeskSimulator>& desk, const std::string& text) {
    host->sendMessage(KXConversationTypeCustomerService, desk->deskId(),
                      KXTextMessage::messageWithContent(text), std::nullopt, std::nullopt, nullptr,
                      nullptr);
    host->settle();
  }

  std::shared_ptr<QuorLoopbackHost> host = std::make_shared<QuorLoopbackHost>();
  KXCustomerServiceClient& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  std::vector<std::string> shown, errors, ratingRequests;
  std::vector<KXCSModeType> modes;
  KXCustomerServiceGroupList offered;
  std::string company, quitText;
};

TEST_F(SupportScreenTest, RobotAnswersThenAnAgentTakesOverAndTheDeskEnds) {
  auto desk =
      deskWith(R"({"evaluation": {"askAfterAgentReplies": 1}, "end": {"afterEvaluation": true}})");
  open(desk);
  EXPECT_EQ(company, "Quor Shop");
  EXPECT_THAT(modes, ElementsAre(KXCSModeRobotFirst));
  type(desk, "where is my order?");
  EXPECT_THAT(shown,
              ElementsAre("Hi, I am Ava, the Quor Shop assistant. How can I help?",
                          "Orders ship within 24 hours; you can follow yours under Me > Orders."));

  client.switchToHumanMode(desk->deskId());
  host->settle();
  ASSERT_TRUE(offered);
  ASSERT_EQ(offered->size(), 2u);
  client.selectCustomerServiceGroup(desk->deskId(), offered->at(1)->groupId());
  host->settle();
  EXPECT_EQ(modes.back(), KXCSModeHuman);
  EXPECT_TRUE(desk->humanMode());
  EXPECT_EQ(desk->bodiesOf("KX:CsCha").at(0)["groupid"], "after-sales");

  type(desk, "I want a refund");
  ASSERT_THAT(ratingRequests, ElementsAre("dialog-1"));
  client.evaluateCustomerService(desk->deskId(), ratingRequests[0], 5, KXString("thanks"), 1);
  host->settle();
  EXPECT_EQ(desk->bodiesOf("KX:CsEva").at(0)["isresolve"], 1);  // the desk asks about resolution
  EXPECT_EQ(quitText, "Thank you for contacting Quor Shop. Goodbye!");
  EXPECT_TRUE(desk->suspended());  // the stop after the end suspends, as the profile asks
  EXPECT_THAT(shown, Contains("notice: Thank you for contacting Quor Shop. Goodbye!"));
}

TEST_F(SupportScreenTest, RefusedAndUnavailableAgents) {
  auto refusing = deskWith(R"({"deskId": "strict", "humanAgent": "refuses", "groups": null})");
  open(refusing);
  client.switchToHumanMode("strict");
  host->settle();
  EXPECT_THAT(shown, Contains("notice: 你已被拉黑"));
  EXPECT_EQ(modes.back(), KXCSModeRobotFirst);

  modes.clear();
  auto humanFirst = deskWith(R"({"deskId": "busy", "serviceType": 4, "switchToHumanAtStart": true,
                                 "humanAgent": "unavailable", "groups": null})");
  open(humanFirst);
  // The automatic switch was refused: the service falls back to the robot and greets.
  EXPECT_THAT(modes, ElementsAre(KXCSModeHuman, KXCSModeRobotFirst));
  EXPECT_EQ(shown.back(), "Hi, I am Ava, the Quor Shop assistant. How can I help?");
}

TEST_F(SupportScreenTest, TheChosenGroupsAgentServes) {
  auto desk = deskWith("{}");
  open(desk);
  client.switchToHumanMode(desk->deskId());
  host->settle();
  client.selectCustomerServiceGroup(desk->deskId(), KXString("sales"));
  host->settle();
  EXPECT_EQ(shown.back(), "Hello, this is Kai from Sales. How can I help?");
}

TEST_F(SupportScreenTest, FailedHandshakeAndBadProfiles) {
  auto closed = deskWith(
      R"({"deskId": "closed", "handshake": {"fail": true, "message": "Closed on Sundays"}})");
  open(closed);
  EXPECT_THAT(errors, ElementsAre("Closed on Sundays"));

  std::string error;
  EXPECT_FALSE(QuorDeskSimulator::fromProfile(
      KXDictionary::parse(R"({"deskId": "x", "serviceType": 9})"), &error));
  EXPECT_EQ(error, R"(desk profile: "serviceType" must be 1, 2, 3 or 4)");
  EXPECT_FALSE(QuorDeskSimulator::fromProfile(
      KXDictionary::parse(R"({"deskId": "x", "serviceType": 3, "end": {"afterEvaluaton": true}})"),
      &error));
  EXPECT_EQ(error, R"(desk profile: unknown key "afterEvaluaton" in "end")");
  EXPECT_FALSE(QuorDeskSimulator::fromFile("/no/such/profile.json", &error));
}

}  // namespace
