#include "orvane_tamsel/workers/question_head.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/index/word_stem.h"
#include "orvane_tamsel/workers/class_bases.h"

namespace orvane_tamsel::workers {

namespace {

bool one_of(std::string_view word, const auto& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

std::string question_head(std::string_view query,
                          const std::function<bool(const std::string&)>& verb) {
  static constexpr std::array<std::string_view, 24> boundaries = {
      "of",    "for", "that", "which", "who",    "whose", "with",  "in",
      "into",  "on",  "at",   "from",  "to",     "by",    "as",    "when",
      "where", "so",  "than", "about", "before", "after", "while", "without"};
  static constexpr std::array<std::string_view, 11> determiners = {
      "a", "an", "the", "all", "each", "every", "some", "any", "its", "their", "one"};
  static constexpr std::array<std::string_view, 22> openings = {
      "is",   "are", "does", "do",  "can",  "could", "has",   "have", "should", "was", "were",
      "will", "may", "must", "how", "what", "why",   "where", "when", "which",  "who", "whose"};
  std::string head;
  std::size_t at = 0;
  for (std::size_t k = 0;; ++k) {
    while (at < query.size() && !std::isalnum(static_cast<unsigned char>(query[at]))) ++at;
    std::string word;
    for (; at < query.size() && std::isalnum(static_cast<unsigned char>(query[at])); ++at) {
      word.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(query[at]))));
    }
    if (word.empty()) break;
    if (k == 0 && (one_of(word, openings) || verb(word))) return {};
    bool participle = word.ends_with("ing") || word.ends_with("ed");
    if (one_of(word, boundaries) || (k > 0 && !head.empty() && participle)) break;
    if (one_of(word, determiners)) {
      // A determiner past the first word follows a verb: "convert a raster into ...".
      if (k > 0) return {};
      continue;
    }
    head = word;
  }
  return head.empty() ? head : index::stem(head);
}

bool ends_on_head(std::string_view name, bool thing, const std::string& head,
                  std::string_view signature) {
  if (head.empty()) return false;
  auto words = index::subwords(name);
  if (words.empty() || (words.size() < 2 && !thing)) return false;
  if (index::stem(words.back()) == head) return true;
  // A class named for what it holds, of the kind the head names: a protocol SupportsInt, an
  // exception QueueEmpty.
  for (auto base : class_bases(signature)) {
    auto said = index::subwords(base);
    if (!said.empty() && index::stem(said.back()) == head) return true;
  }
  return false;
}

}  // namespace orvane_tamsel::workers
