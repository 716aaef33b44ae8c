#include "orvane_tamsel/index/subwords.h"

#include <cctype>

namespace orvane_tamsel::index {

namespace {

bool is_upper(char c) {
  return c >= 'A' && c <= 'Z';
}
bool is_lower(char c) {
  return (c >= 'a' && c <= 'z') || static_cast<unsigned char>(c) >= 0x80;
}
bool is_word(char c) {
  return is_upper(c) || is_lower(c) || (c >= '0' && c <= '9');
}

}  // namespace

std::vector<std::string> subwords(std::string_view name) {
  std::vector<std::string> words;
  std::string word;
  auto flush = [&] {
    if (!word.empty()) words.push_back(std::move(word));
    word.clear();
  };
  for (std::size_t i = 0; i < name.size(); ++i) {
    char c = name[i];
    if (!is_word(c)) {
      flush();
      continue;
    }
    if (is_upper(c) && !word.empty()) {
      char prev = name[i - 1];
      bool next_lower = i + 1 < name.size() && is_lower(name[i + 1]) &&
                        static_cast<unsigned char>(name[i + 1]) < 0x80;
      // aB splits before B; ABc splits before B (the end of an acronym)
      if (!is_upper(prev) || next_lower) flush();
    }
    word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  flush();
  return words;
}

std::string name_text(std::string_view name) {
  std::string text(name);
  for (const auto& w : subwords(name)) text += " " + w;
  return text;
}

}  // namespace orvane_tamsel::index
