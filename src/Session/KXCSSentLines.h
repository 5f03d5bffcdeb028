#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "QuorCustomerService/Session/KXCSConversationMessage.h"

namespace quor {

// The customer's lines that are Sent and not yet read by the desk, oldest first: the desk's
// read receipt for one of them marks it and every earlier one Read. At most kKept lines are
// kept (the oldest go first): a desk that never reads costs no more.
//
// Threads: the main thread.
class KXCSSentLines {
 public:
  static constexpr std::size_t kKept = 1000;
  void add(const KXCSConversationMessage& line);
  // The lines a receipt for the message `messageId` makes Read (that line and the earlier
  // ones), oldest first, now with delivery Read; none when no kept line has that id.
  std::vector<KXCSConversationMessage> readUpTo(int64_t messageId);

 private:
  std::deque<KXCSConversationMessage> lines_;
};

}  // namespace quor
