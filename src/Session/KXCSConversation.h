#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Session/KXCSConversationMessage.h"

namespace quor {

// The lines of one service's conversation: numbers them in order and counts the desk's lines
// that the app has not marked read.
//
// Threads: line() and sending() on the main thread; unread() on any.
class KXCSConversation {
 public:
  // The desk's text or notice `message` as a line: written by the agent when `agentServes`,
  // else by the robot; a notice stays a notice. Counts as unread.
  KXCSConversationMessage received(const KXMessage& message, bool agentServes);
  // The customer's line `text`, Sending.
  KXCSConversationMessage sending(std::string text);

  uint64_t unread() const { return unread_.load(); }
  // Sets the unread count to 0; true when it was not 0.
  bool markRead() { return unread_.exchange(0) != 0; }

 private:
  uint64_t lastSequence_ = 0;
  std::atomic<uint64_t> unread_{0};
};

}  // namespace quor
