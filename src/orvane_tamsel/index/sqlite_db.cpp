#include "orvane_tamsel/index/sqlite_db.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include <spdlog/spdlog.h>

namespace orvane_tamsel::index {

namespace {

// SqliteDamaged for the codes of a damaged file, so that readers can tell it from the others.
[[noreturn]] void raise(const std::string& message, int code) {
  SqliteError error(message, code);
  if (error.unreadable()) throw SqliteDamaged(message, code);
  throw error;
}

[[noreturn]] void fail(sqlite3* db, std::string_view what) {
  raise(std::string(what) + ": " + (db ? sqlite3_errmsg(db) : "out of memory"),
        db ? sqlite3_extended_errcode(db) : SQLITE_NOMEM);
}

// Writers wait this long for one another instead of failing with "database is locked".
constexpr int BUSY_TIMEOUT_MS = 60'000;
// A wait longer than this is reported, so that a waiting run does not look hung.
constexpr int BUSY_REPORT_MS = 200;
// Distinct SQL texts kept per connection: the repository's queries and a few shapes of each.
constexpr std::size_t CACHED_STATEMENTS = 128;

// Sleeps between attempts to take another connection's lock; 0 gives up. `attempt` restarts at
// 0 for each lock waited for, so the time waited is the sum of the earlier sleeps.
int wait_for_lock(void* file, int attempt) {
  auto sleep_ms = [](int n) { return std::min(1 << std::min(n, 5), 25); };
  int waited = 0;
  for (int n = 0; n < attempt; ++n) waited += sleep_ms(n);
  if (waited >= BUSY_TIMEOUT_MS) return 0;
  if (waited < BUSY_REPORT_MS && waited + sleep_ms(attempt) >= BUSY_REPORT_MS) {
    spdlog::warn("{} is in use by another tamsel: waiting for it (up to {} s)",
                 static_cast<const std::filesystem::path*>(file)->string(), BUSY_TIMEOUT_MS / 1000);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(sleep_ms(attempt)));
  return 1;
}

}  // namespace

bool SqliteError::unreadable() const {
  return (code_ & 0xff) == SQLITE_NOTADB || (code_ & 0xff) == SQLITE_CORRUPT;
}

bool SqliteError::busy() const {
  return (code_ & 0xff) == SQLITE_BUSY || (code_ & 0xff) == SQLITE_LOCKED;
}

Statement::Statement(std::shared_ptr<Connection> connection, std::string_view sql)
    : connection_(std::move(connection)), stmt_(connection_->take(sql)), sql_(sql) {
  if (stmt_) return;
  if (sqlite3_prepare_v3(db(), sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                         &stmt_, nullptr) != SQLITE_OK) {
    fail(db(), "cannot prepare \"" + std::string(sql.substr(0, 80)) + "\"");
  }
}

Statement::~Statement() {
  release();
}

sqlite3* Statement::db() const {
  return connection_ ? connection_->handle() : nullptr;
}

void Statement::release() {
  if (stmt_) connection_->give_back(std::move(sql_), stmt_);
  stmt_ = nullptr;
  connection_.reset();
}

Statement::Statement(Statement&& other) noexcept
    : connection_(std::move(other.connection_)),
      stmt_(std::exchange(other.stmt_, nullptr)),
      sql_(std::move(other.sql_)) {}

Statement& Statement::operator=(Statement&& other) noexcept {
  if (this != &other) {
    release();
    connection_ = std::move(other.connection_);
    stmt_ = std::exchange(other.stmt_, nullptr);
    sql_ = std::move(other.sql_);
  }
  return *this;
}

Connection::Connection(const std::filesystem::path& file, int flags) : file_(file) {
  // SQLite's memory statistics take a process-wide mutex on every allocation and free, and
  // nothing here reads them. Only possible before SQLite's first use: later it is left on.
  static const bool statistics_off = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK;
  (void)statistics_off;
  if (sqlite3_open_v2(file.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
    std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
    int code = db_ ? sqlite3_extended_errcode(db_) : SQLITE_NOMEM;
    sqlite3_close(db_);
    raise(file.string() + ": " + message, code);
  }
  sqlite3_busy_handler(db_, wait_for_lock, &file_);
  sqlite3_extended_result_codes(db_, 1);
}

Connection::~Connection() {
  for (auto& [sql, stmt] : idle_) sqlite3_finalize(stmt);
  sqlite3_close_v2(db_);
}

sqlite3_stmt* Connection::take(std::string_view sql) {
  auto it = idle_.find(std::string(sql));
  if (it == idle_.end()) return nullptr;
  auto* stmt = it->second;
  idle_.erase(it);
  return stmt;
}

void Connection::give_back(std::string sql, sqlite3_stmt* stmt) {
  // A statement left mid-result would hold its read transaction open.
  sqlite3_reset(stmt);
  sqlite3_clear_bindings(stmt);
  if (idle_.size() >= CACHED_STATEMENTS || !idle_.emplace(std::move(sql), stmt).second) {
    sqlite3_finalize(stmt);
  }
}

Statement& Statement::bind(int index, std::int64_t value) {
  if (sqlite3_bind_int64(stmt_, index, value) != SQLITE_OK) fail(db(), "bind");
  return *this;
}

Statement& Statement::bind(int index, double value) {
  if (sqlite3_bind_double(stmt_, index, value) != SQLITE_OK) fail(db(), "bind");
  return *this;
}

Statement& Statement::bind(int index, std::string_view value) {
  if (sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()),
                        SQLITE_TRANSIENT) != SQLITE_OK) {
    fail(db(), "bind");
  }
  return *this;
}

Statement& Statement::bind(int index, const std::optional<std::string>& value) {
  return value ? bind(index, std::string_view(*value)) : bind_null(index);
}

Statement& Statement::bind(int index, const std::optional<std::int64_t>& value) {
  return value ? bind(index, *value) : bind_null(index);
}

Statement& Statement::bind_null(int index) {
  if (sqlite3_bind_null(stmt_, index) != SQLITE_OK) fail(db(), "bind");
  return *this;
}

bool Statement::step() {
  int rc = sqlite3_step(stmt_);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return false;
  std::string message = sqlite3_errmsg(db());
  sqlite3_reset(stmt_);
  raise(message, rc);
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() {
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(stmt_, column);
}

double Statement::real(int column) const {
  return sqlite3_column_double(stmt_, column);
}

Statement& Statement::bind_blob(int index, std::string_view bytes) {
  if (sqlite3_bind_blob(stmt_, index, bytes.data(), static_cast<int>(bytes.size()),
                        SQLITE_TRANSIENT) != SQLITE_OK) {
    fail(db(), "bind");
  }
  return *this;
}

std::string_view Statement::blob(int column) const {
  const auto* p = sqlite3_column_blob(stmt_, column);
  if (!p) return {};
  return {static_cast<const char*>(p),
          static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

std::string Statement::text(int column) const {
  const auto* p = sqlite3_column_text(stmt_, column);
  if (!p) return {};
  return std::string(reinterpret_cast<const char*>(p),
                     static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column)));
}

std::optional<std::string> Statement::optional_text(int column) const {
  if (is_null(column)) return std::nullopt;
  return text(column);
}

std::optional<std::int64_t> Statement::optional_integer(int column) const {
  if (is_null(column)) return std::nullopt;
  return integer(column);
}

bool Statement::is_null(int column) const {
  return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

Database::Database(const std::filesystem::path& file, Mode mode) {
  int flags = mode == Mode::write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE
                                  : SQLITE_OPEN_READWRITE;  // WAL readers may need to write -shm
  connection_ = std::make_shared<Connection>(file, flags | SQLITE_OPEN_NOMUTEX);
}

void Database::exec(std::string_view sql) {
  auto* db = handle();
  char* error = nullptr;
  std::string text(sql);
  if (sqlite3_exec(db, text.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::string message = error ? error : sqlite3_errmsg(db);
    sqlite3_free(error);
    raise(message, sqlite3_extended_errcode(db));
  }
}

std::int64_t Database::last_insert_id() const {
  return sqlite3_last_insert_rowid(connection_->handle());
}

}  // namespace orvane_tamsel::index
