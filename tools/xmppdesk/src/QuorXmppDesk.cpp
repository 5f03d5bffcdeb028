#include "QuorXmppDesk/QuorXmppDesk.h"

#include <iterator>
#include <nlohmann/json.hpp>

#include "QuorXmppHost/QuorDeskJid.h"

namespace quor {

QuorXmppDesk::QuorXmppDesk(KXDictionary profile, QuorXmppOptions options, Limits limits)
    : profile_(std::move(profile)),
      limits_(limits),
      connection_(std::make_unique<QuorXmppConnection>(
          std::move(options), static_cast<QuorXmppConnection::Events&>(*this))) {}

QuorXmppDesk::~QuorXmppDesk() {
  // The network thread ends first: it reads the connection while it serves.
  connection_->stop();
  connection_.reset();
}

void QuorXmppDesk::start() { connection_->start(); }

void QuorXmppDesk::stop() { connection_->stop(); }

bool QuorXmppDesk::waitUntilOnline(std::chrono::milliseconds timeout) const {
  return connection_->waitUntilOnline(timeout);
}

void QuorXmppDesk::setLogSink(LogSink sink, int32_t maxLevel) {
  std::lock_guard<std::mutex> lock(mutex_);
  logSink_ = std::move(sink);
  logMaxLevel_ = maxLevel;
}

void QuorXmppDesk::servedByPeople(PeopleWatch watch) {
  std::lock_guard<std::mutex> lock(mutex_);
  peopleWatch_ = std::move(watch);
  for (auto& [jid, session] : sessions_) watchByPeople(*session.desk, jid);
}

void QuorXmppDesk::watchByPeople(QuorDeskSimulator& desk, const std::string& customerJid) {
  if (!peopleWatch_) {
    desk.servedByPeople(nullptr);
    return;
  }
  desk.servedByPeople(
      [watch = peopleWatch_, customerJid](const QuorWireMessage& message, bool fromCustomer) {
        watch(customerJid, message, fromCustomer);
      });
}

std::size_t QuorXmppDesk::customerCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.size();
}

std::shared_ptr<QuorDeskSimulator> QuorXmppDesk::sessionOf(const std::string& customerJid) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = sessions_.find(customerJid);
  return it == sessions_.end() ? nullptr : it->second.desk;
}

std::shared_ptr<QuorDeskSimulator> QuorXmppDesk::sessionFor(const std::string& customerJid) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  const auto found = sessions_.find(customerJid);
  if (found != sessions_.end()) {
    // The most recently active goes last.
    byActivity_.splice(byActivity_.end(), byActivity_, found->second.inOrder);
    found->second.lastActive = now;
    forgetOld(now);
    return found->second.desk;
  }
  auto desk = QuorDeskSimulator::fromProfile(profile_, nullptr);
  if (!desk) return nullptr;
  QuorXmppConnection* connection = connection_.get();
  desk->attach([this, connection, customerJid](QuorWireMessage message) {
    QuorXmppPayload payload;
    payload.peer = customerJid;
    payload.objectName = std::move(message.objectName);
    payload.body = std::move(message.body);
    payload.sender = message.senderUserId.value_or("");
    // Each send's outcome is logged at level 5, for tools that count what the desk said; the
    // line is made only when someone reads that level.
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (logMaxLevel_ < 5 || !logSink_) {
        connection->send(std::move(payload), nullptr);
        return;
      }
    }
    std::string line = payload.objectName + " to " + customerJid + ": " + payload.body.value_or("");
    connection->send(std::move(payload), [this, line](int64_t errorCode, int64_t) {
      onLog(5, "desk",
            (errorCode == 0 ? "sent " : "not sent (" + std::to_string(errorCode) + ") ") + line);
    });
  });
  watchByPeople(*desk, customerJid);
  byActivity_.push_back(customerJid);
  sessions_[customerJid] = {desk, now, std::prev(byActivity_.end())};
  forgetOld(now);
  return desk;
}

void QuorXmppDesk::forgetOld(std::chrono::steady_clock::time_point now) {
  while (!byActivity_.empty()) {
    const auto oldest = sessions_.find(byActivity_.front());
    if (sessions_.size() <= limits_.maxSessions &&
        now - oldest->second.lastActive < limits_.idleSession) {
      return;
    }
    sessions_.erase(oldest);
    byActivity_.pop_front();
  }
}

void QuorXmppDesk::onStatus(QuorXmppConnectionStatus status) {
  onLog(4, "desk", "connection status " + std::to_string(static_cast<int64_t>(status)));
}

void QuorXmppDesk::onPayload(QuorXmppPayload payload) {
  // A customer's send written again (a retry, a resend after a lost link, its next run) is
  // answered once.
  if (recent_.seenBefore(QuorRecentPayloads::keyOf(payload))) return;
  auto session = sessionFor(payload.peer);
  if (!session) return;
  QuorWireMessage message;
  message.objectName = std::move(payload.objectName);
  message.targetId = session->deskId();
  message.senderUserId = QuorDeskJid::fromJid(payload.peer, connection_->domain());
  message.body = std::move(payload.body);
  message.sentTime = payload.stamp;
  message.offline = payload.offline;
  session->onMessageFromClient(message);
}

void QuorXmppDesk::onLog(int32_t level, const std::string& area, const std::string& text) {
  LogSink sink;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (level > logMaxLevel_) return;
    sink = logSink_;
  }
  if (sink) sink(level, area + ": " + text);
}

}  // namespace quor
