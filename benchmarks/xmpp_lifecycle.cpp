// The app's life cycle over real servers (Prosody and ejabberd side by side): the time from
// "foreground" to a line sent (the session resumed against a fresh login), and what a connected
// app costs in the background with a quiet desk over a stretch of minutes (the connection's
// wake-ups and the bytes both ways).
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

#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppConnection.h"

namespace {

using namespace quor;
using Clock = std::chrono::steady_clock;
constexpr int kRounds = 15;
constexpr auto kPatience = std::chrono::seconds(20);

struct Quiet : QuorXmppConnection::Events {
  void onStatus(QuorXmppConnectionStatus) override {}
  void onPayload(QuorXmppPayload) override {}
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

struct Figures {
  std::string server;
  double resumed = 0, fresh = 0;
  QuorXmppConnection::Traffic idle;
  double minutes = 0;
};

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
