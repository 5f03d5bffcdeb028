#include "QuorXmppDesk/QuorDeskStore.h"

#include <sqlite3.h>

#include "KXJsonTree.h"
#include "QuorSqliteStatement.h"

namespace quor {
namespace {

using Statement = QuorSqliteStatement;

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS facts (name TEXT PRIMARY KEY, value TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS seen (n INTEGER PRIMARY KEY AUTOINCREMENT, key TEXT UNIQUE);"
    "CREATE TABLE IF NOT EXISTS sessions (customer TEXT PRIMARY KEY, state TEXT NOT NULL,"
    "  active INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS sessions_by_activity ON sessions(active);"
    "CREATE TABLE IF NOT EXISTS records (id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  customer TEXT NOT NULL, time INTEGER NOT NULL, from_customer INTEGER NOT NULL,"
    "  object_name TEXT NOT NULL, body BLOB, sender TEXT NOT NULL, agent TEXT NOT NULL,"
    "  stamp INTEGER NOT NULL DEFAULT 0);"
    "CREATE INDEX IF NOT EXISTS records_by_type ON records(object_name, id);"
    "CREATE TABLE IF NOT EXISTS outbox (n INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT UNIQUE,"
    "  peer TEXT NOT NULL, object_name TEXT NOT NULL, body BLOB, sender TEXT NOT NULL);";

// A file made before records had stamps gets the column (an error when it has it is ignored).
constexpr const char* kAddStamp = "ALTER TABLE records ADD COLUMN stamp INTEGER NOT NULL DEFAULT 0";

// Pruning runs after this many writes: its cost is spread thin.
constexpr int64_t kPruneEvery = 1000;

}  // namespace

std::unique_ptr<QuorDeskStore> QuorDeskStore::open(const std::string& path,
                                                   const std::string& account, Limits limits,
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
  sqlite3_exec(database, kAddStamp, nullptr, nullptr, nullptr);
  std::unique_ptr<QuorDeskStore> store(new QuorDeskStore(database, limits));
  const auto owner = store->fact("account");
  if (owner && *owner != account) {
    if (error) *error = path + ": the desk state of " + *owner + ", not of " + account;
    return nullptr;
  }
  if (!owner && !store->setFact("account", account)) {
    if (error) *error = path + ": " + store->lastError();
    return nullptr;
  }
  return store;
}

QuorDeskStore::QuorDeskStore(sqlite3* database, Limits limits)
    : database_(database), limits_(limits) {}

QuorDeskStore::~QuorDeskStore() { sqlite3_close(database_); }

bool QuorDeskStore::exec(const char* sql) {
  if (sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  failed();
  return false;
}

void QuorDeskStore::failed() { lastError_ = sqlite3_errmsg(database_); }

std::string QuorDeskStore::lastError() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lastError_;
}

void QuorDeskStore::begin() {
  std::lock_guard<std::mutex> lock(mutex_);
  exec("BEGIN");
}

bool QuorDeskStore::commit() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (++writesSincePrune_ >= kPruneEvery) {
    writesSincePrune_ = 0;
    prune();
  }
  if (exec("COMMIT")) return true;
  exec("ROLLBACK");
  return false;
}

void QuorDeskStore::prune() {
  struct {
    const char* sql;
    int64_t keep;
  } const rules[] = {
      {"DELETE FROM seen WHERE n <= (SELECT MAX(n) FROM seen) - ?", limits_.seenKept},
      {"DELETE FROM records WHERE object_name != 'KX:CsLM' AND id <= (SELECT MAX(id) FROM "
       "records) - ?",
       limits_.records},
      {"DELETE FROM records WHERE object_name = 'KX:CsLM' AND id NOT IN (SELECT id FROM records "
       "WHERE object_name = 'KX:CsLM' ORDER BY id DESC LIMIT ?)",
       limits_.leftMessages},
      {"DELETE FROM sessions WHERE customer NOT IN (SELECT customer FROM sessions ORDER BY active "
       "DESC LIMIT ?)",
       limits_.sessions},
  };
  for (const auto& rule : rules) {
    Statement statement(database_, rule.sql);
    statement.bind(1, rule.keep);
    if (!statement.run()) failed();
  }
}

bool QuorDeskStore::seenBefore(const std::string& key) {
  if (key.empty()) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "INSERT OR IGNORE INTO seen (key) VALUES (?)");
  statement.bind(1, key);
  if (!statement.run()) {
    failed();
    return false;
  }
  return sqlite3_changes(database_) == 0;
}

void QuorDeskStore::saveSession(const std::string& customer, const KXDictionary& state) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_,
                      "INSERT OR REPLACE INTO sessions (customer, state, active) VALUES (?, ?, "
                      "(SELECT COALESCE(MAX(active), 0) + 1 FROM sessions))");
  statement.bind(1, customer);
  statement.bind(2, state.dump(-1, ' ', false, KXDictionary::error_handler_t::replace));
  if (!statement.run()) failed();
}

std::optional<KXDictionary> QuorDeskStore::session(const std::string& customer) const {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "SELECT state FROM sessions WHERE customer = ?");
  statement.bind(1, customer);
  if (!statement.row()) return std::nullopt;
  return KXJsonTree::parse(statement.text(0).value_or(""), KXJsonTree::kMaxDepth);
}

void QuorDeskStore::addRecord(const Record& record) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_,
                      "INSERT INTO records (customer, time, from_customer, object_name, body, "
                      "sender, agent, stamp) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  statement.bind(1, record.customer);
  statement.bind(2, record.time);
  statement.bind(3, int64_t{record.fromCustomer ? 1 : 0});
  statement.bind(4, record.objectName);
  statement.bind(5, record.body);
  statement.bind(6, record.sender);
  statement.bind(7, record.agent);
  statement.bind(8, record.stamp);
  if (!statement.run()) failed();
}

namespace {

constexpr const char* kRecordColumns =
    "SELECT customer, time, from_customer, object_name, body, sender, agent, stamp FROM records ";

QuorDeskStore::Record recordAt(Statement& statement) {
  QuorDeskStore::Record record;
  record.customer = statement.text(0).value_or("");
  record.time = statement.integer(1);
  record.fromCustomer = statement.integer(2) != 0;
  record.objectName = statement.text(3).value_or("");
  record.body = statement.text(4);
  record.sender = statement.text(5).value_or("");
  record.agent = statement.text(6).value_or("");
  record.stamp = statement.integer(7);
  return record;
}

// `words` as a LIKE pattern that matches them anywhere, its wildcards taken literally.
std::string containing(const std::string& words) {
  std::string pattern = "%";
  for (const char c : words) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  return pattern + "%";
}

}  // namespace

void QuorDeskStore::eachRecord(const std::function<void(const Record&)>& visit) const {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, (std::string(kRecordColumns) + "ORDER BY id").c_str());
  while (statement.row()) visit(recordAt(statement));
}

std::vector<QuorDeskStore::Record> QuorDeskStore::search(
    const std::string& words, const std::vector<std::string>& objectNames, std::size_t most) const {
  std::vector<Record> found;
  if (words.empty() || objectNames.empty() || most == 0) return found;
  std::string sql = std::string(kRecordColumns) +
                    "WHERE (customer LIKE ?1 ESCAPE '\\' OR body LIKE ?1 ESCAPE '\\') AND "
                    "object_name IN (";
  for (std::size_t i = 0; i < objectNames.size(); ++i) sql += i ? ", ?" : "?";
  sql += ") ORDER BY id DESC LIMIT ?";
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, sql.c_str());
  statement.bind(1, containing(words));
  int at = 2;
  for (const auto& name : objectNames) statement.bind(at++, name);
  statement.bind(at, static_cast<int64_t>(most));
  while (statement.row()) found.push_back(recordAt(statement));
  return found;
}

void QuorDeskStore::queue(const QuorXmppPayload& payload) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(
      database_,
      "INSERT OR REPLACE INTO outbox (id, peer, object_name, body, sender) VALUES (?, ?, ?, ?, ?)");
  statement.bind(1, payload.stanzaId);
  statement.bind(2, payload.peer);
  statement.bind(3, payload.objectName);
  statement.bind(4, payload.body);
  statement.bind(5, payload.sender);
  if (!statement.run()) failed();
}

void QuorDeskStore::sent(const std::string& stanzaId) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "DELETE FROM outbox WHERE id = ?");
  statement.bind(1, stanzaId);
  if (!statement.run()) failed();
}

std::vector<QuorXmppPayload> QuorDeskStore::outbox() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<QuorXmppPayload> payloads;
  Statement statement(database_,
                      "SELECT id, peer, object_name, body, sender FROM outbox ORDER BY n");
  while (statement.row()) {
    QuorXmppPayload payload;
    payload.stanzaId = statement.text(0).value_or("");
    payload.peer = statement.text(1).value_or("");
    payload.objectName = statement.text(2).value_or("");
    payload.body = statement.text(3);
    payload.sender = statement.text(4).value_or("");
    payloads.push_back(std::move(payload));
  }
  return payloads;
}

std::string QuorDeskStore::archiveMark() const { return fact("archive").value_or(""); }

void QuorDeskStore::setArchiveMark(const std::string& id) { setFact("archive", id); }

std::optional<std::string> QuorDeskStore::fact(const std::string& name) const {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "SELECT value FROM facts WHERE name = ?");
  statement.bind(1, name);
  if (!statement.row()) return std::nullopt;
  return statement.text(0);
}

bool QuorDeskStore::setFact(const std::string& name, const std::string& value) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "INSERT OR REPLACE INTO facts (name, value) VALUES (?, ?)");
  statement.bind(1, name);
  statement.bind(2, value);
  if (statement.run()) return true;
  failed();
  return false;
}

void QuorDeskStore::removeFact(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "DELETE FROM facts WHERE name = ?");
  statement.bind(1, name);
  if (!statement.run()) failed();
}

std::vector<std::pair<std::string, std::string>> QuorDeskStore::facts(
    const std::string& prefix) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::pair<std::string, std::string>> found;
  Statement statement(database_,
                      "SELECT name, value FROM facts WHERE substr(name, 1, length(?1)) = ?1 "
                      "ORDER BY name");
  statement.bind(1, prefix);
  while (statement.row())
    found.emplace_back(statement.text(0).value_or(""), statement.text(1).value_or(""));
  return found;
}

}  // namespace quor
