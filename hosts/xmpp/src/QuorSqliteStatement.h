#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>

namespace quor {

// A prepared SQLite statement that finalizes itself, with the bindings and readings the stores
// use. Used on one thread at a time, as its connection.
class QuorSqliteStatement {
 public:
  QuorSqliteStatement(sqlite3* database, const char* sql) {
    sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr);
  }
  ~QuorSqliteStatement() { sqlite3_finalize(statement_); }
  QuorSqliteStatement(const QuorSqliteStatement&) = delete;
  QuorSqliteStatement& operator=(const QuorSqliteStatement&) = delete;

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
  void bind(int index, const std::string& text) { bind(index, std::optional<std::string>(text)); }
  void bind(int index, const char* text) { bind(index, std::optional<std::string>(text)); }
  void bind(int index, int64_t value) { sqlite3_bind_int64(statement_, index, value); }
  // Runs a statement that returns no rows.
  bool run() { return statement_ && sqlite3_step(statement_) == SQLITE_DONE; }
  // Steps to the next row.
  bool row() { return statement_ && sqlite3_step(statement_) == SQLITE_ROW; }
  std::optional<std::string> text(int column) const {
    if (sqlite3_column_type(statement_, column) == SQLITE_NULL) return std::nullopt;
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return std::string(bytes ? bytes : "",
                       static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }
  int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace quor
