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

// What it is answered (one copy of each send), and the desk's signals.
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
  // The desk's typing and read markers, in order: "typing", "stopped", "read STANZA-ID".
  std::vector<std::string> signals() {
    std::lock_guard<std::mutex> lock(mutex_);
    return signals_;
  }
  // Sends one message of the customer-service wire to `desk` (under `stanzaId` when given).
  void send(const std::string& desk, const std::string& objectName, const std::string& body,
            const std::string& stanzaId = "") {
    QuorXmppPayload payload;
    payload.peer = desk;
    payload.objectName = objectName;
    payload.body = body;
    payload.stanzaId = stanzaId;
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

  void onChatState(const std::string&, bool typing) override {
    std::lock_guard<std::mutex> lock(mutex_);
    signals_.push_back(typing ? "typing" : "stopped");
  }
  void onDisplayed(const std::string&, const std::string& stanzaId) override {
    std::lock_guard<std::mutex> lock(mutex_);
    signals_.push_back("read " + stanzaId);
  }

  QuorRecentPayloads seen_;
  std::mutex mutex_;
  std::map<std::string, int> answers_;
  std::vector<std::string> signals_;
  QuorXmppConnection connection_;
};

}  // namespace quor::test
