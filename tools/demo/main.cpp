// quor-cs-demo: a customer journey against the desk simulator, printed as a conversation.
//
//   quor-cs-demo                  the scripted journey, in one process (the loopback host)
//   quor-cs-demo --xmpp           the same over a private XMPP server started for the run, with
//                                 the desk program (quor-cs-desk, beside this executable) as the
//                                 other client
//   quor-cs-demo --server HOST:PORT --desk JID --account JID --password PASSWORD
//                                 the same with a server and a desk that run already
//   quor-cs-demo --interactive    a terminal chat with the desk (type /help)
//   quor-cs-demo --profile FILE   another desk profile
//   quor-cs-demo --wire           also print every message that crosses the channel
//   quor-cs-demo --xmpp --interactive --console [ADDRESS:]PORT
//                                 the desk also serves its agent console: a person in the
//                                 browser is the agent while another chats as the customer
//
// Exits 0 when the journey went through, 1 when the service could not start, 2 on bad usage.
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "QuorDemoApp.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"
#include "QuorXmppDemo.h"
#include "QuorXmppHost/QuorDeskJid.h"

namespace {

using namespace quor;

// Prints every message crossing the loopback channel with its body.
class WirePrinter : public QuorLoopbackObserver {
 public:
  void onWire(const QuorWireMessage& message, bool fromClient) override {
    std::printf("    %s %s %s\n", fromClient ? ">>" : "<<", message.objectName.c_str(),
                message.body.value_or("(no body)").c_str());
  }
};

struct Arguments {
  bool interactive = false;
  bool wire = false;
  bool xmpp = false;
  std::string profilePath;
  std::string console;  // [ADDRESS:]PORT of the desk's agent console (with --xmpp)
  // An existing server and desk: all four are given together.
  std::string server;  // HOST:PORT
  std::string deskJid;
  std::string account;
  std::string password;
};

constexpr const char* kUsage =
    "usage: quor-cs-demo [--xmpp [--console [ADDRESS:]PORT]] [--interactive] [--profile FILE]\n"
    "                    [--wire]\n"
    "       quor-cs-demo --server HOST:PORT --desk JID --account JID --password PASSWORD\n"
    "                    [--interactive] [--wire]\n";

std::string domainOf(const std::string& jid) {
  const auto at = jid.find('@');
  return at == std::string::npos ? jid : jid.substr(at + 1, jid.find('/', at) - at - 1);
}

// The chosen profile, which the journey is made from; null for the built-in desk.
const KXDictionary* profileOf(const std::shared_ptr<QuorDeskSimulator>& desk,
                              const Arguments& arguments) {
  return arguments.profilePath.empty() ? nullptr : &desk->profile();
}

int play(QuorDemoApp& app, const Arguments& arguments) {
  return arguments.interactive ? app.runInteractive() : app.runJourney();
}

int runInProcess(const std::shared_ptr<QuorDeskSimulator>& desk, const Arguments& arguments) {
  auto host = std::make_shared<QuorLoopbackHost>();
  host->install();
  if (arguments.wire) host->setObserver(std::make_shared<WirePrinter>());
  host->loadExtensionModule();
  desk->attach(host);
  // Files stay in the host's memory; a download is saved in a directory of this run's own.
  host->setMaxFileBytes(10 * 1024 * 1024);
  std::error_code failed;
  const auto files =
      std::filesystem::temp_directory_path(failed) / ("quor-cs-demo-" + std::to_string(::getpid()));
  host->setFileCacheDirectory(files.string());
  int result;
  {
    QuorDemoApp app(
        desk->deskId(), [&host] { host->settle(); }, profileOf(desk, arguments));
    result = play(app, arguments);
  }
  QuorLoopbackHost::uninstall();
  std::filesystem::remove_all(files, failed);
  return result;
}

// The desk program sits beside this one.
std::string deskProgram() {
  char self[PATH_MAX] = {};
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path = length > 0 ? std::string(self, static_cast<std::size_t>(length)) : "";
  return path.substr(0, path.rfind('/') + 1) + "quor-cs-desk";
}

int runOverXmpp(const std::shared_ptr<QuorDeskSimulator>& desk, const Arguments& arguments) {
  std::string error;
  auto demo = QuorXmppDemo::start(
      {deskProgram(), arguments.profilePath, desk->deskId(), arguments.wire, arguments.console},
      &error);
  if (!demo) {
    std::fprintf(stderr, "quor-cs-demo: %s\n", error.c_str());
    return 1;
  }
  if (!demo->consoleLink().empty()) {
    std::printf(
        "Agent console: %s\n(open it, make yourself an agent with a name and a password, and "
        "take the customer when they ask for an agent)\n",
        demo->consoleLink().c_str());
    std::fflush(stdout);
  }
  QuorDemoApp app(
      desk->deskId(), [&demo] { demo->settle(); }, profileOf(desk, arguments));
  return play(app, arguments);
}

int runAgainstExisting(const Arguments& arguments) {
  QuorXmppOptions account;
  account.jid = arguments.account;
  account.password = arguments.password;
  const auto colon = arguments.server.rfind(':');
  account.server = arguments.server.substr(0, colon);
  account.port = static_cast<uint16_t>(std::atoi(arguments.server.c_str() + colon + 1));
  account.trustSelfSignedCertificate = true;  // a development server's own certificate
  const std::string deskDomain = domainOf(arguments.deskJid);
  std::string error;
  auto demo = QuorXmppDemo::connect(account, deskDomain, arguments.wire, &error);
  if (!demo) {
    std::fprintf(stderr, "quor-cs-demo: %s\n", error.c_str());
    return 1;
  }
  QuorDemoApp app(QuorDeskJid::fromJid(arguments.deskJid, deskDomain), [&demo] { demo->settle(); });
  return play(app, arguments);
}

int usage(const char* problem) {
  std::fprintf(stderr, "quor-cs-demo: %s\n%s", problem, kUsage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--interactive") {
      arguments.interactive = true;
    } else if (arg == "--wire") {
      arguments.wire = true;
    } else if (arg == "--xmpp") {
      arguments.xmpp = true;
    } else if (arg == "--profile" || arg == "--server" || arg == "--desk" || arg == "--account" ||
               arg == "--password" || arg == "--console") {
      if (i + 1 >= argc) return usage((arg + " needs a value").c_str());
      const std::string value = argv[++i];
      (arg == "--profile"   ? arguments.profilePath
       : arg == "--server"  ? arguments.server
       : arg == "--desk"    ? arguments.deskJid
       : arg == "--account" ? arguments.account
       : arg == "--console" ? arguments.console
                            : arguments.password) = value;
    } else if (arg == "--help" || arg == "-h") {
      std::printf("%s", kUsage);
      return 0;
    } else {
      return usage(("unknown option " + arg).c_str());
    }
  }

  const bool existing = !arguments.server.empty() || !arguments.deskJid.empty() ||
                        !arguments.account.empty() || !arguments.password.empty();
  if (existing) {
    const auto colon = arguments.server.rfind(':');
    if (arguments.server.empty() || arguments.deskJid.empty() || arguments.account.empty() ||
        arguments.password.empty())
      return usage("--server, --desk, --account and --password go together");
    if (colon == std::string::npos || colon == 0 ||
        std::atoi(arguments.server.c_str() + colon + 1) <= 0 ||
        std::atoi(arguments.server.c_str() + colon + 1) > 65535)
      return usage("--server takes HOST:PORT");
    if (arguments.xmpp || !arguments.profilePath.empty())
      return usage("--xmpp and --profile start their own desk: not with --server");
    return runAgainstExisting(arguments);
  }

  // A person serves as the agent: the scripted journey would wait for them.
  if (!arguments.console.empty() && (!arguments.xmpp || !arguments.interactive))
    return usage("--console goes with --xmpp --interactive");
  std::string error;
  auto desk = arguments.profilePath.empty()
                  ? QuorDeskSimulator::fromProfile(QuorDeskSimulator::defaultProfile(), &error)
                  : QuorDeskSimulator::fromFile(arguments.profilePath, &error);
  if (!desk) {
    std::fprintf(stderr, "quor-cs-demo: %s\n", error.c_str());
    return 2;
  }
  return arguments.xmpp ? runOverXmpp(desk, arguments) : runInProcess(desk, arguments);
}
