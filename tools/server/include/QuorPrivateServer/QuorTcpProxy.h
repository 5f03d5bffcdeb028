#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace quor {

// A loopback TCP proxy in front of a server, for tests and soaks that play a bad network: it
// forwards every connection to the target port and can black-hole the link (bytes are read and
// dropped, nothing is closed), hold what the server sends, slip bytes to the client ahead of
// what is held, and drop every connection.
//
// Threads: one thread of its own moves the bytes; every operation may be called from any
// thread.
class QuorTcpProxy {
 public:
  // A proxy on a free loopback port in front of 127.0.0.1:targetPort, or null.
  static std::unique_ptr<QuorTcpProxy> start(int targetPort);
  ~QuorTcpProxy();
  QuorTcpProxy(const QuorTcpProxy&) = delete;
  QuorTcpProxy& operator=(const QuorTcpProxy&) = delete;

  int port() const;
  // Drops every byte in both directions without closing (a dead link), or forwards again.
  void setBlackHole(bool on);
  // Keeps what the server sends to the clients until released (then forwarded in order).
  void holdToClient(bool on);
  // Writes `bytes` to the newest client now, ahead of anything held.
  void injectToClient(const std::string& bytes);
  // Everything the clients sent through the proxy so far.
  std::string fromClients() const;
  // Drops every connection as a server that dies while its clients write: the clients see the
  // end of the stream, then a reset of what they write after it. New connections are still
  // accepted.
  void dropAll();
  // How many connections were accepted so far.
  std::size_t accepted() const;

 private:
  class Loop;
  explicit QuorTcpProxy(std::unique_ptr<Loop> loop);
  std::unique_ptr<Loop> loop_;
};

}  // namespace quor
