#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "QuorXmppHost/QuorPushNotification.h"

namespace quor {

// The push service of a deployment (XEP-0357), run by quor-cs-push: an XMPP component
// (XEP-0114) that takes the notifications the server publishes for a sleeping device, keeps
// those of a message from someone other than the account itself (a desk's answer; never a
// confirmation or the account's own message from another device), counts them per device since
// the app last went to the background, and hands each on as a QuorPushNotification to the sink,
// which relays it to FCM or APNs (the deployer's part).
//
// Threads: start(), stop() and waitUntilOnline() from one thread. The sink and the log run on the
// service's own thread, one call at a time; a slow sink delays the next notification.
class QuorPushService {
 public:
  struct Options {
    std::string server = "127.0.0.1";
    uint16_t port = 5347;
    std::string domain;           // the component's domain, "push.example.com"
    std::string componentSecret;  // the secret the server's configuration gives the component
    // When set, a notification whose registration carries another secret is refused.
    std::string publishSecret;
    // The desks' domain, for their ids; "" takes each sender's own domain.
    std::string deskDomain;
  };
  using Sink = std::function<void(const QuorPushNotification& notification)>;
  using Log = std::function<void(const std::string& line)>;

  QuorPushService(Options options, Sink sink, Log log = nullptr);
  ~QuorPushService();
  QuorPushService(const QuorPushService&) = delete;
  QuorPushService& operator=(const QuorPushService&) = delete;

  // Connects (and reconnects after a loss) until stop().
  void start();
  void stop();
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // Notifications handed to the sink, and those taken and dropped (not a desk's message).
  uint64_t delivered() const;
  uint64_t ignored() const;

 private:
  class Publishes;
  std::unique_ptr<Publishes> publishes_;
};

}  // namespace quor
