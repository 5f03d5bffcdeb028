#pragma once

#include <memory>
#include <string>

#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace quor {

// The demo over XMPP: a private Prosody server started for the run, the desk program
// (quor-cs-desk) as one client of it and the customer's QuorXmppHost as the other; or the
// customer alone on a server and with a desk that run already. The destructor stops what it
// started and leaves no process behind.
//
// Threads: used from the main thread, which settle() drains.
class QuorXmppDemo {
 public:
  struct Options {
    std::string deskProgram;  // the quor-cs-desk executable
    std::string profilePath;  // "" for the built-in desk
    std::string deskId;
    bool wire = false;    // print every payload that crosses the server
    std::string console;  // [ADDRESS:]PORT: the desk serves its agent console there
  };
  // A running setup, or null with the reason in `error`.
  static std::unique_ptr<QuorXmppDemo> start(const Options& options, std::string* error);
  // The customer on an existing server (`account`: its address, JID and password), with the
  // desks of `deskDomain`; null with the reason in `error`.
  static std::unique_ptr<QuorXmppDemo> connect(const QuorXmppOptions& account,
                                               const std::string& deskDomain, bool wire,
                                               std::string* error);
  ~QuorXmppDemo();

  QuorXmppHost& host() { return *host_; }
  // The agent console's link, with its token; "" without a console.
  const std::string& consoleLink() const { return consoleLink_; }
  // Runs the main thread until nothing arrived for a moment.
  void settle();

 private:
  QuorXmppDemo() = default;
  std::string consoleLink_;
  bool startDesk(const Options& options, std::string* error);
  bool startCustomer(const QuorXmppOptions& account, const std::string& deskDomain, bool wire,
                     std::string* error);

  std::unique_ptr<QuorPrivateServer> server_;
  std::shared_ptr<QuorXmppHost> host_;
  std::unique_ptr<QuorChildProcess> desk_;
  std::string deskLog_;
};

}  // namespace quor
