// The library over a real XMPP server: round trips, the time to a started service, and one desk
// serving many customers. One private Prosody server serves the whole run.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
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
// The large run: customer hosts in kLoadProcesses processes of kHostsPerProcess each.
constexpr int kLoadProcesses = 8;
constexpr int kHostsPerProcess = 250;
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
// connections. Returns the seconds it took, or a negative number without an answer.
class RawPair {
 public:
  // `likeAStart`: the bytes of a start (a handshake without a body, answered with the desk's
  // 1.6 KB handshake response); else a small ping and its echo.
  explicit RawPair(bool likeAStart)
      : likeAStart_(likeAStart),
        answer_(likeAStart ? handshakeAnswer() : R"({"content":"pong"})"),
        first_("c0"),
        second_("c1") {
    second_.onMessage = [this](const QuorXmppPayload& payload) {
      second_.send(payload.peer, likeAStart_ ? "KX:CsHsR" : "KX:TxtMsg", answer_);
    };
    first_.onMessage = [this](const QuorXmppPayload&) { answered_.raise(); };
  }
  double roundTrip() {
    const auto started = Clock::now();
    first_.send(second_.jid(), likeAStart_ ? "KX:CsHs" : "KX:TxtMsg",
                likeAStart_ ? "" : R"({"content":"ping"})");
    if (!answered_.waitFor(++rounds_)) return -1;
    return seconds(Clock::now() - started);
  }

 private:
  const bool likeAStart_;
  const std::string answer_;
  Client first_, second_;
  Signal answered_;
  int rounds_ = 0;
};

// startCustomerService to the success callback on the main thread, through QuorXmppHost and
// quor-cs-desk on the server.
class StartingHost {
 public:
  StartingHost() {
    QuorXmppHost::Options options;
    options.connection = account("c2");
    host_ = QuorXmppHost::create(options, nullptr);
    host_->setLogSink(nullptr, 0);
    host_->install();
    host_->loadExtensionModule();
    host_->connect();
    host_->waitUntilOnline(kPatience);
  }
  ~StartingHost() {
    host_->logout();
    QuorHostBase::uninstall();
  }
  // Seconds to the success callback, or a negative number without one.
  double start() {
    auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
    bool connected = false;
    const auto started = Clock::now();
    client.startCustomerService(
        "quor-shop", nullptr, [&](auto) { connected = true; }, nullptr, nullptr, nullptr, nullptr,
        nullptr);
    const auto deadline = started + kPatience;
    while (!connected && Clock::now() < deadline) {
      host_->mainRunLoop().runOnce(std::chrono::milliseconds(100));
    }
    const double took = seconds(Clock::now() - started);
    client.stopCustomerService("quor-shop");
    host_->waitForDelivery();
    host_->mainRunLoop().runUntilIdle();
    return connected ? took : -1;
  }

 private:
  std::shared_ptr<QuorXmppHost> host_;
};

double median(std::vector<double> samples) {
  std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
  return samples[samples.size() / 2];
}

// The small ping's round trip, for reference.
void BM_XmppRawRoundTrip(benchmark::State& state) {
  RawPair pair(false);
  std::vector<double> samples;
  for (auto _ : state) {
    samples.push_back(pair.roundTrip());
    if (samples.back() < 0) state.SkipWithError("no answer");
    state.SetIterationTime(samples.back());
  }
  reportMedian(state, samples);
}
BENCHMARK(BM_XmppRawRoundTrip)->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

// A started service against the same bytes' raw round trip, interleaved: each round measures
// both (the median of kPerRound each) right after one another, so that the machine's changing
// load falls on both; the figure is the median of the rounds' ratios.
void BM_XmppStartVersusRaw(benchmark::State& state) {
  constexpr int kRounds = 15;
  constexpr int kPerRound = 20;
  RawPair pair(true);
  StartingHost host;
  for (auto _ : state) {
    std::vector<double> ratios, raws, starts;
    for (int round = 0; round < kRounds; ++round) {
      std::vector<double> raw, start;
      for (int i = 0; i < kPerRound; ++i) {
        raw.push_back(pair.roundTrip());
        start.push_back(host.start());
      }
      if (*std::min_element(raw.begin(), raw.end()) < 0 ||
          *std::min_element(start.begin(), start.end()) < 0) {
        state.SkipWithError("no answer");
        return;
      }
      raws.push_back(median(raw));
      starts.push_back(median(start));
      ratios.push_back(starts.back() / raws.back());
    }
    state.SetIterationTime(median(starts));
    state.counters["ratio_median"] = median(ratios);
    state.counters["ratio_lowest"] = *std::min_element(ratios.begin(), ratios.end());
    state.counters["ratio_highest"] = *std::max_element(ratios.begin(), ratios.end());
    state.counters["raw_median_us"] = median(raws) * 1e6;
    state.counters["start_median_us"] = median(starts) * 1e6;
  }
}
BENCHMARK(BM_XmppStartVersusRaw)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The caller's (the app's main thread's) time in a text's send, through a host whose store is a
// file: what a tap on "send" costs the thread that draws the screen. The median and the 99th
// percentile of 500 sends; the outcomes are awaited outside the measured calls.
void BM_XmppSendTextOnCallerThread(benchmark::State& state) {
  constexpr int kSends = 500;
  for (auto _ : state) {
    const std::string store = server->directory() + "/caller-time.sqlite";
    QuorXmppHost::Options options;
    options.connection = account("c4");
    options.storePath = store;
    auto host = QuorXmppHost::create(options, nullptr);
    host->setLogSink(nullptr, 0);
    host->connect();
    host->waitUntilOnline(kPatience);
    std::atomic<int> outcomes{0};
    std::vector<double> samples;
    for (int i = 0; i < kSends; ++i) {
      auto text = KXTextMessage::messageWithContent("where is my parcel? " + std::to_string(i));
      const auto started = Clock::now();
      host->sendMessage(
          KXConversationTypeCustomerService, std::string("quor-shop-bench"), text, std::nullopt,
          std::nullopt, [&](int64_t) { ++outcomes; }, [&](int64_t, int64_t) { ++outcomes; });
      samples.push_back(seconds(Clock::now() - started));
    }
    const auto deadline = Clock::now() + kPatience;
    while (outcomes < kSends && Clock::now() < deadline) {
      host->mainRunLoop().runOnce(std::chrono::milliseconds(50));
    }
    if (outcomes < kSends) state.SkipWithError("sends without an outcome");
    std::sort(samples.begin(), samples.end());
    state.SetIterationTime(samples[samples.size() / 2]);
    state.counters["median_us"] = samples[samples.size() / 2] * 1e6;
    state.counters["p99_us"] = samples[samples.size() * 99 / 100] * 1e6;
    host->logout();
  }
}
BENCHMARK(BM_XmppSendTextOnCallerThread)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// The voluntary context switches of every thread of this process but the caller.
long long wakeUpsOfOtherThreads() {
  long long total = 0;
  const std::string self = std::to_string(::gettid());
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == self) continue;
    std::ifstream status(task.path() / "status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind("voluntary_ctxt_switches:", 0) == 0) total += std::stoll(line.substr(24));
    }
  }
  return total;
}

// An idle, connected customer host: its threads' wake-ups over a minute, which should be the
// keepalive's alone (one request every 20 s and its answer).
void BM_XmppIdleHost(benchmark::State& state) {
  for (auto _ : state) {
    QuorXmppHost::Options options;
    options.connection = account("c3");
    auto host = QuorXmppHost::create(options, nullptr);
    host->setLogSink(nullptr, 0);
    host->connect();
    host->waitUntilOnline(kPatience);
    std::this_thread::sleep_for(std::chrono::seconds(2));  // the login's traffic settles
    const long long before = wakeUpsOfOtherThreads();
    const auto idle = std::chrono::seconds(60);
    std::this_thread::sleep_for(idle);
    const long long wakeUps = wakeUpsOfOtherThreads() - before;
    state.SetIterationTime(60);
    state.counters["wakeups_per_minute"] = static_cast<double>(wakeUps);
    state.counters["keepalives_per_minute"] =
        60.0 / std::chrono::duration<double>(options.connection.keepaliveInterval).count();
    host->logout();
  }
}
BENCHMARK(BM_XmppIdleHost)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

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

// Resident memory of a process in KiB (VmRSS), "self" or a pid.
long residentKb(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

// One of the load's customer processes: `count` QuorXmppHosts (u<first>...) log in, each sends a
// handshake and a question to the desk, and the process reports how many were answered and
// what a host costs in memory. The hosts are not installed (one process has one installed
// host); they speak the wire as the library would.
int runCustomers(int port, int first, int count, const std::string& deskId) {
  const long before = residentKb("self");
  std::vector<std::shared_ptr<QuorXmppHost>> hosts;
  std::atomic<int> answered{0};
  for (int i = first; i < first + count; ++i) {
    QuorXmppHost::Options options;
    options.connection.jid = "u" + std::to_string(i) + "@localhost";
    options.connection.password = "pw";
    options.connection.server = "127.0.0.1";
    options.connection.port = static_cast<uint16_t>(port);
    options.connection.tls = QuorXmppOptions::Tls::Disabled;
    auto host = QuorXmppHost::create(options, nullptr);
    host->setLogSink(nullptr, 0);
    auto counted = std::make_shared<std::atomic<bool>>(false);
    host->addMessageListener([&answered, counted](const std::shared_ptr<KXMessage>& message) {
      if (message->objectName() == std::string("KX:TxtMsg") && !counted->exchange(true)) {
        ++answered;
      }
    });
    host->connect();
    hosts.push_back(std::move(host));
  }
  int online = 0;
  for (auto& host : hosts) online += host->waitUntilOnline(kPatience) ? 1 : 0;
  const long connected = residentKb("self");
  const auto started = Clock::now();
  for (auto& host : hosts) {
    host->sendMessage(5, deskId, std::make_shared<KXCSHandShakeMessage>(), std::nullopt,
                      std::nullopt, nullptr, nullptr);
    host->sendMessage(5, deskId, KXTextMessage::messageWithContent("where is my order?"),
                      std::nullopt, std::nullopt, nullptr, nullptr);
  }
  while (answered < count && Clock::now() - started < kPatience) {
    for (auto& host : hosts) host->mainRunLoop().runUntilIdle();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::printf("online %d answered %d kb_per_host %.1f seconds %.2f\n", online, answered.load(),
              static_cast<double>(connected - before) / count, seconds(Clock::now() - started));
  std::fflush(stdout);
  for (auto& host : hosts) host->logout();
  return 0;
}

// One desk serving 2,000 customer hosts at once, the customers in several processes: all
// answered; memory per customer host and per desk session.
void BM_XmppTwoThousandCustomers(benchmark::State& state) {
  for (auto _ : state) {
    const long deskBefore = residentKb(std::to_string(desk->pid()));
    std::vector<std::unique_ptr<QuorChildProcess>> processes;
    std::vector<std::string> outputs;
    std::string error;
    const auto started = Clock::now();
    for (int p = 0; p < kLoadProcesses; ++p) {
      outputs.push_back(server->directory() + "/load-" + std::to_string(p) + ".out");
      processes.push_back(QuorChildProcess::start(
          {"/proc/self/exe", "--customers", std::to_string(server->port()),
           std::to_string(p * kHostsPerProcess), std::to_string(kHostsPerProcess), "quor-shop"},
          outputs.back(), &error));
    }
    for (auto& process : processes) {
      while (process && process->running())
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    const double wall = seconds(Clock::now() - started);
    const long deskAfter = residentKb(std::to_string(desk->pid()));
    int online = 0, answered = 0;
    double kbPerHost = 0;
    for (const auto& output : outputs) {
      int o = 0, a = 0;
      double kb = 0, took = 0;
      if (std::sscanf(QuorChildProcess::readFile(output).c_str(),
                      "online %d answered %d kb_per_host %lf seconds %lf", &o, &a, &kb,
                      &took) == 4) {
        online += o;
        answered += a;
        kbPerHost += kb / kLoadProcesses;
      }
    }
    const int customers = kLoadProcesses * kHostsPerProcess;
    state.SetIterationTime(wall);
    state.counters["customers"] = customers;
    state.counters["online"] = online;
    state.counters["answered"] = answered;
    state.counters["kb_per_customer_host"] = kbPerHost;
    state.counters["kb_per_desk_session"] = static_cast<double>(deskAfter - deskBefore) / customers;
    if (answered < customers) state.SkipWithError("not every customer was answered");
  }
}
BENCHMARK(BM_XmppTwoThousandCustomers)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 6 && std::string(argv[1]) == "--customers") {
    return runCustomers(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]), argv[5]);
  }
  // 2,000 customers need more descriptors than the usual soft limit, here and in the server.
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &files);
  QuorPrivateServer::Options options;
  for (int i = 0; i < kCustomers + 10; ++i) options.accounts["c" + std::to_string(i)] = "pw";
  for (int i = 0; i < kLoadProcesses * kHostsPerProcess; ++i) {
    options.accounts["u" + std::to_string(i)] = "pw";
  }
  std::string error;
  server = QuorPrivateServer::start(options, &error);
  if (!server) {
    std::fprintf(stderr, "quor_cs_xmpp_benchmarks: %s\n", error.c_str());
    return 1;
  }
  server->addAccount(deskUser(), "pw");
  desk = QuorChildProcess::start(
      {"env", "QUOR_CS_DESK_PASSWORD=pw", QUOR_CS_DESK_PROGRAM, "--jid", server->jid(deskUser()),
       "--state", server->directory() + "/desk.sqlite", "--server", "127.0.0.1", "--port",
       std::to_string(server->port())},
      "/dev/null", &error);
  // The desk reports on stderr, which goes nowhere here: wait until it is online instead.
  bool answered = false;
  {
    Client probe("c1");
    Signal handshake;
    probe.onMessage = [&](const QuorXmppPayload&) { handshake.raise(); };
    for (int attempt = 0; desk && attempt < 50 && !answered; ++attempt) {
      probe.send(server->jid(deskUser()), "KX:CsHs", "{}");
      answered = handshake.waitFor(1);
    }
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
