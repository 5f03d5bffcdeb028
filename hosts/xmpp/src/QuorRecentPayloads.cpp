#include "QuorXmppHost/QuorRecentPayloads.h"

#include <functional>

namespace quor {

std::string QuorRecentPayloads::keyOf(const QuorXmppPayload& payload) {
  if (payload.stanzaId.empty()) return "";
  const std::size_t contents =
      std::hash<std::string>{}(payload.objectName + '\0' + payload.body.value_or(""));
  return payload.peer + " " + payload.stanzaId + " " + std::to_string(contents);
}

bool QuorRecentPayloads::seenBefore(const std::string& key) {
  if (key.empty()) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  if (!seen_.insert(key).second) return true;
  order_.push_back(key);
  if (order_.size() > capacity_) {
    seen_.erase(order_.front());
    order_.pop_front();
  }
  return false;
}

}  // namespace quor
