// Opening the index for writing: waiting for another writer, and rebuilding a damaged index.

#include <spdlog/spdlog.h>

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer {

using index::Database;

namespace {

// A file cut short (a copy or a disk that failed midway) still opens and answers from the pages it
// has, so compare its size with the page count its header records.
bool truncated(const std::filesystem::path& file) {
  std::error_code ec;
  // Another process writing (any log file present) may be growing the file right now.
  for (const char* log : {"-wal", "-journal"}) {
    if (std::filesystem::exists(file.string() + log, ec)) return false;
  }
  auto size = std::filesystem::file_size(file, ec);
  if (ec || size < 100) return false;
  unsigned char header[100];
  std::ifstream in(file, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(header), sizeof header)) return false;
  if (std::memcmp(header, "SQLite format 3", 16) != 0) return false;  // SQLite says "not a db"
  auto be32 = [&](int at) {
    return (std::uint32_t{header[at]} << 24) | (std::uint32_t{header[at + 1]} << 16) |
           (std::uint32_t{header[at + 2]} << 8) | std::uint32_t{header[at + 3]};
  };
  std::uint32_t page_size = (std::uint32_t{header[16]} << 8) | header[17];
  if (page_size == 1) page_size = 65536;
  // The page count in the header is only valid when written by the version that last changed it.
  if (be32(24) != be32(92)) return false;
  return size < std::uint64_t{be32(28)} * page_size;
}

// Left beside the index by a reader that met a damaged page.
constexpr const char* DAMAGED = "-damaged";

// Two writers opening one index at the same moment can meet a lock SQLite refuses to wait for
// (the switch to WAL, the first schema): wait and try again rather than fail the run.
void prepare_waiting(Database& db) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (int attempt = 1;; ++attempt) {
    try {
      index::prepare_for_writing(db);
      return;
    } catch (const index::SqliteError& e) {
      if (!e.busy() || std::chrono::steady_clock::now() > deadline) throw;
      if (attempt == 1) spdlog::info("the index is busy: waiting for the other writer");
      std::this_thread::sleep_for(std::chrono::milliseconds(std::min(20 * attempt, 500)));
    }
  }
}

}  // namespace

void discard_index(const std::filesystem::path& repository_root) {
  auto file = index::index_file(repository_root);
  for (const char* suffix : {"", "-wal", "-shm", DAMAGED})
    std::filesystem::remove(file.string() + suffix);
}

void mark_damaged(const std::filesystem::path& repository_root) {
  std::ofstream(index::index_file(repository_root).string() + DAMAGED);
}

bool marked_damaged(const std::filesystem::path& repository_root) {
  std::error_code ec;
  return std::filesystem::exists(index::index_file(repository_root).string() + DAMAGED, ec);
}

namespace writer {

// A damaged index is rebuilt from scratch rather than failing every later run.
std::unique_ptr<Database> open_for_writing(const std::filesystem::path& root) {
  std::filesystem::create_directories(root / ".tamsel");
  auto file = index::index_file(root);
  auto connect = [&] {
    auto db = std::make_unique<Database>(file, Database::Mode::write);
    prepare_waiting(*db);
    return db;
  };
  try {
    if (truncated(file)) {
      throw index::SqliteError("the file is shorter than its header says", SQLITE_CORRUPT);
    }
    if (marked_damaged(root)) {
      throw index::SqliteError("a reader met a damaged page", SQLITE_CORRUPT);
    }
    return connect();
  } catch (const index::SqliteError& e) {
    if (!e.unreadable()) throw;
    spdlog::warn("the index {} cannot be read ({}): rebuilding it", file.string(), e.what());
    discard_index(root);
  }
  return connect();
}

}  // namespace writer

}  // namespace orvane_tamsel::indexer
