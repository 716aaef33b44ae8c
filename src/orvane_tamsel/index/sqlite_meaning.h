#pragma once
// The meaning vectors in the index: the word rows, the symbol rows of each file, which symbols
// changed since the words were learned, which files wait for their rows, and their keys in meta.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/index/meaning_vectors.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

// Created with the other tables, and added to an index written before they existed.
extern const char* const MEANING_TABLES;

// Changes whenever a meaning pass writes; nullopt when none ever ran (the signal is off).
std::optional<std::int64_t> meaning_generation(Database& db);
// The generation whose pass learned the word vectors now stored (0: before it was recorded).
std::int64_t meaning_words_generation(Database& db);
// How many symbols the stored word vectors were learned from (0: none stored).
std::int64_t meaning_learned_from(Database& db);
// How many symbols got another vector, or lost theirs, since the words were learned.
std::int64_t meaning_changed_since_learning(Database& db);

// The SQL condition that the symbols row named `row` is production code of a retrievable kind:
// the symbols that get a vector.
std::string production_symbol_sql(std::string_view row);
// How many such symbols the index holds, as the writer keeps the count in meta (nullopt: not
// kept), so that a small update need not count them.
std::optional<std::int64_t> stored_production_symbols(Database& db);
void store_production_symbols(Database& db, std::int64_t count);
// A trigger that lists the file of a deleted symbol as waiting for its rows, so that the coming
// pass writes them again even when the file was not (a removed file, a declaration merged away)
// and need not look for rows left over.
extern const char* const NOTE_GONE_SYMBOLS;

// Every word row, for a pass that keeps them.
MeaningVectors load_meaning_words(Database& db);
// The rows of these words, added to `into` (its dims set from the index); unknown words add none.
void read_meaning_words(Database& db, const std::vector<std::string>& words, MeaningVectors& into);
// Every symbol row, added to `into` (whose dims are set) with its file.
void read_meaning_symbols(Database& db, MeaningVectors& into);
// The rows of the files a pass after `generation` wrote replace those `into` holds of them.
void apply_meaning_changes(Database& db, std::int64_t generation, MeaningVectors& into);
// The files NOTE_GONE_SYMBOLS listed, and forgets them.
std::vector<std::int64_t> take_pending_meaning_files(Database& db);

// Replaces the word rows and forgets every symbol row and change, as the pass of `generation`
// that learned them from `learned_from` symbols.
void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from,
                         std::int64_t generation);
// Writes each file's symbol rows in the pass of `generation`.
class MeaningFileWriter {
 public:
  MeaningFileWriter(Database& db, std::int64_t generation);
  // Stores every row of `rows` as the file's (none: the file has no row now). Each symbol whose
  // row is new, other than the stored one or gone is listed as changed; a file whose rows stay
  // as they were is not written.
  void put(std::int64_t file_id, const MeaningVectors& rows);

 private:
  Statement old_, put_, changed_;
  std::int64_t generation_;
};
// Marks the pass of `generation` done: readers catch up with it.
void set_meaning_generation(Database& db, std::int64_t generation);

}  // namespace orvane_tamsel::index
