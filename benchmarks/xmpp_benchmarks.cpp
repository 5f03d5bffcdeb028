// The library over a real XMPP server: round trips, the time to a started service, and one desk
// serving many customers. One private Prosody server serves the whole run.
#include <benchmark/benchmark.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <vector>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorDeskJid.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace {

using namespace quor;
using Clock = std::chrono::steady_clock;
constexpr int kCustomers = 100;
constexpr auto kPatience = std::chrono::seconds(30);

std::unique_ptr<QuorPrivateServer> server;
// The desk program, one client of the server for the whole run.
std::unique_ptr<QuorChildProcess> desk;

QuorXmppOptions account(const std::string& user) { return server->account(user, "pw"); }

std::string deskUser() {
  const std::string jid = QuorDeskJid::toJid("quor-shop", server->domain());
  return jid.substr(0, jid.find('@'));
}

// A bare client that hands each payload to a callback, on its network thread.
class Client : public QuorXmppConnection::Events {
 public:
  explicit Client(const std::string& user) : connection_(account(user), *this) {
    connection_.start();
    connection_.waitUntilOnline(kPatience);
  }
  std::function<void(const QuorXmppPayload&)> onMessage;
  void send(const std::string& to, const std::string& name, const std::string& body) {
    QuorXmppPayload payload;
    payload.peer = to;
    payload.objectName = name;
    payload.body = body;
    connection_.send(std::move(payload), nullptr);
  }
  const std::string& jid() const { return connection_.bareJid(); }
  QuorXmppConnection& connection() { return connection_; }

 private:
  void onStatus(QuorXmppConnectionStatus) override {}
  void onPayload(QuorXmppPayload payload) override {
    if (onMessage) onMessage(payload);
  }
  void onLog(int32_t, const std::string&, const std::string&) override {}
  QuorXmppConnection connection_;
};

// A one-shot signal between threads.
class Signal {
 public:
  void raise() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  bool waitFor(int count) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return count_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// The median of one run's iterations, in microseconds: the figure the budget compares.
void reportMedian(benchmark::State& state, std::vector<double> samples) {
  if (samples.empty()) return;
  std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
  state.counters["median_us"] = samples[samples.size() / 2] * 1e6;
}

// The desk simulator's answer to a handshake, as it travels.
std::string handshakeAnswer() {
  auto simulator = QuorDeskSimulator::fromProfile(QuorDeskSimulator::defaultProfile(), nullptr);
  std::string body;
  simulator->attach([&body](QuorWireMessage message) { body = message.body.value_or(""); });
  QuorWireMessage handshake;
  handshake.objectName = "KX:CsHs";
  simulator->onMessageFromClient(handshake);
  return body;
}

// A payload to another client and its answer back, through the server both ways, by two bare
// libstrophe clients. Arg 0: a small ping and its echo. Arg 1: the bytes of a start: a
// handshake without a body, answered with the desk's 1.6 KB handshake response.
void BM_XmppRawRoundTrip(benchmark::State& state) {
  const bool likeAStart = state.range(0) == 1;
  const std::string answer = likeAStart ? handshakeAnswer() : R"({"content":"pong"})";
  Client first("c0"), second("c1");
  second.onMessage = [&](const QuorXmppPayload& payload) {
    second.send(payload.peer, likeAStart ? "KX:CsHsR" : "KX:TxtMsg", answer);
  };
  Signal answered;
  first.onMessage = [&](const QuorXmppPayload&) { answered.raise(); };
  int round = 0;
  std::vector<double> samples;
  for (auto _ : state) {
    const auto started = Clock::now();
    first.send(second.jid(), likeAStart ? "KX:CsHs" : "KX:TxtMsg",
               likeAStart ? "" : R"({"content":"ping"})");
    if (!answered.waitFor(++round)) state.SkipWithError("no answer");
    samples.push_back(seconds(Clock::now() - started));
    state.SetIterationTime(samples.back());
  }
  reportMedian(state, samples);
}
BENCHMARK(BM_XmppRawRoundTrip)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(200)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// startCustomerService to the success callback on the main thread, through QuorXmppHost and
// quor-cs-desk on the server.
void BM_XmppStartToSuccess(benchmark::State& state) {
  QuorXmppHost::Options options;
  options.connection = account("c2");
  auto host = QuorXmppHost::create(options, nullptr);
  host->setLogSink(nullptr, 0);
  host->install();
  host->loadExtensionModule();
  host->connect();
  host->waitUntilOnline(kPatience);
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  std::vector<double> samples;
  for (auto _ : state) {
    bool connected = false;
    const auto started = Clock::now();
    client.startCustomerService(
        "quor-shop", nullptr, [&](auto) { connected = true; }, nullptr, nullptr, nullptr, nullptr,
        nullptr);
    const auto deadline = started + kPatience;
    while (!connected && Clock::now() < deadline) {
      host->mainRunLoop().runOnce(std::chrono::milliseconds(100));
    }
    samples.push_back(seconds(Clock::now() - started));
    state.SetIterationTime(samples.back());
    if (!connected) state.SkipWithError("no success callback");
    client.stopCustomerService("quor-shop");
    host->waitForDelivery();
    host->mainRunLoop().runUntilIdle();
  }
  reportMedian(state, samples);
  host->logout();
  QuorHostBase::uninstall();
}
BENCHMARK(BM_XmppStartToSuccess)->Iterations(100)->UseManualTime()->Unit(benchmark::kMicrosecond);

// One desk serving 100 customers' whole journeys at once: handshake, a question to the robot,
// the switch to an agent, a question to the agent, a rating and the suspend.
void BM_XmppHundredJourneys(benchmark::State& state) {
  for (auto _ : state) {
    const std::string deskJid = server->jid(deskUser());
    std::vector<std::unique_ptr<Client>> customers;
    for (int i = 0; i < kCustomers; ++i)
      customers.push_back(std::make_unique<Client>("c" + std::to_string(10 + i)));
    Signal finished;
    std::vector<std::atomic<int>> stages(kCustomers);
    for (int i = 0; i < kCustomers; ++i) {
      Client& customer = *customers[i];
      std::atomic<int>& stage = stages[i];
      customer.onMessage = [&customer, &stage, &finished, deskJid](const QuorXmppPayload& p) {
        const int now = stage.load();
        if (now == 0 && p.objectName == "KX:CsHsR") {
          stage = 1;
          customer.send(deskJid, "KX:TxtMsg", R"({"content":"where is my order?"})");
        } else if (now == 1 && p.objectName == "KX:TxtMsg") {
          stage = 2;
          customer.send(deskJid, "KX:CsCha", R"({"groupid":"after-sales"})");
        } else if (now == 2 && p.objectName == "KX:CsChaR") {
          stage = 3;
        } else if (now == 3 && p.objectName == "KX:TxtMsg") {
          stage = 4;
          customer.send(deskJid, "KX:TxtMsg", R"({"content":"a refund, please"})");
        } else if (now == 4 && p.objectName == "KX:TxtMsg") {
          stage = 5;
          customer.send(deskJid, "KX:CsEva", R"({"sid":"dialog-1","source":5,"type":"1"})");
          customer.send(deskJid, "KX:CsSp", "{}");
          finished.raise();
        }
      };
    }
    const double cpuBefore = desk->cpuSeconds();
    const auto started = Clock::now();
    for (auto& customer : customers) customer->send(deskJid, "KX:CsHs", "{}");
    const bool all = finished.waitFor(kCustomers);
    const double wall = seconds(Clock::now() - started);
    state.SetIterationTime(wall);
    state.counters["wall_ms_per_journey"] = wall * 1000 / kCustomers;
    state.counters["desk_cpu_ms_per_journey"] =
        (desk->cpuSeconds() - cpuBefore) * 1000 / kCustomers;
    if (!all) state.SkipWithError("not every journey finished");
  }
}
BENCHMARK(BM_XmppHundredJourneys)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  QuorPrivateServer::Options options;
  for (int i = 0; i < kCustomers + 10; ++i) options.accounts["c" + std::to_string(i)] = "pw";
  std::string error;
  server = QuorPrivateServer::start(options, &error);
  if (!server) {
    std::fprintf(stderr, "quor_cs_xmpp_benchmarks: %s\n", error.c_str());
    return 1;
  }
  server->addAccount(deskUser(), "pw");
  desk = QuorChildProcess::start(
      {QUOR_CS_DESK_PROGRAM, "--jid", server->jid(deskUser()), "--password", "pw", "--server",
       "127.0.0.1", "--port", std::to_string(server->port())},
      "/dev/null", &error);
  // The desk reports on stderr, which goes nowhere here: wait until it is online instead.
  Client probe("c1");
  bool answered = false;
  Signal handshake;
  probe.onMessage = [&](const QuorXmppPayload&) { handshake.raise(); };
  for (int attempt = 0; desk && attempt < 50 && !answered; ++attempt) {
    probe.send(server->jid(deskUser()), "KX:CsHs", "{}");
    answered = handshake.waitFor(1);
  }
  if (!answered) {
    std::fprintf(stderr, "quor_cs_xmpp_benchmarks: the desk did not answer: %s\n", error.c_str());
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  desk.reset();
  server.reset();
  return 0;
}
