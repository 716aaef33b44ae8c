#include "orvane_tamsel/index/subwords.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace orvane_tamsel::index {

namespace {

bool is_upper(char c) {
  return c >= 'A' && c <= 'Z';
}
bool is_lower(char c) {
  return (c >= 'a' && c <= 'z') || static_cast<unsigned char>(c) >= 0x80;
}
bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_word(char c) {
  return is_upper(c) || is_lower(c) || is_digit(c);
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

std::vector<std::string> digit_pieces(std::string_view word) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (std::size_t i = 1; i <= word.size(); ++i) {
    if (i == word.size() || is_digit(word[i]) != is_digit(word[i - 1])) {
      pieces.emplace_back(word.substr(start, i - start));
      start = i;
    }
  }
  if (pieces.size() < 2) pieces.clear();
  return pieces;
}

void add_digit_pieces(std::vector<std::string>& words) {
  const std::size_t own = words.size();
  for (std::size_t i = 0; i < own; ++i) {
    for (auto& p : digit_pieces(words[i])) {
      if (std::find(words.begin(), words.end(), p) == words.end()) words.push_back(std::move(p));
    }
  }
}

std::string with_digit_pieces(std::string_view text) {
  std::string out(text);
  std::set<std::string> added;
  for (const auto& w : subwords(text)) {
    for (auto& p : digit_pieces(w)) {
      if (added.insert(p).second) out += " " + p;
    }
  }
  return out;
}

std::string name_text(std::string_view name) {
  auto words = subwords(name);
  add_digit_pieces(words);
  std::string text(name);
  for (const auto& w : words) text += " " + w;
  return text;
}

}  // namespace orvane_tamsel::index
