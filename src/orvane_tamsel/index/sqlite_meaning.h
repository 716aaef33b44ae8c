#pragma once
// The meaning vectors in the index: two tables (words, symbols) and their keys in meta.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "orvane_tamsel/index/meaning_vectors.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

// Created with the other tables, and added to an index written before they existed.
extern const char* const MEANING_TABLES;

// Changes whenever a meaning pass writes; nullopt when none ever ran (the signal is off).
std::optional<std::int64_t> meaning_generation(Database& db);
// Every word and symbol row; null when no meaning pass ran.
std::shared_ptr<const MeaningVectors> load_meaning(Database& db);
// The word rows only (no symbols), for a pass that keeps them.
MeaningVectors load_meaning_words(Database& db);
// How many symbols the stored word vectors were learned from (0: none stored).
std::int64_t meaning_learned_from(Database& db);

// The SQL condition that the symbols row named `row` is production code of a retrievable kind:
// the symbols that get a vector.
std::string production_symbol_sql(std::string_view row);
// How many such symbols the index holds, as the writer keeps the count in meta (nullopt: not
// kept), so that a small update need not count them.
std::optional<std::int64_t> stored_production_symbols(Database& db);
void store_production_symbols(Database& db, std::int64_t count);

// Replaces the word rows and forgets every symbol row; `learned_from` is the symbol count.
void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from);
// Marks a pass done: the next reader loads the vectors again.
void bump_meaning_generation(Database& db);

}  // namespace orvane_tamsel::index
