#include "QuorXmppHost/QuorArchiveCatchUp.h"

namespace quor {

std::optional<std::string> QuorArchiveCatchUp::onStatus(QuorXmppConnectionStatus status,
                                                        const std::string& place) {
  if (status != QuorXmppConnectionStatus::Connected) {
    catchingUp_ = true;
    return std::nullopt;
  }
  if (place.empty() && !fromTheStart_) {
    catchingUp_ = false;
    return std::nullopt;
  }
  return place;
}

bool QuorArchiveCatchUp::onPayload(const QuorXmppPayload& payload) {
  if (payload.archiveId.empty()) return false;
  return payload.archived || !catchingUp_;
}

std::optional<std::string> QuorArchiveCatchUp::onArchiveEnd(bool complete,
                                                            const std::string& lastId) {
  // Only the server's "complete" ends it: a message that came live says nothing of what lies
  // between it and the place (the server may hand over an old, queued one first).
  if (!complete && !lastId.empty()) return lastId;
  catchingUp_ = false;
  return std::nullopt;
}

}  // namespace quor
