// quor-cs-desk: the desk simulator on an XMPP server. It connects as the desk's account and
// serves every customer who writes to it, until SIGINT or SIGTERM, keeping its state in a file.
//
//   QUOR_CS_DESK_PASSWORD=secret quor-cs-desk --jid desk@localhost [--password-file FILE]
//                [--server 127.0.0.1] [--port 5222] [--state FILE] [--profile FILE]
//                [--tls required|disabled] [--trust-self-signed] [--verbose]
//                [--console [ADDRESS:]PORT] [--replies FILE]
//   quor-cs-desk agent add|remove|list [NAME] --jid desk@localhost [--state FILE]
//
// Secrets never come on the command line, where every local user sees them: the desk's
// password comes from QUOR_CS_DESK_PASSWORD or a file, an agent's from QUOR_CS_AGENT_PASSWORD
// or the first line of the standard input. With --console, the desk's agents serve customers in
// a web page served on ADDRESS (default 127.0.0.1) and PORT; the desk prints its link when it
// starts, and on a desk without agents a one-time link that makes the first one.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorInputFile.h"
#include "QuorXmppDesk/QuorXmppDesk.h"
#ifdef QUOR_CS_HAS_CONSOLE
#include "QuorDeskConsole/QuorDeskConsole.h"
#endif

namespace {

// The usage on stderr after `problem` (exit code 2), or on stdout when asked for (0).
int usage(const char* problem) {
  std::FILE* to = problem ? stderr : stdout;
  if (problem) std::fprintf(stderr, "quor-cs-desk: %s\n", problem);
  std::fprintf(to,
               "usage: quor-cs-desk --jid JID [--password-file FILE] [--server HOST] [--port N]\n"
               "                    [--state FILE] [--profile FILE] [--tls required|disabled]\n"
               "                    [--trust-self-signed] [--verbose]\n"
               "                    [--console [ADDRESS:]PORT] [--replies FILE]\n"
               "       quor-cs-desk agent add|remove|list [NAME] --jid JID [--state FILE]\n"
               "The desk's password comes from QUOR_CS_DESK_PASSWORD or --password-file, an\n"
               "agent's from QUOR_CS_AGENT_PASSWORD or the first line of the standard input.\n");
  return problem ? 2 : 0;
}

#ifdef QUOR_CS_HAS_CONSOLE
// The profile's `files.answer.path` (relative to the profile's directory): put on the server
// once the desk is online, and sent back for every customer's file.
void answerFilesFromProfile(quor::QuorXmppDesk& desk, const quor::KXDictionary& profile,
                            const std::string& profilePath) {
  const quor::KXDictionary* at = &profile;
  for (const char* key : {"files", "answer", "path"}) {
    if (!at->is_object() || !at->contains(key)) return;
    at = &(*at)[key];
  }
  if (!at->is_string() || at->get<std::string>().empty()) return;
  const std::string path = at->get<std::string>();
  const auto resolved = std::filesystem::path(profilePath).parent_path() / path;
  const std::string failed = desk.answerFilesWith(resolved.string());
  if (failed.empty()) {
    std::fprintf(stderr, "quor-cs-desk: a customer's file is answered with %s\n", resolved.c_str());
  } else {
    std::fprintf(stderr, "quor-cs-desk: cannot answer files with %s: %s\n", resolved.c_str(),
                 failed.c_str());
  }
}

// quor-cs-desk agent add|remove|list: the desk's agents in its state file.
int manageAgents(const std::string& command, const std::string& name, const std::string& state,
                 const std::string& jid) {
  std::string error;
  auto store = quor::QuorXmppDesk::openState(state, jid, &error);
  if (!store) {
    std::fprintf(stderr, "quor-cs-desk: %s\n", error.c_str());
    return 1;
  }
  quor::QuorConsoleAgents agents(*store);
  if (command == "list") {
    for (const auto& agent : agents.names()) std::printf("%s\n", agent.c_str());
    return 0;
  }
  if (name.empty()) return usage(("agent " + command + " needs a NAME").c_str());
  if (command == "remove") {
    if (agents.remove(name)) return 0;
    std::fprintf(stderr, "quor-cs-desk: no agent %s\n", name.c_str());
    return 1;
  }
  if (command != "add") return usage(("unknown agent command " + command).c_str());
  std::string password;
  if (const char* given = std::getenv("QUOR_CS_AGENT_PASSWORD")) {
    password = given;
  } else {
    char line[1024];
    if (std::fgets(line, sizeof line, stdin)) password = line;
    password = password.substr(0, password.find_first_of("\r\n"));
  }
  const std::string problem = agents.add(name, password);
  if (problem.empty()) return 0;
  std::fprintf(stderr, "quor-cs-desk: %s\n", problem.c_str());
  return 1;
}
#endif

}  // namespace

int main(int argc, char** argv) {
  using namespace quor;
  QuorXmppOptions options;
  std::string profilePath, statePath, passwordFile;
  bool verbose = false;
  std::string console, repliesFile;
  std::string agentCommand, agentName;
  int first = 1;
  if (argc > 2 && std::string(argv[1]) == "agent") {
    agentCommand = argv[2];
    first = 3;
    if (agentCommand != "list" && argc > 3 && argv[3][0] != '-') agentName = argv[first++];
  }
  for (int i = first; i < argc; ++i) {
    const std::string argument = argv[i];
    const bool hasValue = i + 1 < argc;
    if (argument == "--help" || argument == "-h") return usage(nullptr);
    if (argument == "--jid" && hasValue) {
      options.jid = argv[++i];
    } else if (argument == "--password" || argument == "--console-token") {
      return usage(
          (argument + " is gone: every local user sees the command line; see below").c_str());
    } else if (argument == "--password-file" && hasValue) {
      passwordFile = argv[++i];
    } else if (argument == "--state" && hasValue) {
      statePath = argv[++i];
    } else if (argument == "--server" && hasValue) {
      options.server = argv[++i];
    } else if (argument == "--port" && hasValue) {
      const long port = std::strtol(argv[++i], nullptr, 10);
      if (port <= 0 || port > 65535) return usage("--port takes a number from 1 to 65535");
      options.port = static_cast<uint16_t>(port);
    } else if (argument == "--profile" && hasValue) {
      profilePath = argv[++i];
    } else if (argument == "--tls" && hasValue) {
      const std::string mode = argv[++i];
      if (mode == "required") {
        options.tls = QuorXmppOptions::Tls::Required;
      } else if (mode == "disabled") {
        options.tls = QuorXmppOptions::Tls::Disabled;
      } else {
        return usage("--tls takes required or disabled");
      }
    } else if (argument == "--trust-self-signed") {
      options.trustSelfSignedCertificate = true;
    } else if (argument == "--verbose") {
      verbose = true;
    } else if (argument == "--console" && hasValue) {
      console = argv[++i];
    } else if (argument == "--replies" && hasValue) {
      repliesFile = argv[++i];
    } else {
      return usage(("unknown argument " + argument).c_str());
    }
  }
  std::string error;
#ifdef QUOR_CS_HAS_CONSOLE
  if (!agentCommand.empty()) {
    if (options.jid.empty()) return usage("agent: --jid names the desk whose agents these are");
    return manageAgents(agentCommand, agentName,
                        statePath.empty() ? QuorXmppDesk::defaultStatePath(options.jid) : statePath,
                        options.jid);
  }
#endif
  if (!agentCommand.empty()) return usage("this build has no agent console");
  if (!quor::QuorInputFile::secret("QUOR_CS_DESK_PASSWORD", passwordFile, &options.password,
                                   &error)) {
    std::fprintf(stderr, "quor-cs-desk: %s\n", error.c_str());
    return 2;
  }
  if (options.jid.empty() || options.password.empty())
    return usage("--jid and a password (QUOR_CS_DESK_PASSWORD or --password-file) are required");

  KXDictionary profile = QuorDeskSimulator::defaultProfile();
  if (!profilePath.empty()) {
    auto desk = QuorDeskSimulator::fromFile(profilePath, &error);
    if (!desk) {
      std::fprintf(stderr, "quor-cs-desk: %s\n", error.c_str());
      return 2;
    }
    profile = desk->profile();
  }

  // The signals are taken by sigwait() below, on this thread only.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  QuorXmppDesk desk(profile, options);
  if (statePath.empty()) statePath = QuorXmppDesk::defaultStatePath(options.jid);
  if (!desk.keepStateIn(statePath, &error)) {
    std::fprintf(stderr, "quor-cs-desk: cannot keep the desk's state: %s\n", error.c_str());
    return 1;
  }
  std::fprintf(stderr, "quor-cs-desk: state in %s\n", statePath.c_str());
  desk.setLogSink(
      [](int32_t, const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); },
      verbose ? 5 : 3);
#ifdef QUOR_CS_HAS_CONSOLE
  std::unique_ptr<QuorDeskConsole> agents;
  if (!console.empty()) {
    QuorDeskConsole::Options consoleOptions;
    // [ADDRESS:]PORT, the address possibly in brackets (IPv6).
    const auto colon = console.rfind(':');
    std::string port = console;
    if (colon != std::string::npos) {
      consoleOptions.address = console.substr(0, colon);
      if (consoleOptions.address.size() > 1 && consoleOptions.address.front() == '[')
        consoleOptions.address =
            consoleOptions.address.substr(1, consoleOptions.address.size() - 2);
      port = console.substr(colon + 1);
    }
    const long number = std::strtol(port.c_str(), nullptr, 10);
    if (number < 0 || number > 65535 || port.empty())
      return usage("--console takes [ADDRESS:]PORT, PORT from 0 to 65535");
    consoleOptions.port = static_cast<int>(number);
    // The canned replies: the given file, else STATE-FILE.replies.txt beside the state.
    consoleOptions.repliesFile = repliesFile.empty() ? statePath + ".replies.txt" : repliesFile;
    consoleOptions.uploadDirectory = statePath + ".uploads";
    agents = std::make_unique<QuorDeskConsole>(desk, consoleOptions);
    if (!agents->start(&error)) {
      std::fprintf(stderr, "quor-cs-desk: %s\n", error.c_str());
      return 1;
    }
    std::fprintf(stderr, "quor-cs-desk: agent console at %s\n", agents->link().c_str());
    const std::string setup = agents->setupLink();
    if (!setup.empty()) {
      std::fprintf(stderr, "quor-cs-desk: no agents yet: the first one signs up at %s\n",
                   setup.c_str());
    }
  }
#else
  if (!console.empty()) return usage("this build has no agent console (no cpp-httplib)");
#endif
  desk.start();
  if (!desk.waitUntilOnline(std::chrono::seconds(10))) {
    std::fprintf(stderr, "quor-cs-desk: cannot log in as %s (still trying)\n", options.jid.c_str());
  } else {
    std::fprintf(stderr, "quor-cs-desk: serving as %s\n", options.jid.c_str());
    answerFilesFromProfile(desk, profile, profilePath);
  }
  int received = 0;
  sigwait(&signals, &received);
  // The desk's network thread ends first: it feeds the console's board.
  desk.stop();
#ifdef QUOR_CS_HAS_CONSOLE
  if (agents) agents->stop();
#endif
  std::fprintf(stderr, "quor-cs-desk: stopped after serving %zu customers\n", desk.customerCount());
  return 0;
}
