#pragma once

#include <memory>
#include <string>

#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace quor {

// The demo over XMPP: a private Prosody server started for the run, the desk program
// (quor-cs-desk) as one client of it and the customer's QuorXmppHost as the other. The
// destructor stops the desk and the server and leaves no process behind.
//
// Threads: used from the main thread, which settle() drains.
class QuorXmppDemo {
 public:
  struct Options {
    std::string deskProgram;  // the quor-cs-desk executable
    std::string profilePath;  // "" for the built-in desk
    std::string deskId;
    bool wire = false;  // print every payload that crosses the server
  };
  // A running setup, or null with the reason in `error`.
  static std::unique_ptr<QuorXmppDemo> start(const Options& options, std::string* error);
  ~QuorXmppDemo();

  QuorXmppHost& host() { return *host_; }
  // Runs the main thread until nothing arrived for a moment.
  void settle();

 private:
  QuorXmppDemo() = default;
  bool startDesk(const Options& options, std::string* error);

  std::unique_ptr<QuorPrivateServer> server_;
  std::shared_ptr<QuorXmppHost> host_;
  std::unique_ptr<QuorChildProcess> desk_;
  std::string deskLog_;
};

}  // namespace quor
