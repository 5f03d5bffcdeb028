// Deliveries, application operations and main-queue draining on several threads at once. Run
// under ThreadSanitizer by the test command; here it checks that nothing is lost.
#include <gmock/gmock.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/ClientFixture.h"

namespace quor::test {
namespace {

using Concurrency = ClientFixture;

// Several application threads on a few desks while a delivery thread feeds control messages
// and the main queue drains: every callback the rules require runs exactly once, and no request
// carries identifiers from two different handshakes.
TEST_F(Concurrency, StressCountsEveryRequiredCallback) {
  constexpr int kDesks = 3;
  constexpr int kMessages = 150;
  std::atomic<int> modes[kDesks] = {};
  std::atomic<int> pulls[kDesks] = {};
  const auto desk = [](int i) { return "desk-" + std::to_string(i); };
  const auto open = [&](int i) {
    client().startCustomerService(
        desk(i), nullptr, nullptr, nullptr, [&, i](KXCSModeType) { modes[i]++; },
        [&, i](const KXString&) { pulls[i]++; }, nullptr, nullptr);
  };
  for (int i = 0; i < kDesks; ++i) open(i);
  client().setHandShakeMessageSendTime(1);
  // Identifiers from the start, so that requests made before the first delivery carry some.
  for (const auto& [deskId, session] : client().customerServiceSessions()) {
    session->setUid("u-1");
    session->setCid("c-1");
    session->setPid("p-1");
  }

  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    ThreadName name("delivery");
    for (int n = 0; n < kMessages; ++n) {
      for (int i = 0; i < kDesks; ++i) {
        const auto deliver = [&](std::shared_ptr<KXMessageContent> content) {
          client().onCustomerServiceMessageReceived(
              receivedMessage(std::move(content), desk(i), 5));
        };
        const std::string id = std::to_string(n * kDesks + i);
        deliver(decoded<KXCSHandShakeResponseMessage>(KXDictionary{
            {"status", 1},
            {"data",
             {{"serviceType", 4}, {"uid", "u" + id}, {"sid", "c" + id}, {"pid", "p" + id}}}}));
        deliver(decoded<KXCSUpdateMessage>(KXDictionary::parse(R"({"serviceStatus":1})")));
        deliver(decoded<KXCSPullEvaluateMessage>(KXDictionary::parse(R"({"msgId":"d"})")));
        deliver(decoded<KXCSChangeModeResponseMessage>(
            KXDictionary::parse(R"({"code":1,"data":{"status":9}})")));
      }
    }
  });
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int n = 0; n < kMessages; ++n) {
        const int i = (n + t) % kDesks;
        open(i);  // a restart keeps equivalent callbacks in place
        client().evaluateCustomerService(desk(i), std::nullopt, 5, std::nullopt, 1, std::nullopt,
                                         nullptr);
        client().switchToHumanMode(desk(i));
        client().startCustomerService("churn", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr);
        client().stopCustomerService("churn");
      }
    });
  }
  threads.emplace_back([&] {
    while (!done) host->drainMain();
  });
  for (std::size_t i = 0; i + 1 < threads.size(); ++i) threads[i].join();
  done = true;
  threads.back().join();
  host->drainMain();
  for (int i = 0; i < kDesks; ++i) {
    EXPECT_EQ(modes[i].load(), 2 * kMessages) << desk(i);  // handshake and update, once each
    EXPECT_EQ(pulls[i].load(), kMessages) << desk(i);
  }
  int withIdentifiers = 0;
  for (const auto& send : host->sends()) {
    const KXDictionary& body = send.json;
    if (!body.is_object() || !body.contains("uid")) continue;
    ++withIdentifiers;
    const std::string handshake = body["uid"].get<std::string>().substr(1);
    EXPECT_EQ(body["sid"], "c" + handshake) << body.dump();
    EXPECT_EQ(body["pid"], "p" + handshake) << body.dump();
  }
  EXPECT_GT(withIdentifiers, 0);
}

}  // namespace
}  // namespace quor::test
