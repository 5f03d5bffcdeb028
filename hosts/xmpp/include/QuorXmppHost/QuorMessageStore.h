#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"

struct sqlite3;

namespace quor {

// Where a stored message stands on its way out. A received message is Sent.
enum class QuorDeliveryStatus : int32_t {
  Pending = 0,  // handed to the connection, no outcome yet
  Sent = 1,     // confirmed by the server (its sentTime is the server's stamp)
  Failed = 2,   // its send failed: it cannot have arrived
  // Written, but the link went before the server confirmed it: it may have arrived. Written
  // again under its stanza id (by the session, or by the next run), so the desk takes it once.
  Unconfirmed = 3,
};

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
  QuorDeliveryStatus status = QuorDeliveryStatus::Sent;
  std::string stanzaId;  // a sent message's stanza id
};

// The conversations of one account, in one SQLite database in WAL mode: each message once,
// under an id that grows with every insert, with its delivery status. A received message
// carries an origin key (QuorXmppHost's), and a second message with the same key is not
// stored again. The store belongs to the account that first opened it and keeps that
// account's device resource.
//
// A send is stored without waiting for the disk: insertLater() gives it its id at once and
// queues the row, which flush() writes (the host calls it off the app's thread). Every other
// operation writes what is queued first, so a read never misses a queued row and an outcome
// never comes before its message.
//
// Threads: every operation may be called from any thread; one lock orders them.
class QuorMessageStore {
 public:
  struct Options {
    std::string path;        // created when missing; ":memory:" keeps it in memory
    std::string account;     // the bare JID it belongs to
    int64_t limitBytes = 0;  // the largest the database may grow; 0: no limit but the disk's
  };
  // The store, or null with the reason in `error` (it does not open, or it belongs to another
  // account). Messages an earlier process left Pending stay so: see unsent().
  static std::unique_ptr<QuorMessageStore> open(const Options& options, std::string* error);
  ~QuorMessageStore();
  QuorMessageStore(const QuorMessageStore&) = delete;
  QuorMessageStore& operator=(const QuorMessageStore&) = delete;

  enum class Insert { Stored, Duplicate, Failed };
  // Stores `message` (its id is ignored) and sets its id on success. On failure (a full disk,
  // say) lastError() tells why.
  Insert insert(QuorStoredMessage& message, const std::string& originKey = "");
  // Gives `message` the next id and queues it for flush(); returns the id. Costs no disk access.
  int64_t insertLater(QuorStoredMessage message);
  // A queued message that could not be written, and why.
  struct LostWrite {
    QuorStoredMessage message;
    std::string reason;
  };
  // Writes the queued messages; returns those that could not be written (each once, here or
  // from the flush that an earlier operation made).
  std::vector<LostWrite> flush();
  // Removes the message stored under `id` (a received one that a module held after all).
  bool remove(int64_t id);
  // Records a send's outcome: its status and, when sent, the server's stamp.
  bool setOutcome(int64_t id, QuorDeliveryStatus status, int64_t sentTime);
  // One page of a conversation, newest first: at most `count` messages with ids below
  // `beforeId` (0: from the newest).
  std::vector<QuorStoredMessage> page(const std::string& targetId, int64_t beforeId,
                                      int count) const;
  // The sent messages that were still Pending or Unconfirmed when the store opened (left by an
  // earlier run that ended before their outcome), oldest first, with their stanza ids: the
  // host writes them again under the same ids, so that each reaches the desk once.
  std::vector<QuorStoredMessage> unsent() const;
  // The message stored under `id`, if any.
  std::optional<QuorStoredMessage> find(int64_t id) const;
  // The id of the message this account sent under the stanza id `stanzaId`, if any.
  std::optional<int64_t> findSent(const std::string& stanzaId) const;
  // This device's resource for the account: made once, then kept.
  const std::string& deviceResource() const { return deviceResource_; }
  // The archive id of the last message taken (QuorArchiveCatchUp's place); "" before the first.
  // Read from memory: the network thread asks for it at every login.
  std::string archiveMark() const;
  bool setArchiveMark(const std::string& id);
  // What the conversation with `targetId` last said of its service (QuorServiceRecord's note);
  // "" when nothing. Read from memory (loaded at open, written through): the app's main thread
  // asks for it.
  std::string serviceNote(const std::string& targetId) const;
  bool setServiceNote(const std::string& targetId, const std::string& note);
  // Why the newest write failed.
  std::string lastError() const;

 private:
  explicit QuorMessageStore(sqlite3* database) : database_(database) {}
  bool claim(const std::string& account, std::string* error);
  // Under the lock (or before the store is shared): a named value of the facts table.
  std::optional<std::string> fact(const char* name) const;
  bool keep(const char* name, const std::string& value) const;
  // Under the lock: keeps the database's reason for the failed write.
  Insert failed() const;
  // Under the lock: writes one row, under `id` when it is not 0.
  Insert write(QuorStoredMessage& message, const std::string& originKey) const;
  // Under the lock: writes the queued rows, keeping those that fail for flush().
  void writeQueued() const;
  // Under the lock: the messages the clause picks (with a target, an id bound and a count when
  // `targetId` is given).
  std::vector<QuorStoredMessage> read(const char* where, const std::string* targetId,
                                      int64_t beforeId, int count) const;

  mutable std::mutex mutex_;  // the database's
  sqlite3* database_;
  std::string deviceResource_;
  // Written by reads too (they write the queue first): the rows are the logical content.
  mutable std::string lastError_;
  mutable std::vector<LostWrite> lost_;
  // The queue's own lock, held only to give an id or to take the queue, never over the disk:
  // a send waits for no write.
  mutable std::mutex queueMutex_;
  mutable std::vector<QuorStoredMessage> queued_;
  int64_t lastId_ = 0;       // the highest id given, written or queued
  std::string archiveMark_;  // under queueMutex_: the kept place, never read from the disk
  std::unordered_map<std::string, std::string> serviceNotes_;  // under queueMutex_, by target
  std::vector<QuorStoredMessage> unsent_;
};

}  // namespace quor
