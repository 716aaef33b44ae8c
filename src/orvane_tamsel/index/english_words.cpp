#include "orvane_tamsel/index/english_words.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

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

// The first field of the line holding `at`.
std::string_view key_at(std::string_view text, std::size_t at, std::size_t& start,
                        std::size_t& end) {
  start = text.rfind('\n', at);
  start = start == std::string_view::npos ? 0 : start + 1;
  end = text.find('\n', at);
  if (end == std::string_view::npos) end = text.size();
  auto line = text.substr(start, end - start);
  return line.substr(0, line.find(' '));
}

}  // namespace

// A read-only view of a whole file; pages are read only when a lookup touches them.
class EnglishWords::Mapped {
 public:
  explicit Mapped(const std::filesystem::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && st.st_size > 0) {
      void* p =
          ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
      if (p != MAP_FAILED) {
        data_ = static_cast<const char*>(p);
        size_ = static_cast<std::size_t>(st.st_size);
      }
    }
    ::close(fd);
  }
  ~Mapped() {
    if (data_ != nullptr) ::munmap(const_cast<char*>(data_), size_);
  }
  Mapped(const Mapped&) = delete;
  Mapped& operator=(const Mapped&) = delete;
  std::string_view text() const { return {data_, size_}; }

  // Whether a line of this sorted index file starts with `word` and a space. The licence at the
  // top is indented and sorts first.
  bool holds(std::string_view word) const {
    auto t = text();
    std::size_t lo = 0, hi = t.size();
    while (lo < hi) {
      std::size_t start = 0, end = 0;
      auto key = key_at(t, lo + (hi - lo) / 2, start, end);
      if (start < lo) start = lo;
      if (t.substr(start, 1) == " " || key < word) {
        lo = end + 1;
      } else if (key > word) {
        hi = start;
      } else {
        return true;
      }
    }
    return false;
  }

 private:
  const char* data_ = nullptr;
  std::size_t size_ = 0;
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
