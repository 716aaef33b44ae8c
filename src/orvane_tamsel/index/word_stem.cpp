#include "orvane_tamsel/index/word_stem.h"

namespace orvane_tamsel::index {

namespace {

bool ends_with(std::string_view s, std::string_view end) {
  return s.size() >= end.size() && s.substr(s.size() - end.size()) == end;
}

}  // namespace

std::string stem(std::string_view word) {
  std::string s(word);
  bool verb_ending = false;
  if (s.size() > 4 && (ends_with(s, "ies") || ends_with(s, "ied"))) {
    s.replace(s.size() - 3, 3, "y");
  } else if (s.size() > 5 && ends_with(s, "ing")) {
    s.resize(s.size() - 3);
    verb_ending = true;
  } else if (s.size() > 4 && ends_with(s, "ed")) {
    s.resize(s.size() - 2);
    verb_ending = true;
  } else if (s.size() > 4 && (ends_with(s, "er") || ends_with(s, "es"))) {
    s.resize(s.size() - 2);
  } else if (s.size() > 3 && ends_with(s, "s") && !ends_with(s, "ss")) {
    s.resize(s.size() - 1);
  }
  // cancelled, stopped, running: the doubled consonant belongs to the ending
  if (verb_ending && s.size() > 3 && s.back() == s[s.size() - 2] &&
      std::string_view("aeiouy").find(s.back()) == std::string_view::npos) {
    s.pop_back();
  }
  if (s.size() > 3 && s.back() == 'e') s.pop_back();
  return s;
}

}  // namespace orvane_tamsel::index
