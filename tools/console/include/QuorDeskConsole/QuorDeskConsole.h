#pragma once

#include <memory>
#include <string>
#include <thread>

#include "QuorDeskConsole/QuorConsoleBoard.h"
#include "QuorXmppDesk/QuorXmppDesk.h"

namespace httplib {
class Server;
}

namespace quor {

// The agent console: a web page, served beside the desk's XMPP login, through which people act
// as the desk's agents. It makes the desk's sessions served by people (the robot keeps
// answering until an agent takes a customer), keeps a QuorConsoleBoard of what happens, and
// serves the page, its API and a live event stream (Server-Sent Events) on one address.
//
// Every request needs the console's token (the `token` query parameter or the X-Quor-Token
// header): the page is opened through link(). Only the given address is bound.
//
// Threads: start() and stop() on the owner's thread; the HTTP server runs on its own threads.
// The desk's network thread feeds the board: stop the desk before destroying the console.
class QuorDeskConsole {
 public:
  struct Options {
    std::string address = "127.0.0.1";
    int port = 0;       // 0: a free port
    std::string token;  // empty: a random one
    QuorConsoleBoard::Limits limits;
  };
  QuorDeskConsole(QuorXmppDesk& desk, Options options);
  ~QuorDeskConsole();
  QuorDeskConsole(const QuorDeskConsole&) = delete;
  QuorDeskConsole& operator=(const QuorDeskConsole&) = delete;

  // Binds the address and serves; false with the reason when it cannot.
  bool start(std::string* error);
  void stop();

  int port() const { return port_; }
  const std::string& token() const { return options_.token; }
  // "http://ADDRESS:PORT/?token=TOKEN": what a person opens.
  std::string link() const;
  QuorConsoleBoard& board() { return board_; }

 private:
  void routes();
  // An agent's action on a customer's session: "" when done, else why not.
  std::string act(const KXDictionary& request);

  QuorXmppDesk& desk_;
  Options options_;
  QuorConsoleBoard board_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace quor
