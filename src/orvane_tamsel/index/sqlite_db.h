#pragma once
// A thin RAII layer over the SQLite C API: one connection, prepared statements, errors as
// exceptions.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include "orvane_tamsel/index/repository.h"

struct sqlite3;
struct sqlite3_stmt;

namespace orvane_tamsel::index {

class StatementCache;

class SqliteError : public std::runtime_error {
 public:
  explicit SqliteError(const std::string& message, int code = 0)
      : std::runtime_error(message), code_(code) {}
  // The file is not a database or is damaged (as opposed to busy, full, ...).
  bool unreadable() const;
  // Another connection holds a lock that SQLite will not wait for (e.g. while the file is created).
  bool busy() const;

 private:
  int code_;
};

// The error of a file SQLite finds damaged: what the repository port calls IndexDamaged.
class SqliteDamaged : public SqliteError, public IndexDamaged {
 public:
  using SqliteError::SqliteError;
  const char* what() const noexcept override { return SqliteError::what(); }
};

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* db, std::string_view sql);
  // A statement taken from the cache (or prepared into it), given back to it when destroyed.
  Statement(sqlite3* db, std::string_view sql, StatementCache& cache);
  ~Statement();
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&& other) noexcept;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Binds by 1-based position; returns *this so that calls chain.
  Statement& bind(int index, std::int64_t value);
  Statement& bind(int index, int value) { return bind(index, static_cast<std::int64_t>(value)); }
  Statement& bind(int index, bool value) { return bind(index, static_cast<std::int64_t>(value)); }
  Statement& bind(int index, double value);
  Statement& bind(int index, std::string_view value);
  Statement& bind(int index, const std::string& value) {
    return bind(index, std::string_view(value));
  }
  Statement& bind(int index, const char* value) { return bind(index, std::string_view(value)); }
  Statement& bind(int index, const std::optional<std::string>& value);
  Statement& bind(int index, const std::optional<std::int64_t>& value);
  // Binds every value in order from position 1.
  template <typename... Values>
  Statement& bind_all(const Values&... values) {
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }
  Statement& bind_null(int index);
  Statement& bind_blob(int index, std::string_view bytes);

  // Steps once: true while a row is available.
  bool step();
  // Runs to completion and resets, for statements without rows.
  void run();
  void reset();

  std::int64_t integer(int column) const;
  double real(int column) const;
  std::string text(int column) const;
  std::optional<std::string> optional_text(int column) const;
  std::optional<std::int64_t> optional_integer(int column) const;
  // Valid until the next step or reset.
  std::string_view blob(int column) const;
  bool is_null(int column) const;

 private:
  void release();

  sqlite3* db_ = nullptr;
  sqlite3_stmt* stmt_ = nullptr;
  StatementCache* cache_ = nullptr;  // null: finalized when destroyed
  std::string sql_;                  // the cache's key
};

// The statements a connection prepared, by SQL text, so that a query asked again skips the
// parser and planner. A statement in use is out of the cache: the same SQL asked while it runs
// gets a statement of its own.
class StatementCache {
 public:
  StatementCache() = default;
  ~StatementCache();
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;

  // The cached statement of the SQL, or null.
  sqlite3_stmt* take(std::string_view sql);
  // Keeps the statement, reset and unbound, or finalizes it when the cache holds the SQL already
  // or is full.
  void give_back(std::string sql, sqlite3_stmt* stmt);
  void clear();

 private:
  std::unordered_map<std::string, sqlite3_stmt*> idle_;
};

class Database {
 public:
  enum class Mode { read, write };
  Database(const std::filesystem::path& file, Mode mode);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void exec(std::string_view sql);
  // Prepared once per connection and SQL text, then reused.
  Statement prepare(std::string_view sql) { return Statement(db_, sql, cache_); }
  std::int64_t last_insert_id() const;
  sqlite3* handle() { return db_; }
  const std::filesystem::path& file() const { return file_; }

 private:
  sqlite3* db_ = nullptr;
  std::filesystem::path file_;
  StatementCache cache_;  // finalized before the connection closes
};

}  // namespace orvane_tamsel::index
