// Where quor-cs-push hands each notification: a line of JSON on the standard output, a command
// that reads it on its standard input, or an HTTP POST of it (libcurl). The relay to FCM or APNs
// sits behind the command or the endpoint: it is the deployer's.
//
// Threads: deliver() from one thread at a time (the push service's). The program ignores SIGPIPE,
// so a command that does not read fails its write instead of ending the program.
#pragma once

#include <chrono>
#include <string>

#include "QuorXmppHost/QuorPushNotification.h"

namespace quor {

class QuorPushRelay {
 public:
  enum class Kind { Print, Command, Post };
  struct Options {
    Kind kind = Kind::Print;
    std::string target;  // the command (run by /bin/sh -c) or the URL
    // A command or a POST that takes longer is given up (the command is killed).
    std::chrono::milliseconds timeout{10000};
  };

  explicit QuorPushRelay(Options options);
  ~QuorPushRelay();
  QuorPushRelay(const QuorPushRelay&) = delete;
  QuorPushRelay& operator=(const QuorPushRelay&) = delete;

  // Hands one notification on: true once the command exited with 0 or the endpoint answered
  // 2xx; false with the reason in `error`.
  bool deliver(const QuorPushNotification& notification, std::string* error);

 private:
  bool runCommand(const std::string& json, std::string* error) const;
  bool post(const std::string& json, std::string* error);

  const Options options_;
  void* curl_ = nullptr;  // one easy handle, reused: its connection stays open between POSTs
};

}  // namespace quor
