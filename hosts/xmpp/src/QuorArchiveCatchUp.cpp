#include "QuorXmppHost/QuorArchiveCatchUp.h"

namespace quor {

std::string QuorArchiveCatchUp::onStatus(QuorXmppConnectionStatus status,
                                         const std::string& place) {
  if (status != QuorXmppConnectionStatus::Connected) {
    catchingUp_ = true;
    liveFrom_.clear();
    reachedLive_ = false;
    return "";
  }
  if (place.empty()) catchingUp_ = false;
  return place;
}

bool QuorArchiveCatchUp::onPayload(const QuorXmppPayload& payload) {
  if (payload.archiveId.empty()) return false;
  if (catchingUp_) {
    if (!payload.archived && liveFrom_.empty()) liveFrom_ = payload.archiveId;
    if (payload.archived && payload.archiveId == liveFrom_) reachedLive_ = true;
  }
  return payload.archived || !catchingUp_;
}

std::string QuorArchiveCatchUp::onArchiveEnd(bool complete, const std::string& lastId) {
  // It ends where the live messages begin: past them the archive holds only what was taken.
  if (!complete && !reachedLive_ && !lastId.empty()) return lastId;
  catchingUp_ = false;
  return "";
}

}  // namespace quor
