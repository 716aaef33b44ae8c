#pragma once
// The word table port: a fixed vector per word, looked up by the word alone. The sentence model's
// table (built by scripts/sentence_words.js) is one; tests use their own.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

namespace orvane_tamsel::index {

class WordTable {
 public:
  virtual ~WordTable() = default;
  virtual std::size_t dimensions() const = 0;
  // The word's row of dimensions() signed bytes (a unit vector x 127); null when not held.
  virtual const std::int8_t* row(std::string_view word) const = 0;
};

// The table in `file`, mapped read-only; null when the file is missing, of another layout or cut
// off (a damaged table turns the signal off rather than misleading it).
std::shared_ptr<const WordTable> open_word_table(const std::filesystem::path& file);

// Where the sentence model's table is: $TAMSEL_SENTENCE_WORDS, else beside the binary, else in
// ../share/tamsel from it (installed).
std::filesystem::path default_sentence_table();

}  // namespace orvane_tamsel::index
