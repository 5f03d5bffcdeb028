#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_set>

#include "QuorXmppHost/QuorXmppPayload.h"

namespace quor {

// The received payloads taken lately, so that a second copy of one send is taken once: copies
// come from resends after a lost link, the offline store, and a send written again under its
// id (by a retry, or by the sender's next run). A copy has the same sender, the same origin
// id (or stanza id) and the same contents; the server's stamp is not part of it, since a send
// written again on a new session is stamped anew. Ids are random, so a new message never
// matches. A payload without an id is always taken. Remembers the last `capacity` keys.
//
// Threads: every operation may be called from any thread.
class QuorRecentPayloads {
 public:
  explicit QuorRecentPayloads(std::size_t capacity = 8192) : capacity_(capacity) {}

  // The key that makes `payload` the same as another; "" for a payload without an id.
  static std::string keyOf(const QuorXmppPayload& payload);
  // Whether a payload with this key (keyOf()) was taken before; remembers it when not. A key
  // of "" is never seen before.
  bool seenBefore(const std::string& key);

 private:
  const std::size_t capacity_;
  std::mutex mutex_;
  std::unordered_set<std::string> seen_;
  std::deque<std::string> order_;
};

}  // namespace quor
