#pragma once
// Names written as one run of letters (listdir, getaddrinfo, MAXSIZE) split into the words they
// join, so that a question's words can meet them.

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "orvane_tamsel/index/english_words.h"

namespace orvane_tamsel::index {

// Not safe to share between threads: it keeps the splits it made.
class NameSplitter {
 public:
  // `repository_words`: what the repository writes as separate parts of its names (see
  // repository_words); `english`: the dictionary, which must outlive the splitter.
  NameSplitter(const std::vector<std::string>& repository_words, const EnglishWords& english);

  // The words a lower-case run joins, in order: the split with the fewest parts, each a known
  // word, parts that are no English word split again (getaddrinfo: get, addr, info). Empty when
  // the run is an English word itself or no split covers it.
  std::vector<std::string> split(std::string_view run) const;

  // A name's sub-words, then the words its runs of letters join, each once.
  std::vector<std::string> words_of(std::string_view name) const;

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  std::unordered_set<std::string, Hash, std::equal_to<>> repository_;
  const EnglishWords& english_;
  // Splits already made: names repeat across a code base (get, String, __init__).
  mutable std::unordered_map<std::string, std::vector<std::string>, Hash, std::equal_to<>> made_;
  std::vector<std::string> split_once(std::string_view run) const;
  void split_into(std::string_view run, int depth, std::vector<std::string>& out) const;
};

// The sub-words that at least two names of two or more sub-words share, letters only, sorted:
// the repository's own vocabulary of name parts (dir, addr, kwargs).
std::vector<std::string> repository_words(const std::vector<std::string>& names);

// What the `name` column of the symbol text table holds: the name as written, then its words.
std::string name_text(std::string_view name, const NameSplitter* splitter);

}  // namespace orvane_tamsel::index
