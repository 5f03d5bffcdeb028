// The support screen of an app, tested end to end: the app talks to the desk only through the
// session API; the test kit plays the IM core (loopback host) and the desk (desk simulator).
#include <QuorCustomerService/QuorCustomerService.h>
#include <QuorDeskSimulator/QuorDeskSimulator.h>
#include <QuorLoopbackHost/QuorLoopbackHost.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

// What the app's screen shows for each state.
class SupportScreen : public quor::KXCSServiceObserver {
 public:
  void onStateChanged(const quor::KXCSServiceStatus& status) override {
    states.push_back(status.state);
    if (status.state == quor::KXCSServiceState::ChoosingGroup) groups = status.groups;
  }
  void onRatingRequested(const quor::KXString& dialog) override {
    ratingAsked = dialog.has_value();
  }
  std::vector<quor::KXCSServiceState> states;
  quor::KXCustomerServiceGroupList groups;
  bool ratingAsked = false;
};

TEST(SupportScreen, ACustomerGetsAnAgentRatesAndTheDeskSaysGoodbye) {
  auto host = std::make_shared<quor::QuorLoopbackHost>();
  host->install();
  host->setLogSink(nullptr, 0);
  host->loadExtensionModule();
  quor::KXDictionary profile = quor::QuorDeskSimulator::defaultProfile();
  profile["evaluation"]["askAfterAgentReplies"] = 1;
  profile["end"]["afterEvaluation"] = true;
  auto desk = quor::QuorDeskSimulator::fromProfile(profile, nullptr);
  desk->attach(host);

  auto screen = std::make_shared<SupportScreen>();
  auto service = quor::KXCSService::make(desk->deskId(), screen);
  ASSERT_EQ(service->start(nullptr), quor::KXCSServiceResult::Done);
  host->settle();
  ASSERT_EQ(service->askForAgent(), quor::KXCSServiceResult::Done);
  host->settle();
  ASSERT_TRUE(screen->groups && !screen->groups->empty());
  ASSERT_EQ(service->chooseGroup(*screen->groups->back()->groupId()),
            quor::KXCSServiceResult::Done);
  host->settle();
  host->sendMessage(quor::KXConversationTypeCustomerService, desk->deskId(),
                    quor::KXTextMessage::messageWithContent("Where is my refund?"), std::nullopt,
                    std::nullopt, nullptr, nullptr);
  host->settle();
  ASSERT_TRUE(screen->ratingAsked);
  quor::KXCSAgentRating rating;
  rating.stars = 5;
  ASSERT_EQ(service->rateAgent(rating), quor::KXCSServiceResult::Done);
  host->settle();
  EXPECT_EQ(screen->states.back(), quor::KXCSServiceState::Ended);
  EXPECT_EQ(service->status().reason, quor::KXCSServiceReason::DeskEnded);
  service.reset();
  quor::QuorLoopbackHost::uninstall();
}

}  // namespace
