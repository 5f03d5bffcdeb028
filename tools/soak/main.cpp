// quor-cs-soak: the real path under a bounded storm of field faults. A private Prosody, the desk
// program behind an echoing robot, and a customer process (QuorXmppHost with a store, through a
// proxy) that keeps asking; meanwhile the soak kills and restarts the customer, the desk and
// the server, and black-holes the link. Then it counts, from the processes' own logs:
//   - every send reported at most once, and exactly once unless its process was killed;
//   - every answer the desk reported sent is in the customer's history exactly once, and shown
//     at most once;
//   - everything shown is in the history.
//
//   quor-cs-soak [--cycles N] [--seed S]       the soak (exits 1 when a count is wrong)
//   quor-cs-soak --customer PORT STORE TAG     one customer process (used by the soak)
//   quor-cs-soak --history PORT STORE          a last customer run that prints its history
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorPrivateServer/QuorTcpProxy.h"
#include "QuorXmppHost/QuorDeskJid.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace {

using namespace quor;
using Clock = std::chrono::steady_clock;
constexpr const char* kDesk = "quor-shop";

QuorXmppHost::Options customerOptions(int port, const std::string& store) {
  QuorXmppHost::Options options;
  options.connection.jid = "alice@localhost";
  options.connection.password = "alice-pw";
  options.connection.server = "127.0.0.1";
  options.connection.port = static_cast<uint16_t>(port);
  options.connection.tls = QuorXmppOptions::Tls::Disabled;
  options.connection.reconnectFirst = std::chrono::milliseconds(100);
  options.connection.reconnectLongest = std::chrono::milliseconds(1000);
  options.connection.keepaliveInterval = std::chrono::milliseconds(1000);
  options.connection.keepaliveTimeout = std::chrono::milliseconds(1000);
  options.storePath = store;
  return options;
}

std::string textOf(const std::shared_ptr<KXMessage>& message) {
  auto* text = dynamic_cast<KXTextMessage*>(message->content().get());
  return text ? text->content().value_or("") : "";
}

// One line to standard output at once (the soak's log of this process).
void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// The customer's host on its store, quiet, logging in; null (said why) when the store fails.
std::shared_ptr<QuorXmppHost> customerHost(int port, const std::string& store) {
  std::string error;
  auto host = QuorXmppHost::create(customerOptions(port, store), &error);
  if (!host) {
    say("error " + error);
    return nullptr;
  }
  host->setLogSink(nullptr, 0);
  return host;
}

// A customer that asks "ping TAG-n" every 100 ms until it is stopped: SIGTERM logs out
// cleanly (every waiting send gets its outcome), SIGKILL ends it anywhere.
int runCustomer(int port, const std::string& store, const std::string& tag) {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  auto host = customerHost(port, store);
  if (!host) return 2;
  host->addMessageListener([](const std::shared_ptr<KXMessage>& message) {
    say("shown " + std::to_string(message->messageId()) + " " + textOf(message));
  });
  host->connect();
  for (int n = 0;; ++n) {
    const std::string id = tag + "-" + std::to_string(n);
    say("send " + id);
    host->sendMessage(
        5, kDesk, KXTextMessage::messageWithContent("ping " + id), std::nullopt, std::nullopt,
        [id](int64_t) { say("outcome " + id + " 0"); },
        [id](int64_t code, int64_t) { say("outcome " + id + " " + std::to_string(code)); });
    const auto until = Clock::now() + std::chrono::milliseconds(100);
    while (Clock::now() < until) host->mainRunLoop().runOnce(std::chrono::milliseconds(20));
    sigset_t pending;
    sigpending(&pending);
    if (sigismember(&pending, SIGTERM)) break;
  }
  host->logout();
  host->mainRunLoop().runUntilIdle();
  say("stopped " + tag);
  return 0;
}

// The last run: online long enough for what earlier runs left to go out and what waits for it
// to arrive, then its whole history.
int printHistory(int port, const std::string& store) {
  auto host = customerHost(port, store);
  if (!host) return 2;
  host->connect();
  host->waitUntilOnline(std::chrono::seconds(10));
  std::this_thread::sleep_for(std::chrono::seconds(8));
  host->waitForDelivery();
  int64_t before = 0;
  for (;;) {
    const auto page = host->history(kDesk, before, 200);
    if (page.empty()) break;
    for (const auto& entry : page) {
      say("history " + std::to_string(entry.message->messageId()) + " " +
          std::to_string(static_cast<int>(entry.status)) + " " + textOf(entry.message));
    }
    before = page.back().message->messageId();
  }
  host->logout();
  return 0;
}

std::string besideThisProgram(const std::string& name) {
  char self[PATH_MAX] = {};
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
  const std::string path = length > 0 ? std::string(self, static_cast<std::size_t>(length)) : "";
  return path.substr(0, path.rfind('/') + 1) + name;
}

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream in(QuorChildProcess::readFile(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class Soak {
 public:
  explicit Soak(unsigned seed) : random_(seed) {}

  bool start() {
    std::string error;
    QuorPrivateServer::Options options;
    deskUser_ = QuorDeskJid::toJid(kDesk, "localhost");
    deskUser_ = deskUser_.substr(0, deskUser_.find('@'));
    options.accounts = {{"alice", "alice-pw"}, {deskUser_, "desk-pw"}};
    server_ = QuorPrivateServer::start(options, &error);
    if (!server_) return fail(error);
    proxy_ = QuorTcpProxy::start(server_->port());
    const std::string dir = server_->directory();
    store_ = dir + "/alice.sqlite";
    deskLog_ = dir + "/desk.log";
    customerLog_ = dir + "/customer.log";
    profile_ = dir + "/echo.json";
    std::ofstream(profile_) << R"({"deskId":"quor-shop","serviceType":1,"robot":{"echo":true}})";
    return startDesk() && startCustomer();
  }

  bool startDesk() {
    std::string error;
    desk_ = QuorChildProcess::start(
        {"env", "QUOR_CS_DESK_PASSWORD=desk-pw", besideThisProgram("quor-cs-desk"), "--jid",
         deskUser_ + "@localhost", "--state", server_->directory() + "/desk.sqlite", "--server",
         "127.0.0.1", "--port", std::to_string(server_->port()), "--profile", profile_,
         "--verbose"},
        deskLog_, &error);
    return desk_ ? true : fail(error);
  }

  bool startCustomer() {
    std::string error;
    const std::string tag = "r" + std::to_string(++runs_);
    customer_ = QuorChildProcess::start({besideThisProgram("quor-cs-soak"), "--customer",
                                         std::to_string(proxy_->port()), store_, tag},
                                        customerLog_, &error);
    return customer_ ? true : fail(error);
  }

  // One fault, chosen at random, then a while of ordinary work.
  bool cycle() {
    const int fault = std::uniform_int_distribution<int>(0, 4)(random_);
    ++faults_[fault];
    std::string error;
    switch (fault) {
      case 0:  // the app's process is killed and started again
        customer_->stop(SIGKILL);
        killedRuns_.insert("r" + std::to_string(runs_));
        if (!startCustomer()) return false;
        break;
      case 1:  // the desk program restarts cleanly
        desk_->stop(SIGTERM);
        if (!startDesk()) return false;
        break;
      case 2:  // the desk program crashes and is started again
        desk_->stop(SIGKILL);
        if (!startDesk()) return false;
        break;
      case 3:  // the server crashes and comes back
        server_->kill();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        if (!server_->restart(&error)) return fail(error);
        break;
      default:  // the link goes dead for a while
        proxy_->setBlackHole(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        proxy_->setBlackHole(false);
    }
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::uniform_int_distribution<int>(1000, 3000)(random_)));
    return true;
  }

  // Stops the customer cleanly, lets the last run collect, and counts.
  int finish() {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    customer_->stop(SIGTERM, std::chrono::seconds(15));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    std::string error;
    const std::string historyLog = server_->directory() + "/history.log";
    auto last = QuorChildProcess::start(
        {besideThisProgram("quor-cs-soak"), "--history", std::to_string(proxy_->port()), store_},
        historyLog, &error);
    while (last && last->running()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    desk_->stop(SIGTERM);
    return count(historyLog);
  }

 private:
  bool fail(const std::string& why) {
    std::fprintf(stderr, "quor-cs-soak: %s\n", why.c_str());
    return false;
  }

  int count(const std::string& historyLog) {
    // Sends and their outcomes, per run.
    std::map<std::string, int> outcomes;
    std::set<std::string> sent;
    std::map<std::string, int> shown;
    for (const auto& line : linesOf(customerLog_)) {
      std::istringstream words(line);
      std::string kind, id;
      words >> kind >> id;
      if (kind == "send") sent.insert(id);
      if (kind == "outcome") ++outcomes[id];
      if (kind == "shown") shown[line.substr(line.find(' ', 6) + 1)]++;
    }
    int doubled = 0, unreported = 0, unreportedKilled = 0;
    for (const auto& id : sent) {
      const int n = outcomes.count(id) ? outcomes[id] : 0;
      if (n > 1) ++doubled;
      if (n == 0) (killedRuns_.count(id.substr(0, id.find('-'))) ? unreportedKilled : unreported)++;
    }
    // What the desk reported sent.
    std::set<std::string> answered;
    const std::string marker = "desk: sent KX:TxtMsg to alice@localhost: ";
    int deskFailed = 0;
    for (const auto& line : linesOf(deskLog_)) {
      if (line.rfind(marker, 0) == 0) {
        const KXDictionary body = KXDictionary::parse(line.substr(marker.size()), nullptr, false);
        const auto content = body.is_object() ? body.find("content") : body.end();
        if (content != body.end() && content->is_string())
          answered.insert(content->get<std::string>());
      } else if (line.rfind("desk: not sent", 0) == 0) {
        ++deskFailed;
      }
    }
    std::map<std::string, int> inHistory;
    int historySent = 0, historyFailed = 0, historyPending = 0;
    for (const auto& line : linesOf(historyLog)) {
      std::istringstream words(line);
      std::string kind, id;
      int status = 0;
      words >> kind >> id >> status;
      if (kind != "history") continue;
      std::string text;
      std::getline(words, text);
      if (!text.empty() && text[0] == ' ') text.erase(0, 1);
      if (text.rfind("You said: ", 0) == 0) {
        ++inHistory[text];
      } else {
        (status == 1 ? historySent : status == 2 ? historyFailed : historyPending)++;
      }
    }
    int answersOnce = 0, answersMissing = 0, answersDoubled = 0, shownTwice = 0, shownNotKept = 0;
    for (const auto& answer : answered) {
      const int n = inHistory.count(answer) ? inHistory[answer] : 0;
      (n == 1 ? answersOnce : n == 0 ? answersMissing : answersDoubled)++;
    }
    for (const auto& [text, n] : shown) {
      if (text.rfind("You said: ", 0) != 0) continue;
      if (n > 1) ++shownTwice;
      if (!inHistory.count(text)) ++shownNotKept;
    }
    std::printf(
        "faults: %d app kills, %d desk restarts, %d desk kills, %d server kills, %d dead links\n"
        "customer runs: %d\n"
        "sends: %zu; reported twice: %d; never reported: %d in killed runs, %d otherwise\n"
        "sent texts in the last history: %d sent, %d failed, %d pending\n"
        "desk answers reported sent: %zu (and %d not sent); in the history once: %d, missing: "
        "%d, twice or more: %d\n"
        "answers shown twice: %d; shown but not in the history: %d\n",
        faults_[0], faults_[1], faults_[2], faults_[3], faults_[4], runs_, sent.size(), doubled,
        unreportedKilled, unreported, historySent, historyFailed, historyPending, answered.size(),
        deskFailed, answersOnce, answersMissing, answersDoubled, shownTwice, shownNotKept);
    const bool exact = doubled == 0 && unreported == 0 && answersMissing == 0 &&
                       answersDoubled == 0 && shownTwice == 0 && shownNotKept == 0 &&
                       historyPending == 0;
    std::printf("%s\n", exact ? "exactly once: yes" : "exactly once: NO");
    return exact ? 0 : 1;
  }

  std::mt19937 random_;
  std::unique_ptr<QuorPrivateServer> server_;
  std::unique_ptr<QuorTcpProxy> proxy_;
  std::unique_ptr<QuorChildProcess> desk_;
  std::unique_ptr<QuorChildProcess> customer_;
  std::string deskUser_, store_, deskLog_, customerLog_, profile_;
  int runs_ = 0;
  std::set<std::string> killedRuns_;
  int faults_[5] = {};
};

int usage() {
  std::fprintf(stderr, "usage: quor-cs-soak [--cycles N] [--seed S]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--customer") {
    return runCustomer(std::atoi(argv[2]), argv[3], argv[4]);
  }
  if (argc == 4 && std::string(argv[1]) == "--history") {
    return printHistory(std::atoi(argv[2]), argv[3]);
  }
  int cycles = 20;
  unsigned seed = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--cycles" && i + 1 < argc) {
      cycles = std::atoi(argv[++i]);
    } else if (argument == "--seed" && i + 1 < argc) {
      seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
    } else {
      return usage();
    }
  }
  Soak soak(seed);
  if (!soak.start()) return 1;
  for (int i = 0; i < cycles; ++i) {
    std::fprintf(stderr, "cycle %d of %d\n", i + 1, cycles);
    if (!soak.cycle()) return 1;
  }
  return soak.finish();
}
