// Deliveries, application operations and main-queue draining on three threads at once. Run
// under ThreadSanitizer by the test command; here it checks that nothing is lost.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using Concurrency = ClientFixture;

TEST_F(Concurrency, DeliveriesOperationsAndTheMainThreadRunTogether) {
  constexpr int kRounds = 300;
  std::atomic<int> modeCalls{0};
  std::atomic<bool> done{false};
  client().startCustomerService(
      "desk", nullptr, nullptr, nullptr, [&](KXCSModeType) { modeCalls++; }, nullptr, nullptr,
      nullptr);
  host->confirmSend(0, 1);

  std::thread delivery([&] {
    ThreadName name("delivery");
    for (int i = 0; i < kRounds; ++i) {
      auto response = std::make_shared<KXCSHandShakeResponseMessage>();
      response->decodeWithData(
          std::string(R"({"status":1,"data":{"sid":"c","serviceType":3,"groups":[{"id":"g"}]}})"));
      client().onCustomerServiceMessageReceived(receivedMessage(response, "desk", 10));
      auto update = std::make_shared<KXCSUpdateMessage>();
      update->decodeWithData(std::string(R"({"sid":"c2","serviceStatus":2})"));
      client().onCustomerServiceMessageReceived(receivedMessage(update, "desk", 10));
    }
  });
  std::thread application([&] {
    for (int i = 0; i < kRounds; ++i) {
      client().switchToHumanMode("desk");
      client().evaluateCustomerService("desk", std::nullopt, 4, std::nullopt, 1, KXString("t"),
                                       nullptr);
      client().getHumanEvaluateCustomerServiceConfig([](const auto&) {});
      (void)client().customerServiceSessions();
    }
  });
  std::thread main([&] {
    while (!done) host->drainMain();
  });
  delivery.join();
  application.join();
  done = true;
  main.join();
  host->drainMain();
  // Every response and update reported its mode exactly once.
  EXPECT_EQ(modeCalls.load(), 2 * kRounds);
  EXPECT_EQ(client().currentCSModeType(), KXCSModeHuman);
}

}  // namespace
}  // namespace quor::test
