#include "orvane_tamsel/index/english_words.h"

#include <vector>

#include "orvane_tamsel/utils/wordnet_files.h"

namespace orvane_tamsel::index {

namespace {

// Three letters at least: the dictionary's shorter entries are mostly abbreviations ("ab", "de").
constexpr std::size_t MIN_LEMMA = 3;
constexpr std::size_t MAX_LEMMA = 24;

bool letters(std::string_view s) {
  for (char c : s) {
    if (c < 'a' || c > 'z') return false;
  }
  return true;
}

bool ends_with(std::string_view s, std::string_view end) {
  return s.size() > end.size() && s.substr(s.size() - end.size()) == end;
}

}  // namespace

// A mapped dictionary index file.
class EnglishWords::Mapped : public utils::MappedFile {
 public:
  using MappedFile::MappedFile;
  bool holds(std::string_view word) const { return !utils::find_line(text(), word).empty(); }
};

EnglishWords::EnglishWords(const std::filesystem::path& dictionary, bool in_memory)
    : in_memory_(in_memory) {
  std::size_t p = 0;
  for (const char* pos : {"noun", "verb", "adj", "adv"}) {
    files_[p] = std::make_unique<Mapped>(dictionary / (std::string("index.") + pos));
    if (in_memory) {
      auto all = files_[p]->text();
      for (std::size_t at = 0; at < all.size();) {
        auto end = all.find('\n', at);
        if (end == std::string_view::npos) end = all.size();
        auto line = all.substr(at, end - at);
        at = end + 1;
        auto lemma = line.substr(0, line.find(' '));
        if (lemma.size() >= MIN_LEMMA && lemma.size() <= MAX_LEMMA && letters(lemma)) {
          lemmas_.insert(lemma);
        }
      }
    }
    ++p;
  }
}

EnglishWords::~EnglishWords() = default;

std::filesystem::path EnglishWords::default_dictionary() {
  return "/usr/share/wordnet";
}

bool EnglishWords::lemma(std::string_view word) const {
  if (word.size() < MIN_LEMMA || word.size() > MAX_LEMMA) return false;
  if (in_memory_) return lemmas_.find(word) != lemmas_.end();
  for (const auto& f : files_) {
    if (f->holds(word)) return true;
  }
  return false;
}

bool EnglishWords::knows(std::string_view word) const {
  if (lemma(word)) return true;
  // Regular endings, as WordNet's own morphology strips them: (ending, what it replaced).
  static const std::array<std::pair<std::string_view, std::string_view>, 11> ENDINGS = {{
      {"s", ""},
      {"es", ""},
      {"ies", "y"},
      {"ed", ""},
      {"ed", "e"},
      {"ing", ""},
      {"ing", "e"},
      {"er", ""},
      {"er", "e"},
      {"ers", ""},
      {"ers", "e"},
  }};
  std::string base;
  for (const auto& [end, with] : ENDINGS) {
    if (!ends_with(word, end)) continue;
    base.assign(word.substr(0, word.size() - end.size()));
    base += with;
    if (lemma(base)) return true;
  }
  return false;
}

const EnglishWords& english_words() {
  static const EnglishWords words(EnglishWords::default_dictionary(), false);
  return words;
}

}  // namespace orvane_tamsel::index
