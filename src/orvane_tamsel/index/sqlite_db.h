#pragma once
// A thin RAII layer over the SQLite C API: one connection, prepared statements, errors as
// exceptions.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include "orvane_tamsel/index/repository.h"

struct sqlite3;
struct sqlite3_stmt;

namespace orvane_tamsel::index {

class Connection;

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

// A prepared statement of a connection, taken from its cache (or prepared into it) and given back
// when destroyed. It holds its connection open, so it may outlive the Database it came from.
class Statement {
 public:
  Statement() = default;
  Statement(std::shared_ptr<Connection> connection, std::string_view sql);
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
  sqlite3* db() const;

  std::shared_ptr<Connection> connection_;
  sqlite3_stmt* stmt_ = nullptr;
  std::string sql_;  // the cache's key
};

// An open connection and the statements it prepared, by SQL text, so that a query asked again
// skips the parser and planner. A statement in use is out of the cache: the same SQL asked while
// it runs gets a statement of its own. The Database and each of its statements share it: the last
// of them to go finalizes the idle statements and closes the connection.
class Connection {
 public:
  Connection(const std::filesystem::path& file, int flags);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* handle() const { return db_; }
  const std::filesystem::path& file() const { return file_; }
  // The cached statement of the SQL, or null.
  sqlite3_stmt* take(std::string_view sql);
  // Keeps the statement, reset and unbound, or finalizes it when the cache holds the SQL already
  // or is full.
  void give_back(std::string sql, sqlite3_stmt* stmt);

 private:
  std::filesystem::path file_;  // the busy handler's argument
  sqlite3* db_ = nullptr;
  std::unordered_map<std::string, sqlite3_stmt*> idle_;
};

class Database {
 public:
  enum class Mode { read, write };
  Database(const std::filesystem::path& file, Mode mode);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void exec(std::string_view sql);
  // Prepared once per connection and SQL text, then reused.
  Statement prepare(std::string_view sql) { return Statement(connection_, sql); }
  std::int64_t last_insert_id() const;
  sqlite3* handle() { return connection_->handle(); }
  const std::filesystem::path& file() const { return connection_->file(); }

 private:
  std::shared_ptr<Connection> connection_;
};

}  // namespace orvane_tamsel::index
