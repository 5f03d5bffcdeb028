#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "QuorCustomerService/Session/KXCSConversationMessage.h"

namespace quor {

// The customer's lines that are not Sent yet, by sequence, with the attempt that reports for
// each: what a send's outcome makes of a line, and what retry() may send again.
//
// Threads: any; every operation takes the object's own lock.
class KXCSUnsettledLines {
 public:
  void add(const KXCSConversationMessage& line);

  // What an outcome changed: the line as it stands now, whether the app must hear of it, and
  // whether it goes out once more by itself under its id (as attempt `resendAttempt`).
  struct Change {
    KXCSConversationMessage line;
    bool changed = false;
    bool resendNow = false;
    uint64_t resendAttempt = 0;
  };
  // An outcome of attempt `attempt` of line `sequence`: Sent from any attempt; else the latest
  // attempt's Failed, or Unconfirmed when the host says the message may still arrive, which
  // sends it once more under its id by itself (once per line). False when nothing changes.
  bool settle(uint64_t sequence, uint64_t attempt, bool sent, bool unconfirmed, int64_t value,
              int64_t messageId, Change* change);

  // Marks line `sequence` Sending again for a retry: its state before and the attempt's number.
  // False when the line is unknown or still Sending.
  bool beginRetry(uint64_t sequence, KXCSConversationMessage* before, uint64_t* attempt);
  // Puts a line back as it was before a retry that could not be made.
  void undoRetry(const KXCSConversationMessage& before);

 private:
  struct Unsettled {
    KXCSConversationMessage message;
    uint64_t attempt = 0;
    bool resentByItself = false;
  };
  std::mutex mutex_;
  std::map<uint64_t, Unsettled> lines_;
};

}  // namespace quor
