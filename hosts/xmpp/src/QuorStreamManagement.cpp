#include "QuorStreamManagement.h"

#include <iterator>

namespace quor {

void QuorStreamManagement::enabled(std::string resumeId) {
  enabled_ = true;
  resumeId_ = std::move(resumeId);
  handled_ = 0;
  sentCount_ = 0;
  unacked_.clear();
}

void QuorStreamManagement::forget() {
  enabled_ = false;
  resumeId_.clear();
  handled_ = 0;
  sentCount_ = 0;
  unacked_.clear();
}

void QuorStreamManagement::sent(std::string id, std::string xml) {
  if (!enabled_) return;
  ++sentCount_;
  unacked_.push_back({std::move(id), std::move(xml)});
}

std::vector<std::string> QuorStreamManagement::acknowledged(uint32_t count) {
  // Counts wrap at 2^32: the distance back from the newest tells how many stay unacknowledged.
  const uint32_t stillOpen = sentCount_ - count;
  std::size_t keep = stillOpen;
  if (stillOpen > unacked_.size()) {
    if (stillOpen <= UINT32_MAX / 2) return {};  // an older count
    keep = 0;                                    // beyond what was sent
  }
  std::vector<std::string> ids;
  while (unacked_.size() > keep) {
    if (!unacked_.front().id.empty()) ids.push_back(std::move(unacked_.front().id));
    unacked_.pop_front();
  }
  return ids;
}

std::vector<QuorStreamManagement::Stanza> QuorStreamManagement::resumed(
    uint32_t count, std::vector<std::string>* acknowledgedIds) {
  *acknowledgedIds = acknowledged(count);
  std::vector<Stanza> again(std::make_move_iterator(unacked_.begin()),
                            std::make_move_iterator(unacked_.end()));
  unacked_.clear();
  sentCount_ = count;
  return again;
}

}  // namespace quor
