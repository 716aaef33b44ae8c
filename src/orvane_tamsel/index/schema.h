#pragma once
// The one SQLite schema of the code index, and its version.

#include <filesystem>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

// Bump on every change to the tables below: an index of another version is rebuilt.
inline constexpr int SCHEMA_VERSION = 20;

// Bump whenever extraction stores something else for the same source (new kinds, fqn rules,
// call evidence): an index of another extractor version is rebuilt, so unchanged files do not
// keep what an older tamsel extracted.
inline constexpr int EXTRACTOR_VERSION = 22;

// DIR/.tamsel/index.db
std::filesystem::path index_file(const std::filesystem::path& repository_root);
// The index file of a repository that has one; throws, saying to index first, when it has none.
std::filesystem::path existing_index_file(const std::filesystem::path& repository_root);

// Sets WAL mode and creates the tables; an index of another schema or extractor version is
// emptied and recreated (said on stderr). Returns true when it rebuilt an existing index.
bool prepare_for_writing(Database& db);

// A first full build drops the lookup indexes that only reads need, and creates them at the end.
void drop_deferrable_indexes(Database& db);
void create_deferrable_indexes(Database& db);

// A first build writes each page once, into the file: a rollback journal holds only the few pages
// the file had, where the log would take every page and copy it into the file again. Call
// outside a transaction; another connection keeps the log (false).
bool journal_first_build(Database& db);
// A first build commits its files in batches and links them all at its end. Until then the index
// holds files whose calls are not linked (partial), and the next build resumes from them.
bool build_unfinished(Database& db);
void set_build_unfinished(Database& db, bool unfinished);
// Back to the log that readers and updates use; if another connection is in the way, the next
// writer switches (prepare_for_writing).
void restore_log(Database& db);

// The schema version the index was written with (0 when it holds no tables).
int schema_version_of(Database& db);

// The name parts a first build kept (name_words), sorted; none in an index without the table.
std::vector<std::string> stored_name_words(Database& db);

}  // namespace orvane_tamsel::index
