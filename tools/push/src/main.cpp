// quor-cs-push: the push service of a deployment, an XMPP component of the server that takes the
// notifications the server publishes while a customer's app sleeps, keeps those of a desk's
// message and hands each on, until SIGINT or SIGTERM.
//
//   QUOR_CS_PUSH_SECRET=secret quor-cs-push --domain push.example.com [--server HOST]
//                [--port N] [--secret-file FILE] [--desk-domain DOMAIN]
//                [--command CMD | --post URL]
//
// Each notification is a line of JSON on the standard output, or the standard input of CMD
// (run by /bin/sh -c), or the body of a POST to URL. The component's secret comes from
// QUOR_CS_PUSH_SECRET or the first line of FILE, never the command line; when
// QUOR_CS_PUSH_PUBLISH_SECRET is set, only registrations that carry it are served.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "QuorInputFile.h"
#include "QuorPushRelay.h"
#include "QuorPushService/QuorPushService.h"

namespace {

int usage(const char* problem) {
  std::FILE* to = problem ? stderr : stdout;
  if (problem) std::fprintf(stderr, "quor-cs-push: %s\n", problem);
  std::fprintf(to,
               "usage: quor-cs-push --domain DOMAIN [--server HOST] [--port N]\n"
               "                    [--secret-file FILE] [--desk-domain DOMAIN]\n"
               "                    [--command CMD | --post URL]\n"
               "The component's secret comes from QUOR_CS_PUSH_SECRET or --secret-file.\n");
  return problem ? 2 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  quor::QuorPushService::Options options;
  quor::QuorPushRelay::Options relay;
  std::string secretFile;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--help" || argument == "-h") return usage(nullptr);
    if (i + 1 >= argc) return usage(("missing value after " + argument).c_str());
    const std::string value = argv[++i];
    if (argument == "--domain") {
      options.domain = value;
    } else if (argument == "--server") {
      options.server = value;
    } else if (argument == "--port") {
      const long port = std::strtol(value.c_str(), nullptr, 10);
      if (port <= 0 || port > 65535) return usage("--port takes a number from 1 to 65535");
      options.port = static_cast<uint16_t>(port);
    } else if (argument == "--secret-file") {
      secretFile = value;
    } else if (argument == "--desk-domain") {
      options.deskDomain = value;
    } else if (argument == "--command" || argument == "--post") {
      if (relay.kind != quor::QuorPushRelay::Kind::Print) {
        return usage("give one of --command and --post");
      }
      relay.kind = argument == "--command" ? quor::QuorPushRelay::Kind::Command
                                           : quor::QuorPushRelay::Kind::Post;
      relay.target = value;
    } else {
      return usage(("unknown option " + argument).c_str());
    }
  }
  if (options.domain.empty()) return usage("--domain is needed");
  std::string error;
  if (!quor::QuorInputFile::secret("QUOR_CS_PUSH_SECRET", secretFile, &options.componentSecret,
                                   &error)) {
    std::fprintf(stderr, "quor-cs-push: %s\n", error.c_str());
    return 1;
  }
  if (options.componentSecret.empty()) {
    return usage("no secret: set QUOR_CS_PUSH_SECRET or give --secret-file");
  }
  if (const char* secret = std::getenv("QUOR_CS_PUSH_PUBLISH_SECRET")) {
    options.publishSecret = secret;
  }

  // A command that does not read its notification fails the write instead of ending the program.
  ::signal(SIGPIPE, SIG_IGN);
  // The signals are taken by sigwait() below; every thread inherits the mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  quor::QuorPushRelay out(relay);
  quor::QuorPushService service(
      options,
      [&out](const quor::QuorPushNotification& notification) {
        std::string error;
        if (!out.deliver(notification, &error)) {
          std::fprintf(stderr, "quor-cs-push: a notification for %s was not handed on: %s\n",
                       notification.node.c_str(), error.c_str());
        }
      },
      [](const std::string& line) { std::fprintf(stderr, "quor-cs-push: %s\n", line.c_str()); });
  service.start();
  int signal = 0;
  sigwait(&stopSignals, &signal);
  service.stop();
  std::fprintf(stderr, "quor-cs-push: stopped after %llu notifications\n",
               static_cast<unsigned long long>(service.delivered()));
  return 0;
}
