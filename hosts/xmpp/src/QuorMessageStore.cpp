#include "QuorXmppHost/QuorMessageStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "QuorSqliteStatement.h"
#include "QuorXmppStanza.h"

namespace quor {
namespace {

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS messages ("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  conversation_type INTEGER NOT NULL,"
    "  target_id TEXT NOT NULL,"
    "  direction INTEGER NOT NULL,"
    "  sender_user_id TEXT,"
    "  object_name TEXT NOT NULL,"
    "  body BLOB,"
    "  sent_time INTEGER NOT NULL,"
    "  received_status INTEGER NOT NULL,"
    "  origin TEXT UNIQUE);"
    "CREATE INDEX IF NOT EXISTS messages_by_conversation ON messages(target_id, id);"
    "CREATE TABLE IF NOT EXISTS facts (name TEXT PRIMARY KEY, value TEXT NOT NULL);";
// Stores made before messages had a delivery status take this column (every message Sent).
constexpr const char* kStatusColumn =
    "ALTER TABLE messages ADD COLUMN status INTEGER NOT NULL DEFAULT 1";

using Statement = QuorSqliteStatement;

}  // namespace

std::unique_ptr<QuorMessageStore> QuorMessageStore::open(const Options& options,
                                                         std::string* error) {
  sqlite3* database = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(options.path.c_str(), &database, flags, nullptr) != SQLITE_OK ||
      sqlite3_exec(database, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    if (error) {
      *error = options.path + ": " + (database ? sqlite3_errmsg(database) : "cannot open");
    }
    sqlite3_close(database);
    return nullptr;
  }
  // Fails harmlessly when the column is there.
  sqlite3_exec(database, kStatusColumn, nullptr, nullptr, nullptr);
  sqlite3_busy_timeout(database, 2000);
  std::unique_ptr<QuorMessageStore> store(new QuorMessageStore(database));
  if (!store->claim(options.account, error)) return nullptr;
  store->unsent_ = store->read("WHERE status IN (0, 3) ORDER BY id", nullptr, 0, 0);
  // Ids are given here, so that a queued send has one before its row is written; never one that
  // a removed message had.
  Statement last(
      database,
      "SELECT MAX(COALESCE((SELECT seq FROM sqlite_sequence WHERE name = 'messages'), 0), "
      "COALESCE((SELECT MAX(id) FROM messages), 0))");
  if (last && sqlite3_step(last.get()) == SQLITE_ROW)
    store->lastId_ = sqlite3_column_int64(last.get(), 0);
  if (options.limitBytes > 0) {
    Statement pageSize(database, "PRAGMA page_size");
    const int64_t page = pageSize && sqlite3_step(pageSize.get()) == SQLITE_ROW
                             ? sqlite3_column_int64(pageSize.get(), 0)
                             : 4096;
    const std::string limit = "PRAGMA max_page_count = " +
                              std::to_string(std::max<int64_t>(1, options.limitBytes / page));
    sqlite3_exec(database, limit.c_str(), nullptr, nullptr, nullptr);
  }
  return store;
}

bool QuorMessageStore::claim(const std::string& account, std::string* error) {
  const auto owner = fact("account");
  if (owner && *owner != account) {
    if (error) *error = "the store belongs to " + *owner + ", not to " + account;
    return false;
  }
  if (!owner && !keep("account", account)) {
    if (error) *error = std::string("cannot write the store: ") + sqlite3_errmsg(database_);
    return false;
  }
  const auto resource = fact("resource");
  deviceResource_ = resource ? *resource : "quor-cs-" + QuorXmppStanza::uniqueId().substr(5, 12);
  if (!resource) keep("resource", deviceResource_);
  archiveMark_ = fact("archive").value_or("");
  Statement notes(database_, "SELECT name, value FROM facts WHERE name LIKE 'service %'");
  while (notes && sqlite3_step(notes.get()) == SQLITE_ROW) {
    serviceNotes_[notes.text(0).value_or("").substr(std::strlen("service "))] =
        notes.text(1).value_or("");
  }
  return true;
}

std::optional<std::string> QuorMessageStore::fact(const char* name) const {
  Statement read(database_, "SELECT value FROM facts WHERE name = ?");
  read.bind(1, std::optional<std::string>(name));
  if (!read || sqlite3_step(read.get()) != SQLITE_ROW) return std::nullopt;
  return read.text(0);
}

bool QuorMessageStore::keep(const char* name, const std::string& value) const {
  Statement write(database_, "INSERT OR REPLACE INTO facts (name, value) VALUES (?, ?)");
  write.bind(1, std::optional<std::string>(name));
  write.bind(2, std::optional<std::string>(value));
  return write && sqlite3_step(write.get()) == SQLITE_DONE;
}

std::string QuorMessageStore::archiveMark() const {
  std::lock_guard<std::mutex> lock(queueMutex_);
  return archiveMark_;
}

bool QuorMessageStore::setArchiveMark(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!keep("archive", id)) {
    lastError_ = sqlite3_errmsg(database_);
    return false;
  }
  std::lock_guard<std::mutex> queue(queueMutex_);
  archiveMark_ = id;
  return true;
}

std::string QuorMessageStore::serviceNote(const std::string& targetId) const {
  std::lock_guard<std::mutex> lock(queueMutex_);
  const auto note = serviceNotes_.find(targetId);
  return note == serviceNotes_.end() ? std::string() : note->second;
}

bool QuorMessageStore::setServiceNote(const std::string& targetId, const std::string& note) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!keep(("service " + targetId).c_str(), note)) {
    lastError_ = sqlite3_errmsg(database_);
    return false;
  }
  std::lock_guard<std::mutex> queue(queueMutex_);
  serviceNotes_[targetId] = note;
  return true;
}

QuorMessageStore::~QuorMessageStore() {
  writeQueued();
  sqlite3_close(database_);
}

QuorMessageStore::Insert QuorMessageStore::insert(QuorStoredMessage& message,
                                                  const std::string& originKey) {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  {
    std::lock_guard<std::mutex> queueLock(queueMutex_);
    message.id = ++lastId_;  // a duplicate leaves a gap, as a removed message does
  }
  const auto inserted = write(message, originKey);
  if (inserted != Insert::Stored) message.id = 0;
  return inserted;
}

int64_t QuorMessageStore::insertLater(QuorStoredMessage message) {
  std::lock_guard<std::mutex> lock(queueMutex_);
  message.id = ++lastId_;
  queued_.push_back(std::move(message));
  return lastId_;
}

std::vector<QuorMessageStore::LostWrite> QuorMessageStore::flush() {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  return std::exchange(lost_, {});
}

void QuorMessageStore::writeQueued() const {
  std::vector<QuorStoredMessage> queued;
  {
    std::lock_guard<std::mutex> queueLock(queueMutex_);
    queued.swap(queued_);
  }
  for (auto& message : queued) {
    if (write(message, "") == Insert::Failed) lost_.push_back({std::move(message), lastError_});
  }
}

QuorMessageStore::Insert QuorMessageStore::write(QuorStoredMessage& message,
                                                 const std::string& originKey) const {
  Statement statement(database_,
                      "INSERT OR IGNORE INTO messages (id, conversation_type, target_id, "
                      "direction, sender_user_id, object_name, body, sent_time, received_status, "
                      "origin, status) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  if (!statement) return failed();
  statement.bind(1, message.id);
  statement.bind(2, message.conversationType);
  statement.bind(3, std::optional<std::string>(message.targetId));
  statement.bind(4, message.direction);
  statement.bind(5, message.senderUserId);
  statement.bind(6, std::optional<std::string>(message.objectName));
  statement.bind(7, message.body);
  statement.bind(8, message.sentTime);
  statement.bind(9, message.receivedStatus);
  // A sent message's origin is its stanza id, so that a later run can write it again.
  const std::string origin = !message.stanzaId.empty() ? "sent " + message.stanzaId : originKey;
  statement.bind(10, origin.empty() ? std::nullopt : std::optional<std::string>(origin));
  statement.bind(11, static_cast<int64_t>(message.status));
  if (sqlite3_step(statement.get()) != SQLITE_DONE) return failed();
  return sqlite3_changes(database_) == 0 ? Insert::Duplicate : Insert::Stored;
}

bool QuorMessageStore::setOutcome(int64_t id, QuorDeliveryStatus status, int64_t sentTime) {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  Statement statement(database_, "UPDATE messages SET status = ?, sent_time = ? WHERE id = ?");
  if (statement) {
    statement.bind(1, static_cast<int64_t>(status));
    statement.bind(2, sentTime);
    statement.bind(3, id);
    if (sqlite3_step(statement.get()) == SQLITE_DONE) return true;
  }
  failed();
  return false;
}

bool QuorMessageStore::remove(int64_t id) {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  Statement statement(database_, "DELETE FROM messages WHERE id = ?");
  if (statement) {
    statement.bind(1, id);
    if (sqlite3_step(statement.get()) == SQLITE_DONE) return true;
  }
  failed();
  return false;
}

QuorMessageStore::Insert QuorMessageStore::failed() const {
  lastError_ = sqlite3_errmsg(database_);
  return Insert::Failed;
}

std::string QuorMessageStore::lastError() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lastError_;
}

std::vector<QuorStoredMessage> QuorMessageStore::page(const std::string& targetId, int64_t beforeId,
                                                      int count) const {
  if (count <= 0) return {};
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  return read("WHERE target_id = ? AND id < ? ORDER BY id DESC LIMIT ?", &targetId,
              beforeId > 0 ? beforeId : INT64_MAX, count);
}

std::vector<QuorStoredMessage> QuorMessageStore::read(const char* where,
                                                      const std::string* targetId, int64_t beforeId,
                                                      int count) const {
  std::vector<QuorStoredMessage> messages;
  Statement statement(database_, (std::string("SELECT id, conversation_type, target_id, direction, "
                                              "sender_user_id, object_name, body, sent_time, "
                                              "received_status, status, origin FROM messages ") +
                                  where)
                                     .c_str());
  if (!statement) return messages;
  if (targetId) {
    statement.bind(1, std::optional<std::string>(*targetId));
    statement.bind(2, beforeId);
    statement.bind(3, static_cast<int64_t>(count));
  }
  while (sqlite3_step(statement.get()) == SQLITE_ROW) {
    sqlite3_stmt* row = statement.get();
    QuorStoredMessage message;
    message.id = sqlite3_column_int64(row, 0);
    message.conversationType = sqlite3_column_int(row, 1);
    message.targetId = statement.text(2).value_or("");
    message.direction = sqlite3_column_int(row, 3);
    message.senderUserId = statement.text(4);
    message.objectName = statement.text(5).value_or("");
    message.body = statement.text(6);
    message.sentTime = sqlite3_column_int64(row, 7);
    message.receivedStatus = sqlite3_column_int(row, 8);
    message.status = static_cast<QuorDeliveryStatus>(sqlite3_column_int(row, 9));
    const std::string origin = statement.text(10).value_or("");
    if (origin.rfind("sent ", 0) == 0) message.stanzaId = origin.substr(5);
    messages.push_back(std::move(message));
  }
  return messages;
}

std::optional<QuorStoredMessage> QuorMessageStore::find(int64_t id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  auto found = read(("WHERE id = " + std::to_string(id)).c_str(), nullptr, 0, 0);
  if (found.empty()) return std::nullopt;
  return std::move(found.front());
}

std::optional<int64_t> QuorMessageStore::findSent(const std::string& stanzaId) const {
  std::lock_guard<std::mutex> lock(mutex_);
  writeQueued();
  Statement select(database_, "SELECT id FROM messages WHERE origin = ?");
  select.bind(1, std::optional<std::string>("sent " + stanzaId));
  if (!select || sqlite3_step(select.get()) != SQLITE_ROW) return std::nullopt;
  return sqlite3_column_int64(select.get(), 0);
}

std::vector<QuorStoredMessage> QuorMessageStore::unsent() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return unsent_;
}

}  // namespace quor
