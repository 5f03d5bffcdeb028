#pragma once

#include <optional>
#include <string>

#include "QuorXmppHost/QuorXmppPayload.h"

namespace quor {

// Reading what an account missed from its server's archive (XEP-0313) at every login: after the
// archive id of the last message it took (its place, which the caller keeps), page by page,
// until the server says the archive is complete; and which received message moves the place on.
// Messages that come live meanwhile are taken too (the caller's duplicate check meets them again
// in the archive), but they move the place only once caught up, since they may pass unread ones.
//
// Without a place: a new device (`fromTheStart`) reads the whole archive, oldest first; a desk
// reads nothing, and the first message sets the place.
//
// Threads: one thread at a time, the connection's network thread (its Events).
class QuorArchiveCatchUp {
 public:
  explicit QuorArchiveCatchUp(bool fromTheStart = false) : fromTheStart_(fromTheStart) {}
  // The connection's status changed: once online, the archive id to read after ("" for the
  // archive's start), or nothing when there is nothing to read.
  std::optional<std::string> onStatus(QuorXmppConnectionStatus status, const std::string& place);
  // A received payload: whether its archive id becomes the place.
  bool onPayload(const QuorXmppPayload& payload);
  // The end of a page: the archive id to read after next, or nothing when caught up.
  std::optional<std::string> onArchiveEnd(bool complete, const std::string& lastId);
  bool catchingUp() const { return catchingUp_; }

 private:
  bool fromTheStart_;
  // A new session may hand over the offline store right after its presence, before it counts as
  // online: those are live messages, so catching up starts with the link, not with the login.
  bool catchingUp_ = true;
};

}  // namespace quor
