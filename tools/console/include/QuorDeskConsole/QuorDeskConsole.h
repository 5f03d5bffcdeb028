#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "QuorDeskConsole/QuorConsoleAgents.h"
#include "QuorDeskConsole/QuorConsoleBoard.h"
#include "QuorXmppDesk/QuorXmppDesk.h"

namespace httplib {
class Server;
struct Request;
}  // namespace httplib

namespace quor {

// The agent console: a web page, served beside the desk's XMPP login, through which the desk's
// agents serve its customers. It makes the desk's sessions served by people (the robot keeps
// answering until an agent takes a customer), keeps a QuorConsoleBoard of what happens (from the
// desk's store at start, then live), and serves the page, its API and a live event stream
// (Server-Sent Events) on one address; only that address is bound.
//
// Agents log in with their name and password (QuorConsoleAgents); the session is an HttpOnly,
// SameSite=Strict cookie. Every API request needs it, and the desk checks every action against
// the agent who is logged in: one agent wins a Take, and only the agent who took a customer acts
// on them. A state-changing request must come from the console's own page (its Origin, when
// sent, is the console's) and carry JSON: another page on the same machine can neither read
// nor act. A desk without agents prints a one-time link that makes the first one (setupLink()).
//
// Bounds: a request is read within Options::readTimeout, its body is at most 64 KiB (a file an
// agent attaches: what the server's upload service takes, at most 25 MiB), at most
// Options::eventStreams pages follow the live stream at once (a browser's tabs share one), and
// a closed page's stream ends within 5 s.
//
// Threads: start() and stop() on the owner's thread; the HTTP server runs on its own threads.
// The desk's steps feed the board: stop the desk before destroying the console. Make the console
// after the desk's keepStateIn(): its agents live in the desk's store.
class QuorDeskConsole {
 public:
  struct Options {
    std::string address = "127.0.0.1";
    int port = 0;  // 0: a free port
    QuorConsoleBoard::Limits limits;
    std::chrono::seconds readTimeout{2};
    std::size_t eventStreams = 16;
    // The desk's canned replies: a text file, one reply per line ("{name}" becomes the
    // customer's name in the page; empty lines and lines starting with # are skipped), read
    // again for every page that loads, so that the desk's owner edits it while the desk runs.
    // "" for none.
    std::string repliesFile;
    // Where a file waits on its way through the console (one an agent attaches, while it goes
    // to the server's upload service; one a page shows, while it is handed out): removed once
    // through; "" for the system's temporary directory.
    std::string uploadDirectory;
  };
  static constexpr std::size_t kMostReplies = 200;
  static constexpr std::size_t kMostSearchResults = 50;
  QuorDeskConsole(QuorXmppDesk& desk, Options options);
  ~QuorDeskConsole();
  QuorDeskConsole(const QuorDeskConsole&) = delete;
  QuorDeskConsole& operator=(const QuorDeskConsole&) = delete;

  // Binds the address and serves; false with the reason when it cannot.
  bool start(std::string* error);
  void stop();

  int port() const { return port_; }
  // "http://ADDRESS:PORT/": what an agent opens.
  std::string link() const;
  // On a desk without agents, the link that makes the first one (once); else "".
  std::string setupLink();
  QuorConsoleBoard& board() { return board_; }
  QuorConsoleAgents& agents() { return agents_; }

 private:
  void routes();
  // The agent logged in on `request` ("" for none).
  std::string agentOf(const httplib::Request& request) const;
  // Why `request` is refused before it is routed ("" when it is not), with the status.
  std::string refusal(const httplib::Request& request, int* status) const;
  // An agent's action on a customer's session: "" when done, else why not.
  std::string act(const std::string& agent, const KXDictionary& request);
  // An agent's note on a customer, and what an agent read: kept by the desk.
  std::string note(const std::string& agent, const std::string& customer, const std::string& text);
  void read(const std::string& agent, const std::string& customer);
  // The serving agent passes the customer to another agent or to a group's wait.
  std::string pass(const std::string& agent, const std::string& customer,
                   const KXDictionary& request);
  // A file the serving agent attaches, its bytes read from the page as they come: checked,
  // put on the server's upload service and sent to the customer. "" when sent, else why not,
  // with the HTTP status.
  std::string attach(
      const httplib::Request& request,
      const std::function<bool(const std::function<bool(const char*, std::size_t)>&)>& read,
      int* status);
  // Options::uploadDirectory, else the system's temporary directory.
  std::string spoolDirectory() const;
  // The canned replies of Options::repliesFile, as they stand now.
  KXDictionary replies() const;
  // The transcripts' lines and customers that hold `words`, newest first.
  KXDictionary search(const std::string& words) const;

  QuorXmppDesk& desk_;
  Options options_;
  QuorConsoleBoard board_;
  QuorConsoleAgents agents_;
  std::atomic<std::size_t> eventStreams_{0};
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace quor
