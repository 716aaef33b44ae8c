#pragma once
// Writes parsed files into the SQLite index in transactions, and links call sites to symbols.

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer {

// What the index remembers of a file to tell whether it changed.
struct FileState {
  std::int64_t mtime_ns = 0;
  std::int64_t size = 0;
  std::string hash;    // content hash, to skip re-parsing a touched but unchanged file
  std::string module;  // as last extracted: a new __init__.py above the file renames it
};

class IndexWriter {
 public:
  // Opens (creating or rebuilding on a schema change) DIR/.tamsel/index.db for writing.
  explicit IndexWriter(const std::filesystem::path& repository_root);
  ~IndexWriter();
  IndexWriter(const IndexWriter&) = delete;
  IndexWriter& operator=(const IndexWriter&) = delete;

  std::map<std::string, FileState> file_states();
  std::map<std::string, std::string> skipped();  // path -> reason, as last stored

  // One batch of changes; nothing is visible to readers until commit().
  void begin();
  void put_file(const ParsedFile& file, const FileState& state);
  void touch_file(const std::string& path, const FileState& state);  // content unchanged
  void remove_file(const std::string& path);
  void set_skipped(const std::map<std::string, std::string>& path_to_reason);  // replaces all
  // A first build's files so far are committed unlinked, and the index marked unfinished; false
  // (nothing done) for an update, which stays one transaction.
  bool checkpoint();
  // An earlier first build was interrupted: the next batch links all files, kept and new.
  bool unfinished();
  // Links call sites to symbols, refreshes derived tables, and commits.
  void commit();
  void rollback();

  index::IndexStats stats();
  // The connection, for a pass that runs after a batch (outside it).
  index::Database& database();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Deletes DIR/.tamsel/index.db and its log, so that the next writer builds it afresh.
void discard_index(const std::filesystem::path& repository_root);
// Notes that a reader met a damaged page, so that the next writer rebuilds the index rather than
// update an index whose damage its own run may never touch.
void mark_damaged(const std::filesystem::path& repository_root);
bool marked_damaged(const std::filesystem::path& repository_root);

}  // namespace orvane_tamsel::indexer
