#pragma once
// The meaning vectors in the index: three tables (words, symbols, which symbols changed when) and
// their keys in meta.

#include <cstdint>
#include <optional>
#include <string>
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

// Every word row, for a pass that keeps them.
MeaningVectors load_meaning_words(Database& db);
// The rows of these words, added to `into` (its dims set from the index); unknown words add none.
void read_meaning_words(Database& db, const std::vector<std::string>& words, MeaningVectors& into);
// Every symbol row, added to `into`, whose dims are set.
void read_meaning_symbols(Database& db, MeaningVectors& into);
// The symbol rows a pass after `generation` wrote or dropped, applied to `into`.
void apply_meaning_changes(Database& db, std::int64_t generation, MeaningVectors& into);

// Replaces the word rows and forgets every symbol row and change, as the pass of `generation`
// that learned them from `learned_from` symbols.
void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from,
                         std::int64_t generation);
// Writes or drops one symbol's row (an empty row drops it) in the pass of `generation`; a row
// that stays as it was is not a change.
class MeaningSymbolWriter {
 public:
  MeaningSymbolWriter(Database& db, std::int64_t generation);
  void put(SymbolId id, bool is_test, const std::vector<float>& row);
  // Drops the rows of symbols the index no longer holds.
  void drop_gone();

 private:
  Statement old_, put_, drop_, changed_, gone_;
  std::int64_t generation_;
};
// Marks the pass of `generation` done: readers catch up with it.
void set_meaning_generation(Database& db, std::int64_t generation);

}  // namespace orvane_tamsel::index
