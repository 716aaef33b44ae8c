#pragma once
// English words from the WordNet dictionary Debian ships, for telling words from names.

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

namespace orvane_tamsel::index {

class EnglishWords {
 public:
  // Reads the lemmas of index.noun, index.verb, index.adj and index.adv under `dictionary`
  // (none when the files are missing). `in_memory` hashes them all up front, for a full build's
  // many lookups; otherwise each lookup searches the mapped files, which costs nothing to open.
  EnglishWords(const std::filesystem::path& dictionary, bool in_memory);
  ~EnglishWords();
  EnglishWords(const EnglishWords&) = delete;
  EnglishWords& operator=(const EnglishWords&) = delete;

  // Whether `word` (lower-case letters, three or more) is a lemma or a regular inflection of one
  // ("lines", "parsed", "encoding").
  bool knows(std::string_view word) const;

  static std::filesystem::path default_dictionary();

 private:
  class Mapped;
  std::array<std::unique_ptr<Mapped>, 4> files_;
  std::unordered_set<std::string_view> lemmas_;  // views into files_, when in memory
  bool in_memory_;
  bool lemma(std::string_view word) const;
};

// The installed dictionary, searched in place; shared by the whole process.
const EnglishWords& english_words();

}  // namespace orvane_tamsel::index
