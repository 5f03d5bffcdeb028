// quor-cs-server: a private XMPP server (Prosody with the stamping module) for scripts and the
// language bindings' tests: quor-cs-server --account USER:PASSWORD [--account ...]
// [--file-share LIMIT] (an HTTP upload service taking files up to LIMIT bytes)
// Prints "quor-cs-server: port N domain D" once it serves, and runs until its standard input
// closes or it gets SIGTERM/SIGINT; then it stops the server and removes its directory.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "QuorPrivateServer/QuorPrivateServer.h"

int main(int argc, char** argv) {
  quor::QuorPrivateServer::Options options;
  const char* usage =
      "usage: quor-cs-server --account USER:PASSWORD [--account ...] [--file-share LIMIT]\n";
  // Arguments come in pairs: --account USER:PASSWORD, --file-share LIMIT.
  for (int i = 1; i < argc; i += 2) {
    const std::string argument = argv[i];
    if (argument == "--help" || argument == "-h") {
      std::printf("%s", usage);
      return 0;
    }
    const std::string value = i + 1 < argc ? argv[i + 1] : "";
    const auto colon = value.find(':');
    if (argument == "--file-share" && !value.empty() &&
        value.find_first_not_of("0123456789") == std::string::npos && value.size() < 12) {
      options.fileShare = true;
      options.fileShareLimit = std::stoull(value);
    } else if (argument == "--account" && colon != std::string::npos && colon != 0) {
      options.accounts[value.substr(0, colon)] = value.substr(colon + 1);
    } else {
      std::fprintf(stderr, "%s", usage);
      return 2;
    }
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  std::string error;
  auto server = quor::QuorPrivateServer::start(options, &error);
  if (!server) {
    std::fprintf(stderr, "quor-cs-server: %s\n", error.c_str());
    return 1;
  }
  std::printf("quor-cs-server: port %d domain %s\n", server->port(), server->domain().c_str());
  std::fflush(stdout);
  // Until stdin closes (the parent went) or a stop signal arrives.
  for (;;) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, 200) > 0) {
      char byte;
      if (::read(STDIN_FILENO, &byte, 1) <= 0) break;
    }
    timespec now{0, 0};
    if (sigtimedwait(&signals, nullptr, &now) > 0) break;
  }
  return 0;
}
