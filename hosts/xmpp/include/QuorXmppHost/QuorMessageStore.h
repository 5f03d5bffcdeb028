#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"

struct sqlite3;

namespace quor {

// One stored message: what a host needs to rebuild its record. A plain value.
struct QuorStoredMessage {
  int64_t id = 0;  // the store's id, which is the host's message id
  int32_t conversationType = 0;
  std::string targetId;  // the conversation: the desk id
  int32_t direction = 0;
  KXString senderUserId;
  std::string objectName;
  KXData body;
  int64_t sentTime = 0;
  int32_t receivedStatus = 0;
};

// The conversations a host keeps, in one SQLite database in WAL mode: each message once, under
// an id that grows with every insert. A received message carries an origin key (its sender
// and stanza id), and a second message with the same key is not stored again.
//
// Threads: every operation may be called from any thread; one lock orders them.
class QuorMessageStore {
 public:
  // The store in the file `path` (created when missing; ":memory:" keeps it in memory), or
  // null with the reason in `error`.
  static std::unique_ptr<QuorMessageStore> open(const std::string& path, std::string* error);
  ~QuorMessageStore();
  QuorMessageStore(const QuorMessageStore&) = delete;
  QuorMessageStore& operator=(const QuorMessageStore&) = delete;

  enum class Insert { Stored, Duplicate, Failed };
  // Stores `message` (its id is ignored) and sets its id on success.
  Insert insert(QuorStoredMessage& message, const std::string& originKey = "");
  bool setSentTime(int64_t id, int64_t sentTime);
  // One page of a conversation, newest first: at most `count` messages with ids below
  // `beforeId` (0: from the newest).
  std::vector<QuorStoredMessage> page(const std::string& targetId, int64_t beforeId,
                                      int count) const;

 private:
  explicit QuorMessageStore(sqlite3* database) : database_(database) {}

  mutable std::mutex mutex_;
  sqlite3* database_;
};

}  // namespace quor
