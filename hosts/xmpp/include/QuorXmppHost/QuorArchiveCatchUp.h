#pragma once

#include <string>

#include "QuorXmppHost/QuorXmppPayload.h"

namespace quor {

// Reading what an account missed from its server's archive (XEP-0313) at every login: after the
// archive id of the last message it took (its place, which the caller keeps), page by page, up
// to where the messages that came live begin; and which received message moves the place on.
// A place the caller never had means nothing to catch up: the first message sets it.
//
// Threads: one thread at a time, the connection's network thread (its Events).
class QuorArchiveCatchUp {
 public:
  // The connection's status changed: once online, the archive id to read after (the caller's
  // place), or "" when there is nothing to read.
  std::string onStatus(QuorXmppConnectionStatus status, const std::string& place);
  // A received payload: whether its archive id becomes the place (the archive is read in order;
  // a live message moves the place only once caught up, since it may pass unread ones).
  bool onPayload(const QuorXmppPayload& payload);
  // The end of a page: the archive id to read after next, or "" when caught up.
  std::string onArchiveEnd(bool complete, const std::string& lastId);
  bool catchingUp() const { return catchingUp_; }

 private:
  // A new session may hand over the offline store right after its presence, before it counts as
  // online: those are live messages, so catching up starts with the link, not with the login.
  bool catchingUp_ = true;
  std::string liveFrom_;  // the archive id of the first live message while catching up
  bool reachedLive_ = false;
};

}  // namespace quor
