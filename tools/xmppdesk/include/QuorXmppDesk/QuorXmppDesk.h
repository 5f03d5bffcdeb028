#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorXmppHost/QuorRecentPayloads.h"
#include "QuorXmppHost/QuorXmppConnection.h"

namespace quor {

// The desk simulator on an XMPP server: connected as the desk's account, it serves many
// customers at once, one desk session (a QuorDeskSimulator made from the profile) per customer
// JID, answering each on the same wire as QuorXmppHost speaks. It runs in bounded memory: a
// session that has heard nothing for Limits::idleSession is forgotten, and beyond
// Limits::maxSessions the least recently active one is; a customer who writes again gets a
// new session.
//
// Threads: the customers' messages are handled, and the desk's answers queued, on the
// connection's "network" thread (the simulator never blocks). The other functions may be
// called from any thread.
class QuorXmppDesk : private QuorXmppConnection::Events {
 public:
  using LogSink = std::function<void(int32_t level, const std::string& text)>;

  struct Limits {
    std::size_t maxSessions = 10000;
    std::chrono::milliseconds idleSession{30 * 60 * 1000};
  };
  QuorXmppDesk(KXDictionary profile, QuorXmppOptions options, Limits limits);
  QuorXmppDesk(KXDictionary profile, QuorXmppOptions options)
      : QuorXmppDesk(std::move(profile), std::move(options), Limits()) {}
  ~QuorXmppDesk() override;

  void start();
  void stop();
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // Entries up to `maxLevel` (2 errors, 4 information) go to `sink`; none by default.
  void setLogSink(LogSink sink, int32_t maxLevel);

  // People serve (the agent console): every session, present and future, reports its messages
  // to `watch` with the customer's JID, and a customer's request for an agent waits for a
  // person (QuorDeskSimulator::servedByPeople()).
  using PeopleWatch = std::function<void(const std::string& customerJid,
                                         const QuorWireMessage& message, bool fromCustomer)>;
  void servedByPeople(PeopleWatch watch);

  // How many customers the desk serves now; the session of one customer (null when none).
  std::size_t customerCount() const;
  std::shared_ptr<QuorDeskSimulator> sessionOf(const std::string& customerJid) const;

 private:
  void onStatus(QuorXmppConnectionStatus status) override;
  void onPayload(QuorXmppPayload payload) override;
  void onLog(int32_t level, const std::string& area, const std::string& text) override;
  std::shared_ptr<QuorDeskSimulator> sessionFor(const std::string& customerJid);
  // Under the lock: has people serve `desk` when they do.
  void watchByPeople(QuorDeskSimulator& desk, const std::string& customerJid);
  // Under the lock: forgets the sessions beyond the limits, least recently active first.
  void forgetOld(std::chrono::steady_clock::time_point now);

  struct Session {
    std::shared_ptr<QuorDeskSimulator> desk;
    std::chrono::steady_clock::time_point lastActive;
    std::list<std::string>::iterator inOrder;
  };

  const KXDictionary profile_;
  const Limits limits_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, Session> sessions_;
  std::list<std::string> byActivity_;  // customer JIDs, least recently active first
  LogSink logSink_;
  int32_t logMaxLevel_ = 0;
  PeopleWatch peopleWatch_;
  QuorRecentPayloads recent_;
  std::unique_ptr<QuorXmppConnection> connection_;
};

}  // namespace quor
