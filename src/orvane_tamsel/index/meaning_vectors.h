#pragma once
// Word and symbol vectors learned from the repository at index time, held for search: words used
// in the same symbols lie near each other, and a symbol or a question is the weighted sum of its
// words, so a question meets code that says the same thing in other words.

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::index {

struct MeaningVectors {
  std::size_t dims = 0;
  std::unordered_map<std::string, std::uint32_t> word_rows;
  std::vector<float> word_weights;  // per row: how specific the word is (its idf among symbols)
  std::vector<float> words;         // one row of `dims` per word, unit length
  std::vector<SymbolId> symbol_ids;
  std::vector<std::uint8_t> symbol_is_test;
  // One row of `dims` signed bytes per symbol and its scale: the row is scale x bytes, unit
  // length within rounding. A question reads every row; a quarter of the floats' size.
  std::vector<float> symbol_scales;
  std::vector<float> symbol_sizes;  // scale x the sum of the bytes' sizes, to bound a rough score
  std::vector<std::int8_t> symbols;
  std::vector<std::int64_t> symbol_files;  // per row: the file it was stored with (0: none)
  std::unordered_map<SymbolId, std::uint32_t> symbol_rows;

  void add_word(const std::string& word, float weight, const float* row);
  // Adds the symbol's row, or replaces it when the symbol has one; a row of floats is packed as
  // row_bytes packs it, a row of row_bytes is kept as it is.
  void add_symbol(SymbolId id, bool is_test, const float* row, std::int64_t file = 0);
  void add_symbol(SymbolId id, bool is_test, std::string_view packed, std::int64_t file = 0);
  // Forgets the symbol's row (the last row takes its place); nothing when it has none.
  void remove_symbol(SymbolId id);
  // Forgets every row stored with one of the files.
  void remove_files(const std::set<std::int64_t>& files);
  // The unit sum of the known words' rows, each times its own weight and the given one; empty
  // when no word is known.
  std::vector<float> text_vector(const std::vector<std::pair<std::string, float>>& words) const;
  // The `limit` symbols nearest a unit vector, best first; the score is the cosine.
  std::vector<ScoredSymbol> nearest(const std::vector<float>& unit, int limit,
                                    bool include_tests) const;
  // The cosine of a unit vector with one symbol's; 0 when the symbol has none.
  double similarity(const std::vector<float>& unit, SymbolId id) const;
};

// A unit row as the index stores it: a scale (a float, in the machine's order) and one signed
// byte per dimension, a quarter of the floats' size, so a reader loads every symbol's row fast.
std::string row_bytes(const float* row, std::size_t dims);
// The row of those bytes, of unit length within rounding (or `dims` floats, as earlier indexes
// stored them); false when the bytes are neither.
bool read_row(std::string_view bytes, std::size_t dims, std::vector<float>& into);
// Whether the bytes are a row as row_bytes packs it.
bool is_packed_row(std::string_view bytes, std::size_t dims);

// Every symbol row of `rows` in one blob, as the index stores a file's rows: the ids, test flags
// and scales, then the rows' bytes. A reader adds a file's rows from one value instead of a
// database row per symbol.
std::string pack_symbol_rows(const MeaningVectors& rows);
// Adds the rows of a pack_symbol_rows blob to `into` (whose dims are set), as stored with `file`;
// false, adding none, when the blob is not rows of that width.
bool add_packed_rows(std::string_view blob, std::int64_t file, MeaningVectors& into);

}  // namespace orvane_tamsel::index
