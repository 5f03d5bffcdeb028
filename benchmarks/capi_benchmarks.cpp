// The C API against the same calls in C++, over one test kit installed by the C layer: what the
// C layer adds to a service operation and to an observer callback.
#include <benchmark/benchmark.h>

#include <memory>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorCustomerService/quor_cs.h"
#include "QuorCustomerService/quor_cs_kit.h"

namespace {

quor_cs_kit* kit() {
  static quor_cs_kit* made = quor_cs_kit_create(nullptr, nullptr);
  return made;
}

// The customer's texts are queued by the host; the kit settles them every so many calls.
constexpr int kBatch = 256;

struct CxxScreen : quor::KXCSServiceObserver {
  uint64_t messages = 0;
  void onMessage(const quor::KXCSConversationMessage&) override { ++messages; }
};

struct CScreen {
  uint64_t messages = 0;
  static void onMessage(void* user, const quor_cs_message*) {
    ++static_cast<CScreen*>(user)->messages;
  }
};

std::shared_ptr<quor::KXCSService> cxxService(const std::shared_ptr<CxxScreen>& screen) {
  auto service = quor::KXCSService::make(quor_cs_kit_desk_id(kit()), screen);
  service->start(nullptr);
  quor_cs_kit_settle(kit());
  return service;
}

quor_cs_service* cService(CScreen& screen) {
  quor_cs_observer observer{};
  observer.size = sizeof observer;
  observer.user = &screen;
  observer.on_message = CScreen::onMessage;
  quor_cs_service* service = quor_cs_service_create(quor_cs_kit_desk_id(kit()), &observer);
  quor_cs_service_start(service, nullptr, 0);
  quor_cs_kit_settle(kit());
  return service;
}

template <class Send>
void sendInBatches(benchmark::State& state, Send&& send) {
  int sent = 0;
  for (auto _ : state) {
    send();
    if (++sent % kBatch == 0) {
      state.PauseTiming();
      quor_cs_kit_settle(kit());
      state.ResumeTiming();
    }
  }
}

void BM_SendText_Cxx(benchmark::State& state) {
  auto screen = std::make_shared<CxxScreen>();
  auto service = cxxService(screen);
  sendInBatches(state, [&] { benchmark::DoNotOptimize(service->sendText("Where is my order?")); });
  service.reset();
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_SendText_Cxx);

void BM_SendText_C(benchmark::State& state) {
  CScreen screen;
  quor_cs_service* service = cService(screen);
  sendInBatches(state, [&] {
    benchmark::DoNotOptimize(quor_cs_service_send_text(service, "Where is my order?"));
  });
  quor_cs_service_destroy(service);
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_SendText_C);

// A text of the desk reaching the observer: the host's delivery, the session's bookkeeping and
// the observer's call (through the C layer's translation in the C case).
void BM_DeskTextToObserver_Cxx(benchmark::State& state) {
  auto screen = std::make_shared<CxxScreen>();
  auto service = cxxService(screen);
  for (auto _ : state) {
    quor_cs_kit_desk_say(kit(), "Orders ship within 24 hours.");
    quor_cs_kit_settle(kit());
  }
  state.counters["messages"] = static_cast<double>(screen->messages);
  service.reset();
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_DeskTextToObserver_Cxx);

void BM_DeskTextToObserver_C(benchmark::State& state) {
  CScreen screen;
  quor_cs_service* service = cService(screen);
  for (auto _ : state) {
    quor_cs_kit_desk_say(kit(), "Orders ship within 24 hours.");
    quor_cs_kit_settle(kit());
  }
  state.counters["messages"] = static_cast<double>(screen.messages);
  quor_cs_service_destroy(service);
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_DeskTextToObserver_C);

// The cheapest operation, where the border's own cost shows most (reported, not budgeted).
void BM_UnreadCount_Cxx(benchmark::State& state) {
  auto screen = std::make_shared<CxxScreen>();
  auto service = cxxService(screen);
  for (auto _ : state) benchmark::DoNotOptimize(service->unreadCount());
  service.reset();
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_UnreadCount_Cxx);

void BM_UnreadCount_C(benchmark::State& state) {
  CScreen screen;
  quor_cs_service* service = cService(screen);
  for (auto _ : state) benchmark::DoNotOptimize(quor_cs_service_unread_count(service));
  quor_cs_service_destroy(service);
  quor_cs_kit_settle(kit());
}
BENCHMARK(BM_UnreadCount_C);

}  // namespace
