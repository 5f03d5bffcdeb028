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
        desk->deskId(), nullptr, nullptr,
        [this](int64_t, const std::string& text) { errors.push_back(text); },
        [this](KXCSModeType mode) { modes.push_back(mode); }, nullptr, nullptr, nullptr);
    host->settle();
  }

  std::shared_ptr<QuorLoopbackHost> host = std::make_shared<QuorLoopbackHost>();
  KXCustomerServiceClient& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  std::vector<std::string> shown, errors;
  std::vector<KXCSModeType> modes;
};

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

// People serve (the agent console): the request waits for a person, who greets under their name
// and answers instead of the script; a decline answers the next request; everything is watched.
TEST_F(SupportScreenTest, PeopleTakeOrDeclineAWaitingCustomerAndAnswerInsteadOfTheScript) {
  auto desk = deskWith("{}");
  std::vector<std::string> watched;
  desk->servedByPeople([&](const QuorWireMessage& message, bool fromCustomer) {
    watched.push_back((fromCustomer ? "customer " : "desk ") + message.objectName);
  });
  EXPECT_FALSE(desk->takeByAgent("Mia", "Hi"));  // nobody waits yet
  open(desk);
  client.switchToHumanMode(desk->deskId());
  host->settle();
  client.selectCustomerServiceGroup(desk->deskId(), KXString("after-sales"));
  host->settle();
  EXPECT_EQ(desk->waitingForAgent(), "after-sales");
  EXPECT_FALSE(desk->humanMode());
  EXPECT_TRUE(desk->takeByAgent("Mia", "Hello, Mia here."));
  host->settle();
  EXPECT_EQ(shown.back(), "Hello, Mia here.");
  EXPECT_FALSE(desk->waitingForAgent());
  const auto before = shown.size();
  host->sendMessage(KXConversationTypeCustomerService, desk->deskId(),
                    KXTextMessage::messageWithContent("my parcel?"), std::nullopt, std::nullopt,
                    nullptr, nullptr);
  host->settle();
  EXPECT_EQ(shown.size(), before);  // no scripted reply: Mia answers
  desk->say("It arrives tomorrow.");
  host->settle();
  EXPECT_EQ(shown.back(), "It arrives tomorrow.");
  EXPECT_EQ(desk->bodiesOf("KX:TxtMsg").back()["content"], "my parcel?");
  EXPECT_THAT(watched, Contains("customer KX:CsCha"));
  EXPECT_THAT(watched, Contains("desk KX:CsChaR"));

  desk->endService("", KXCSTerminateBackToRobot);
  host->settle();
  client.switchToHumanMode(desk->deskId());
  host->settle();
  client.selectCustomerServiceGroup(desk->deskId(), KXString("sales"));
  host->settle();
  EXPECT_FALSE(desk->declineAgent(7));  // not a decline
  EXPECT_TRUE(desk->declineAgent(KXCSChangeModeNoAgent));
  host->settle();
  EXPECT_FALSE(desk->waitingForAgent());
  EXPECT_EQ(modes.back(), KXCSModeRobotFirst);
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

namespace {

TEST_F(SupportScreenTest, ADeskKeepsOnlyItsNewestMessages) {
  auto desk = deskWith("{}");
  open(desk);
  for (std::size_t i = 0; i < QuorDeskSimulator::kKeptMessages + 50; ++i) {
    QuorWireMessage text;
    text.objectName = "KX:TxtMsg";
    text.targetId = desk->deskId();
    text.body = "{\"content\":\"" + std::to_string(i) + "\"}";
    desk->onMessageFromClient(text);
  }
  const auto kept = desk->received();
  ASSERT_EQ(kept.size(), QuorDeskSimulator::kKeptMessages);
  EXPECT_EQ(kept.back().body.value_or(""),
            "{\"content\":\"" + std::to_string(QuorDeskSimulator::kKeptMessages + 49) + "\"}");
}

}  // namespace

namespace {

TEST_F(SupportScreenTest, AnEchoingRobotRepeatsWhatNoKeywordMatches) {
  auto desk = deskWith(R"({"robot":{"echo":true}})");
  open(desk);
  for (const char* question : {"where is my order?", "ping r1-7"}) {
    host->sendMessage(KXConversationTypeCustomerService, desk->deskId(),
                      KXTextMessage::messageWithContent(question), std::nullopt, std::nullopt,
                      nullptr, nullptr);
    host->settle();
  }
  ASSERT_GE(shown.size(), 2u);
  EXPECT_EQ(shown[shown.size() - 2],
            "Orders ship within 24 hours; you can follow yours under Me > Orders.");
  EXPECT_EQ(shown.back(), "You said: ping r1-7");
}

// A file whose name is not UTF-8 (a page sends the bytes it likes) goes out with U+FFFD.
TEST_F(SupportScreenTest, AFileNamedInBytesThatAreNotUtf8StillGoesOut) {
  auto desk = deskWith("{}");
  open(desk);
  std::vector<QuorWireMessage> said;
  desk->servedByPeople([&](const QuorWireMessage& message, bool fromCustomer) {
    if (!fromCustomer) said.push_back(message);
  });
  desk->sayFile({{"name", "\xff.png"}, {"type", "image/png"}, {"size", 3}, {"url", "x://1"}});
  ASSERT_EQ(said.size(), 1u);
  EXPECT_NE(said[0].body.value_or("").find("\xef\xbf\xbd.png"), std::string::npos);
}

}  // namespace
