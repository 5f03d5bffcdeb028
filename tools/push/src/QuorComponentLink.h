// An XMPP component's link to its server (XEP-0114): a TCP connection in the
// jabber:component:accept namespace, the handshake with the shared secret, stanzas both ways, and
// reconnection with backoff after a loss. Loopback or a trusted network only: the protocol has no
// TLS.
//
// Threads: start(), stop() and waitUntilOnline() from one thread; send() from any. The stanza
// and log handlers run on the link's own thread, with no lock held.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QuorXmlElement.h"

namespace quor {

class QuorComponentLink {
 public:
  struct Options {
    std::string server = "127.0.0.1";
    uint16_t port = 5347;
    std::string domain;  // the component's domain, "push.example.com"
    std::string secret;  // the shared secret of the server's configuration
    std::chrono::milliseconds reconnectFirst{200};
    std::chrono::milliseconds reconnectLongest{10000};
    std::size_t maxStanzaBytes = 256 * 1024;
  };
  using StanzaHandler = std::function<void(const QuorXmlElement& stanza)>;
  using LogHandler = std::function<void(const std::string& line)>;

  QuorComponentLink(Options options, StanzaHandler onStanza, LogHandler onLog);
  ~QuorComponentLink();
  QuorComponentLink(const QuorComponentLink&) = delete;
  QuorComponentLink& operator=(const QuorComponentLink&) = delete;

  void start();
  void stop();
  // Writes a stanza once the link is up; stanzas sent while it is down are dropped (a component
  // answers requests, and a request's answer is of no use on another link).
  void send(std::string xml);
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  bool online() const { return online_.load(); }

 private:
  class Network;
  void wake();

  const Options options_;
  StanzaHandler onStanza_;
  LogHandler onLog_;
  std::atomic<bool> online_{false};
  mutable std::mutex mutex_;
  mutable std::condition_variable onlineChanged_;
  std::vector<std::string> outbox_;
  bool stopping_ = false;
  int wakeFd_ = -1;
  std::thread thread_;
};

}  // namespace quor
