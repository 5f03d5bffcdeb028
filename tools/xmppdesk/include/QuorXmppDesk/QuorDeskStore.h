#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorXmppHost/QuorXmppPayload.h"

struct sqlite3;

namespace quor {

// What the desk keeps across restarts and kills, in one SQLite file: each customer's desk
// session (its state as JSON), every message of every session both ways (the transcripts,
// ratings and left messages that the console shows), the customers' sends already taken (so
// nothing is answered twice), the desk's answers that the server has not confirmed (the
// outbox), the place in the server's archive up to which everything was taken, and the agents.
// A desk changes it in steps (begin() ... commit()), each stored before the desk acknowledges
// what it received.
//
// Bounded: the newest Limits::records messages (left messages by their own count), the newest
// Limits::seenKept keys, the most recently active Limits::sessions sessions.
//
// Threads: every function may be called from any thread; a step runs on one thread at a time
// (the desk serializes them).
class QuorDeskStore {
 public:
  struct Limits {
    int64_t records = 200000;
    int64_t leftMessages = 500;
    int64_t seenKept = 100000;
    int64_t sessions = 10000;
  };
  // The store at `path` (":memory:" for one that ends with the process) for the desk `account`,
  // or null with the reason: a file of another account is refused.
  static std::unique_ptr<QuorDeskStore> open(const std::string& path, const std::string& account,
                                             Limits limits, std::string* error);
  static std::unique_ptr<QuorDeskStore> open(const std::string& path, const std::string& account,
                                             std::string* error) {
    return open(path, account, Limits(), error);
  }
  ~QuorDeskStore();
  QuorDeskStore(const QuorDeskStore&) = delete;
  QuorDeskStore& operator=(const QuorDeskStore&) = delete;

  // A step: everything written between begin() and commit() is stored together.
  void begin();
  bool commit();
  // The last failure's text ("" when none).
  std::string lastError() const;

  // Whether a customer's send with this key was taken before; remembers it when not. A key of
  // "" is never seen before.
  bool seenBefore(const std::string& key);

  void saveSession(const std::string& customer, const KXDictionary& state);
  std::optional<KXDictionary> session(const std::string& customer) const;

  // One message of a customer's session, as the console shows it.
  struct Record {
    std::string customer;
    int64_t time = 0;  // ms since the epoch
    bool fromCustomer = false;
    std::string objectName;
    KXData body;
    std::string sender;
    std::string agent;  // the person serving when the desk said it (or who wrote a note)
    int64_t stamp = 0;  // a customer's message: the server's (or the sender's) time, 0 if none
  };
  void addRecord(const Record& record);
  // Every kept record, oldest first.
  void eachRecord(const std::function<void(const Record&)>& visit) const;
  // The newest `most` records of the types `objectNames` whose customer or body holds `words`
  // (ASCII letters in any case), newest first: a scan of the kept records.
  std::vector<Record> search(const std::string& words, const std::vector<std::string>& objectNames,
                             std::size_t most) const;

  // The desk's answers: queued before they are written, gone once the server confirmed them.
  void queue(const QuorXmppPayload& payload);
  void sent(const std::string& stanzaId);
  std::vector<QuorXmppPayload> outbox() const;

  // The server's archive id up to which every customer's send was taken ("" for none yet).
  std::string archiveMark() const;
  void setArchiveMark(const std::string& id);

  // A named value of the desk (agents' password hashes, settings): absent when never set.
  std::optional<std::string> fact(const std::string& name) const;
  bool setFact(const std::string& name, const std::string& value);
  void removeFact(const std::string& name);
  // The facts whose names start with `prefix`, in name order.
  std::vector<std::pair<std::string, std::string>> facts(const std::string& prefix) const;

 private:
  QuorDeskStore(sqlite3* database, Limits limits);
  bool exec(const char* sql);
  void failed();
  void prune();

  sqlite3* const database_;
  const Limits limits_;
  mutable std::mutex mutex_;
  std::string lastError_;
  int64_t writesSincePrune_ = 0;
};

}  // namespace quor
