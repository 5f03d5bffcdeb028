#include "QuorXmppHost/QuorMessageStore.h"

#include <sqlite3.h>

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
    "CREATE INDEX IF NOT EXISTS messages_by_conversation ON messages(target_id, id);";

// A prepared statement that finalizes itself.
class Statement {
 public:
  Statement(sqlite3* database, const char* sql) {
    sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr);
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  explicit operator bool() const { return statement_ != nullptr; }
  sqlite3_stmt* get() const { return statement_; }
  void bind(int index, const std::optional<std::string>& text) {
    if (text) {
      sqlite3_bind_text(statement_, index, text->data(), static_cast<int>(text->size()),
                        SQLITE_TRANSIENT);
    } else {
      sqlite3_bind_null(statement_, index);
    }
  }
  void bind(int index, int64_t value) { sqlite3_bind_int64(statement_, index, value); }
  std::optional<std::string> text(int column) const {
    if (sqlite3_column_type(statement_, column) == SQLITE_NULL) return std::nullopt;
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return std::string(bytes ? bytes : "",
                       static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace

std::unique_ptr<QuorMessageStore> QuorMessageStore::open(const std::string& path,
                                                         std::string* error) {
  sqlite3* database = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(path.c_str(), &database, flags, nullptr) != SQLITE_OK ||
      sqlite3_exec(database, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    if (error) *error = path + ": " + (database ? sqlite3_errmsg(database) : "cannot open");
    sqlite3_close(database);
    return nullptr;
  }
  sqlite3_busy_timeout(database, 2000);
  return std::unique_ptr<QuorMessageStore>(new QuorMessageStore(database));
}

QuorMessageStore::~QuorMessageStore() { sqlite3_close(database_); }

QuorMessageStore::Insert QuorMessageStore::insert(QuorStoredMessage& message,
                                                  const std::string& originKey) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_,
                      "INSERT OR IGNORE INTO messages (conversation_type, target_id, direction, "
                      "sender_user_id, object_name, body, sent_time, received_status, origin) "
                      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
  if (!statement) return Insert::Failed;
  statement.bind(1, message.conversationType);
  statement.bind(2, std::optional<std::string>(message.targetId));
  statement.bind(3, message.direction);
  statement.bind(4, message.senderUserId);
  statement.bind(5, std::optional<std::string>(message.objectName));
  statement.bind(6, message.body);
  statement.bind(7, message.sentTime);
  statement.bind(8, message.receivedStatus);
  statement.bind(9, originKey.empty() ? std::nullopt : std::optional<std::string>(originKey));
  if (sqlite3_step(statement.get()) != SQLITE_DONE) return Insert::Failed;
  if (sqlite3_changes(database_) == 0) return Insert::Duplicate;
  message.id = sqlite3_last_insert_rowid(database_);
  return Insert::Stored;
}

bool QuorMessageStore::setSentTime(int64_t id, int64_t sentTime) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "UPDATE messages SET sent_time = ? WHERE id = ?");
  if (!statement) return false;
  statement.bind(1, sentTime);
  statement.bind(2, id);
  return sqlite3_step(statement.get()) == SQLITE_DONE;
}

std::vector<QuorStoredMessage> QuorMessageStore::page(const std::string& targetId, int64_t beforeId,
                                                      int count) const {
  std::vector<QuorStoredMessage> messages;
  if (count <= 0) return messages;
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_,
                      "SELECT id, conversation_type, target_id, direction, sender_user_id, "
                      "object_name, body, sent_time, received_status FROM messages "
                      "WHERE target_id = ? AND id < ? ORDER BY id DESC LIMIT ?");
  if (!statement) return messages;
  statement.bind(1, std::optional<std::string>(targetId));
  statement.bind(2, beforeId > 0 ? beforeId : INT64_MAX);
  statement.bind(3, static_cast<int64_t>(count));
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
    messages.push_back(std::move(message));
  }
  return messages;
}

}  // namespace quor
