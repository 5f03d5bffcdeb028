// The app's life cycle over real servers (Prosody and ejabberd side by side): the time from
// "foreground" to a line sent (the session resumed against a fresh login), and what a connected
// app costs in the background with a quiet desk over a stretch of minutes (the connection's
// wake-ups and the bytes both ways); and a device catching up 1,000 lines another device took
// while it was away (time, bytes, memory).
//
//   xmpp_lifecycle [--idle-minutes M]   (default 10; 0 skips the idle measurement)
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppConnection.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace {

using namespace quor;
using Clock = std::chrono::steady_clock;
constexpr int kRounds = 15;
constexpr auto kPatience = std::chrono::seconds(20);
constexpr int kMissed = 1000;

struct Quiet : QuorXmppConnection::Events {
  std::atomic<int> payloads{0};
  void onStatus(QuorXmppConnectionStatus) override {}
  void onPayload(QuorXmppPayload) override { ++payloads; }
  void onLog(int32_t, const std::string&, const std::string&) override {}
};

// Sends one line to the desk and waits for its outcome; false when it failed.
bool sendOne(QuorXmppConnection& connection, const std::string& desk) {
  std::mutex mutex;
  std::condition_variable done;
  int64_t result = -1;
  QuorXmppPayload payload;
  payload.peer = desk;
  payload.objectName = "KX:TxtMsg";
  payload.body = std::string("{\"content\":\"back\"}");
  connection.send(payload, [&](int64_t code, int64_t) {
    std::lock_guard<std::mutex> lock(mutex);
    result = code;
    done.notify_all();
  });
  std::unique_lock<std::mutex> lock(mutex);
  return done.wait_for(lock, kPatience, [&] { return result >= 0; }) && result == 0;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

double ms(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

// This process's resident memory in kB.
long residentKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return 0;
}

struct Figures {
  std::string server;
  double resumed = 0, fresh = 0;
  // Catching up what another device took, and the whole archive on a reinstalled app.
  struct CatchUp {
    int lines = 0;
    double ms = 0;
    uint64_t bytes = 0;
    long kb = 0;
  } catchUp, reinstall;
  QuorXmppConnection::Traffic idle;
  double minutes = 0;
};

// A tablet with its own store takes one line, goes away while the phone takes kMissed more, and
// comes back: the time from its connect() to the last missed line, its bytes in, and how much
// this process's memory grew meanwhile.
void catchUp(QuorPrivateServer& server, Figures& figures) {
  // One server's catch-up at a time: the memory figure is this process's.
  static std::mutex one;
  std::lock_guard<std::mutex> alone(one);
  const std::string store = std::filesystem::temp_directory_path().string() + "/quor-lifecycle-" +
                            figures.server + "-" + std::to_string(::getpid()) + ".sqlite";
  std::atomic<int> heard{0};
  const auto tablet = [&](const std::string& path) {
    QuorXmppHost::Options options;
    options.connection = server.account("mei", "pw");
    options.storePath = path;
    auto host = QuorXmppHost::create(options, nullptr);
    host->setLogSink(nullptr, 0);
    host->setWireObserver([&](const QuorXmppPayload&, bool fromClient) {
      if (!fromClient) ++heard;
    });
    return host;
  };
  Quiet quiet;
  QuorXmppConnection desk(server.account("shop", "pw"), quiet);
  desk.start();
  QuorXmppConnection phone(server.account("mei", "pw"), quiet);
  phone.start();
  if (!desk.waitUntilOnline(kPatience) || !phone.waitUntilOnline(kPatience)) std::exit(1);
  const auto say = [&](int count) {
    for (int i = 0; i < count; ++i) {
      QuorXmppPayload payload;
      payload.peer = server.jid("mei");
      payload.objectName = "KX:TxtMsg";
      payload.body = "{\"content\":\"line " + std::to_string(i) + " of what the desk said\"}";
      desk.send(payload, nullptr);
    }
  };
  const auto until = [&](int count) {
    const auto end = Clock::now() + std::chrono::minutes(2);
    while (heard.load() < count && Clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return heard.load() >= count;
  };
  {
    auto first = tablet(store);
    first->connect();
    if (!first->waitUntilOnline(kPatience)) std::exit(1);
    say(1);
    if (!until(1)) {
      std::fprintf(stderr, "%s: the tablet heard nothing\n", figures.server.c_str());
      std::exit(1);
    }
    first->logout();
  }
  say(kMissed);
  // The phone takes them all before the tablet is back.
  const auto taken = Clock::now() + std::chrono::minutes(2);
  while (quiet.payloads.load() < kMissed + 1 && Clock::now() < taken) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (quiet.payloads.load() < kMissed + 1) {
    std::fprintf(stderr, "%s: the phone took %d of %d lines\n", figures.server.c_str(),
                 quiet.payloads.load(), kMissed + 1);
    std::exit(1);
  }
  // A tablet on `path` comes back: the time from its connect() to `lines` lines heard.
  const auto measureCatchUp = [&](const std::string& path, int lines, Figures::CatchUp& into) {
    heard = 0;
    const long before = residentKb();
    long most = before;
    auto again = tablet(path);
    const auto start = Clock::now();
    again->connect();
    const auto end = Clock::now() + std::chrono::minutes(2);
    while (heard.load() < lines && Clock::now() < end) {
      most = std::max(most, residentKb());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (heard.load() < lines) {
      std::fprintf(stderr, "%s: the tablet caught up %d of %d lines\n", figures.server.c_str(),
                   heard.load(), lines);
      std::exit(1);
    }
    into = {lines, ms(Clock::now() - start), again->connection().traffic().bytesIn, most - before};
    again->logout();
  };
  measureCatchUp(store, kMissed, figures.catchUp);
  // Installed again: a new store reads the account's whole archive.
  measureCatchUp(store + "-new", kMissed + 1, figures.reinstall);
  for (const std::string& path : {store, store + "-new"}) {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
  }
}

Figures measure(QuorPrivateServer::Software software, int idleMinutes) {
  Figures figures;
  figures.server = software == QuorPrivateServer::Software::Prosody ? "Prosody" : "ejabberd";
  QuorPrivateServer::Options options;
  options.software = software;
  options.accounts = {{"mei", "pw"}, {"shop", "pw"}};
  std::string error;
  auto server = QuorPrivateServer::start(options, &error);
  if (!server) {
    std::fprintf(stderr, "%s did not start: %s\n", figures.server.c_str(), error.c_str());
    std::exit(1);
  }
  const std::string desk = server->jid("shop");
  Quiet quiet;
  std::vector<double> resumed, fresh;
  {
    QuorXmppConnection app(server->account("mei", "pw"), quiet);
    app.start();
    if (!app.waitUntilOnline(kPatience) || !sendOne(app, desk)) std::exit(1);
    for (int round = 0; round < kRounds; ++round) {
      app.setAppState(QuorAppState::Suspended);
      while (app.status() == QuorXmppConnectionStatus::Connected) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      const auto start = Clock::now();
      app.setAppState(QuorAppState::Foreground);
      if (!sendOne(app, desk)) std::exit(1);
      resumed.push_back(ms(Clock::now() - start));
    }
    app.stop(true);
  }
  for (int round = 0; round < kRounds; ++round) {
    const auto start = Clock::now();
    QuorXmppConnection app(server->account("mei", "pw"), quiet);
    app.start();
    if (!sendOne(app, desk)) std::exit(1);
    fresh.push_back(ms(Clock::now() - start));
  }
  figures.resumed = median(resumed);
  figures.fresh = median(fresh);
  catchUp(*server, figures);
  if (idleMinutes > 0) {
    QuorXmppConnection app(server->account("mei", "pw"), quiet);
    app.start();
    if (!app.waitUntilOnline(kPatience)) std::exit(1);
    app.setAppState(QuorAppState::Background);
    std::this_thread::sleep_for(std::chrono::seconds(2));  // the move's own traffic settles
    const auto before = app.traffic();
    std::this_thread::sleep_for(std::chrono::minutes(idleMinutes));
    const auto after = app.traffic();
    figures.idle = {after.wakeups - before.wakeups, after.bytesIn - before.bytesIn,
                    after.bytesOut - before.bytesOut, 0, 0};
    figures.minutes = idleMinutes;
  }
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  int idleMinutes = 10;
  if (argc == 3 && std::string(argv[1]) == "--idle-minutes") idleMinutes = std::atoi(argv[2]);
  // The two servers side by side: the idle stretch is the same wall-clock time for both.
  Figures prosody, ejabberd;
  std::thread first([&] { prosody = measure(QuorPrivateServer::Software::Prosody, idleMinutes); });
  std::thread second(
      [&] { ejabberd = measure(QuorPrivateServer::Software::Ejabberd, idleMinutes); });
  first.join();
  second.join();
  for (const Figures* f : {&prosody, &ejabberd}) {
    std::printf(
        "%s: foreground to a line sent: %.1f ms resumed, %.1f ms with a fresh login "
        "(medians of %d)\n",
        f->server.c_str(), f->resumed, f->fresh, kRounds);
    for (const auto& [what, c] :
         {std::pair<const char*, const Figures::CatchUp&>("lines another device took", f->catchUp),
          {"lines, the whole archive, on a reinstalled app", f->reinstall}}) {
      std::printf("%s: catching up %d %s: %.0f ms, %llu bytes in, resident memory +%ld kB\n",
                  f->server.c_str(), c.lines, what, c.ms, static_cast<unsigned long long>(c.bytes),
                  c.kb);
    }
    if (f->minutes > 0) {
      std::printf(
          "%s: %.0f minutes in the background, quiet desk: %llu wake-ups (%.2f a minute), "
          "%llu bytes in, %llu bytes out\n",
          f->server.c_str(), f->minutes, static_cast<unsigned long long>(f->idle.wakeups),
          f->idle.wakeups / f->minutes, static_cast<unsigned long long>(f->idle.bytesIn),
          static_cast<unsigned long long>(f->idle.bytesOut));
    }
  }
  return 0;
}
