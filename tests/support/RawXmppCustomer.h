// A customer that is only an XMPP connection, for tests of the desk program and its console.
#pragma once

#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "QuorXmppHost/QuorRecentPayloads.h"
#include "QuorXmppHost/QuorXmppConnection.h"

namespace quor::test {

// What it is answered: one copy of each send.
class RawXmppCustomer : private QuorXmppConnection::Events {
 public:
  explicit RawXmppCustomer(QuorXmppOptions options) : connection_(std::move(options), *this) {
    connection_.start();
  }
  QuorXmppConnection& connection() { return connection_; }
  // How often each text was answered.
  std::map<std::string, int> answers() {
    std::lock_guard<std::mutex> lock(mutex_);
    return answers_;
  }
  std::size_t answered() { return answers().size(); }
  // Sends one message of the customer-service wire to `desk`.
  void send(const std::string& desk, const std::string& objectName, const std::string& body) {
    QuorXmppPayload payload;
    payload.peer = desk;
    payload.objectName = objectName;
    payload.body = body;
    connection_.send(std::move(payload), nullptr);
  }

 private:
  void onStatus(QuorXmppConnectionStatus) override {}
  void onLog(int32_t, const std::string&, const std::string&) override {}
  void onPayload(QuorXmppPayload payload) override {
    if (seen_.seenBefore(QuorRecentPayloads::keyOf(payload)) || payload.objectName != "KX:TxtMsg")
      return;
    const auto body = KXDictionary::parse(payload.body.value_or("{}"), nullptr, false);
    std::lock_guard<std::mutex> lock(mutex_);
    ++answers_[body.value("content", "")];
  }

  QuorRecentPayloads seen_;
  std::mutex mutex_;
  std::map<std::string, int> answers_;
  QuorXmppConnection connection_;
};

}  // namespace quor::test
