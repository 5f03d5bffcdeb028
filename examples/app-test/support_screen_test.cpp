// The support screen of an app, tested end to end: the app talks to the desk only through the
// session API; the test kit plays the IM core (loopback host) and the desk (desk simulator).
#include <QuorCustomerService/QuorCustomerService.h>
#include <QuorDeskSimulator/QuorDeskSimulator.h>
#include <QuorLoopbackHost/QuorLoopbackHost.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using quor::KXCSServiceResult;
using quor::KXCSServiceState;

// What the app's screen shows: the state, the lines of the conversation, the help badge.
class SupportScreen : public quor::KXCSServiceObserver {
 public:
  void onStateChanged(const quor::KXCSServiceStatus& status) override {
    states.push_back(status.state);
    reason = status.reason;
    if (status.state == KXCSServiceState::ChoosingGroup) groups = status.groups;
  }
  void onRatingRequested(const quor::KXString& dialog) override {
    ratingAsked = dialog.has_value();
  }
  void onMessage(const quor::KXCSConversationMessage& line) override {
    lines.push_back(quor::toString(line.author) + ": " + line.text);
  }
  void onMessageDelivery(const quor::KXCSConversationMessage& line) override {
    if (line.delivery == quor::KXCSDelivery::Sent) ++sent;
  }
  void onUnreadCountChanged(uint64_t count) override { badge = count; }

  std::vector<KXCSServiceState> states;
  quor::KXCSServiceReason reason = quor::KXCSServiceReason::None;
  quor::KXCustomerServiceGroupList groups;
  std::vector<std::string> lines;
  int sent = 0;
  uint64_t badge = 0;
  bool ratingAsked = false;
};

class SupportScreenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host->install();
    host->setLogSink(nullptr, 0);
    host->loadExtensionModule();
  }
  void TearDown() override {
    service.reset();
    host->settle();
    quor::QuorLoopbackHost::uninstall();
  }
  // A desk from the kit's default profile with `changes` merged in.
  std::shared_ptr<quor::QuorDeskSimulator> desk(const char* changes) {
    quor::KXDictionary profile = quor::QuorDeskSimulator::defaultProfile();
    profile.merge_patch(quor::KXDictionary::parse(changes));
    auto made = quor::QuorDeskSimulator::fromProfile(profile, nullptr);
    made->attach(host);
    return made;
  }

  std::shared_ptr<quor::QuorLoopbackHost> host = std::make_shared<quor::QuorLoopbackHost>();
  std::shared_ptr<SupportScreen> screen = std::make_shared<SupportScreen>();
  std::shared_ptr<quor::KXCSService> service;
};

TEST_F(SupportScreenTest, ACustomerChatsGetsAnAgentRatesAndTheDeskSaysGoodbye) {
  auto simulator =
      desk(R"({"evaluation": {"askAfterAgentReplies": 1}, "end": {"afterEvaluation": true}})");
  service = quor::KXCSService::make(simulator->deskId(), screen);
  ASSERT_EQ(service->start(nullptr), KXCSServiceResult::Done);
  host->settle();
  ASSERT_EQ(service->sendText("Where is my order?"), KXCSServiceResult::Done);
  host->settle();
  EXPECT_EQ(screen->sent, 1);
  EXPECT_EQ(screen->badge, 2u);  // the greeting and the robot's answer, while the screen was closed
  service->markRead();
  host->settle();
  EXPECT_EQ(screen->badge, 0u);

  ASSERT_EQ(service->askForAgent(), KXCSServiceResult::Done);
  host->settle();
  ASSERT_TRUE(screen->groups && !screen->groups->empty());
  ASSERT_EQ(service->chooseGroup(*screen->groups->back()->groupId()), KXCSServiceResult::Done);
  host->settle();
  ASSERT_EQ(service->sendText("Where is my refund?"), KXCSServiceResult::Done);
  host->settle();
  ASSERT_TRUE(screen->ratingAsked);
  quor::KXCSAgentRating rating;
  rating.stars = 5;
  ASSERT_EQ(service->rateAgent(rating), KXCSServiceResult::Done);
  host->settle();
  EXPECT_EQ(screen->states.back(), KXCSServiceState::Ended);
  EXPECT_EQ(service->status().reason, quor::KXCSServiceReason::DeskEnded);
  EXPECT_EQ(screen->lines.front(), "Robot: Hi, I am Ava, the Quor Shop assistant. How can I help?");
  EXPECT_EQ(screen->lines[1], "Customer: Where is my order?");
  EXPECT_NE(std::find(screen->lines.begin(), screen->lines.end(),
                      "Agent: Hello, this is Lin from After-sales. Let me look at your order."),
            screen->lines.end());
}

TEST_F(SupportScreenTest, NoAgentAvailableSendsTheCustomerBackToTheRobot) {
  auto simulator = desk(R"({"groups": null, "humanAgent": "unavailable"})");
  service = quor::KXCSService::make(simulator->deskId(), screen);
  service->start(nullptr);
  host->settle();
  ASSERT_EQ(service->askForAgent(), KXCSServiceResult::Done);
  host->settle();
  EXPECT_EQ(screen->states,
            (std::vector<KXCSServiceState>{
                KXCSServiceState::Connecting, KXCSServiceState::Connected, KXCSServiceState::Robot,
                KXCSServiceState::WaitingForAgent, KXCSServiceState::Robot}));
  EXPECT_EQ(screen->reason, quor::KXCSServiceReason::NoAgentAvailable);
  EXPECT_EQ(service->askForAgent(), KXCSServiceResult::Done);  // the customer may try again
}

TEST_F(SupportScreenTest, ADeskThatRefusesTheServiceFailsTheStart) {
  auto simulator = desk(R"({"handshake": {"fail": true, "message": "Closed today"}})");
  service = quor::KXCSService::make(simulator->deskId(), screen);
  service->start(nullptr);
  host->settle();
  EXPECT_EQ(screen->states.back(), KXCSServiceState::Failed);
  EXPECT_EQ(screen->reason, quor::KXCSServiceReason::HandshakeRefused);
  EXPECT_EQ(service->status().text, "Closed today");
  EXPECT_EQ(service->sendText("hello?"), KXCSServiceResult::NotConnected);
}

}  // namespace
