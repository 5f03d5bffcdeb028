#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Session/KXCSConversationMessage.h"
#include "QuorCustomerService/Session/KXCSServiceResult.h"

namespace quor {

// The files of a conversation: what sendFile() checks before anything is sent, the transfers
// that run (each with its cancel flag and the last progress told), and the received files that
// downloadFile() may fetch (the newest kKept).
//
// Threads: any; every operation takes the object's own lock (progress comes on host threads).
class KXCSFileLines {
 public:
  static constexpr std::size_t kKept = 1000;
  KXCSFileLines();

  // Checks a file the customer sends against the host's limit (0: no files) and the accepted
  // types; Done with the content to upload (its local path, name, type, size, pixel size).
  KXCSServiceResult prepare(const KXCSFileToSend& file, uint64_t maxBytes,
                            std::shared_ptr<KXFileMessage>* content) const;
  void setAccepted(std::vector<std::string> types);
  std::vector<std::string> accepted() const;

  // A transfer of line `sequence` begins: its cancel flag, or null when one runs already.
  std::shared_ptr<std::atomic<bool>> begin(uint64_t sequence);
  void end(uint64_t sequence);
  // Sets the cancel flag of line `sequence`'s transfer; false when none runs.
  bool cancel(uint64_t sequence);
  // Whether a report of `done` of `total` bytes moves the transfer by a whole percent (or ends
  // it) since the last one told: at most 101 reports per transfer.
  bool progressed(uint64_t sequence, uint64_t done, uint64_t total);

  // A file the desk sent, as line `sequence`.
  void received(uint64_t sequence, std::shared_ptr<const KXFileMessage> content);
  std::shared_ptr<const KXFileMessage> receivedFile(uint64_t sequence) const;

  // The line's file as the observer sees it, and back (a retry uploads it again).
  static KXCSFile lineFile(const KXFileMessage& content);
  static std::shared_ptr<KXFileMessage> contentOf(const KXCSFile& file);

 private:
  struct Transfer {
    std::shared_ptr<std::atomic<bool>> cancel;
    int percent = -1;
  };
  mutable std::mutex mutex_;
  std::vector<std::string> accepted_;
  std::map<uint64_t, Transfer> transfers_;
  std::map<uint64_t, std::shared_ptr<const KXFileMessage>> received_;
  std::deque<uint64_t> receivedOrder_;
};

}  // namespace quor
