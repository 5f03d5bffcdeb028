#include "Session/KXCSSentLines.h"

#include <algorithm>

namespace quor {

void KXCSSentLines::add(const KXCSConversationMessage& line) {
  if (line.messageId == 0) return;  // a receipt could never name it
  lines_.push_back(line);
  if (lines_.size() > kKept) lines_.pop_front();
}

std::vector<KXCSConversationMessage> KXCSSentLines::readUpTo(int64_t messageId) {
  const auto last = std::find_if(lines_.begin(), lines_.end(), [messageId](const auto& line) {
    return line.messageId == messageId;
  });
  if (last == lines_.end()) return {};
  std::vector<KXCSConversationMessage> read(lines_.begin(), last + 1);
  lines_.erase(lines_.begin(), last + 1);
  for (auto& line : read) line.delivery = KXCSDelivery::Read;
  return read;
}

}  // namespace quor
