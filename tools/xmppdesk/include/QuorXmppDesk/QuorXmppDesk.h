#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorXmppHost/QuorXmppConnection.h"

namespace quor {

// The desk simulator on an XMPP server: connected as the desk's account, it serves many
// customers at once, one desk session (a QuorDeskSimulator made from the profile) per customer
// JID, answering each on the same wire as QuorXmppHost speaks.
//
// Threads: the customers' messages are handled, and the desk's answers queued, on the
// connection's "network" thread (the simulator never blocks). The other functions may be
// called from any thread.
class QuorXmppDesk : private QuorXmppConnection::Events {
 public:
  using LogSink = std::function<void(int32_t level, const std::string& text)>;

  QuorXmppDesk(KXDictionary profile, QuorXmppOptions options);
  ~QuorXmppDesk() override;

  void start();
  void stop();
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // Entries up to `maxLevel` (2 errors, 4 information) go to `sink`; none by default.
  void setLogSink(LogSink sink, int32_t maxLevel);

  // How many customers the desk has served; the session of one customer (null when none).
  std::size_t customerCount() const;
  std::shared_ptr<QuorDeskSimulator> sessionOf(const std::string& customerJid) const;

 private:
  void onStatus(QuorXmppConnectionStatus status) override;
  void onPayload(QuorXmppPayload payload) override;
  void onLog(int32_t level, const std::string& area, const std::string& text) override;
  std::shared_ptr<QuorDeskSimulator> sessionFor(const std::string& customerJid);

  const KXDictionary profile_;
  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<QuorDeskSimulator>> sessions_;
  LogSink logSink_;
  int32_t logMaxLevel_ = 0;
  std::unique_ptr<QuorXmppConnection> connection_;
};

}  // namespace quor
