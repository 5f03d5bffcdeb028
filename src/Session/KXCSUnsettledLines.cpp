#include "Session/KXCSUnsettledLines.h"

namespace quor {

void KXCSUnsettledLines::add(const KXCSConversationMessage& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_[line.sequence] = Unsettled{line, 0, false};
}

bool KXCSUnsettledLines::settle(uint64_t sequence, uint64_t attempt, bool sent, bool unconfirmed,
                                int64_t value, int64_t messageId, Change* change) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = lines_.find(sequence);
  if (it == lines_.end()) return false;
  Unsettled& line = it->second;
  if (!sent && attempt != line.attempt) return false;  // a newer attempt reports for the line
  if (messageId != 0) line.message.messageId = messageId;
  const KXCSDelivery before = line.message.delivery;
  if (sent) {
    line.message.delivery = KXCSDelivery::Sent;
    line.message.errorCode = 0;
  } else {
    line.message.delivery = unconfirmed ? KXCSDelivery::Unconfirmed : KXCSDelivery::Failed;
    line.message.errorCode = value;
    change->resendNow = unconfirmed && !line.resentByItself && line.message.messageId != 0;
    if (change->resendNow) {
      line.resentByItself = true;
      change->resendAttempt = ++line.attempt;
    }
  }
  change->line = line.message;
  // Still unconfirmed after its own resend: nothing new to tell.
  change->changed = change->line.delivery != before;
  if (sent) lines_.erase(it);
  return true;
}

bool KXCSUnsettledLines::beginRetry(uint64_t sequence, KXCSConversationMessage* before,
                                    uint64_t* attempt) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = lines_.find(sequence);
  if (it == lines_.end() || it->second.message.delivery == KXCSDelivery::Sending) return false;
  *before = it->second.message;
  it->second.message.delivery = KXCSDelivery::Sending;
  it->second.message.errorCode = 0;
  *attempt = ++it->second.attempt;
  return true;
}

void KXCSUnsettledLines::undoRetry(const KXCSConversationMessage& before) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = lines_.find(before.sequence);
  if (it != lines_.end()) it->second.message = before;
}

}  // namespace quor
