#include "orvane_tamsel/index/meaning_words.h"

#include <algorithm>
#include <cctype>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/index/word_stem.h"

namespace orvane_tamsel::index {

namespace {

// A question's function words, and the words nearly every docstring or signature uses.
const std::set<std::string, std::less<>>& stop_words() {
  static const std::set<std::string, std::less<>> words = {
      "a",      "about", "all",   "an",     "and",         "any",       "are",     "as",    "at",
      "be",     "been",  "being", "but",    "by",          "can",       "could",   "do",    "does",
      "did",    "done",  "for",   "from",   "get",         "gets",      "got",     "has",   "have",
      "having", "how",   "if",    "in",     "into",        "is",        "it",      "its",   "me",
      "my",     "of",    "on",    "or",     "our",         "should",    "so",      "some",  "that",
      "the",    "their", "them",  "then",   "there",       "these",     "this",    "those", "to",
      "use",    "used",  "uses",  "using",  "was",         "we",        "were",    "what",  "when",
      "where",  "which", "while", "who",    "whom",        "why",       "will",    "with",  "would",
      "you",    "your",  "find",  "show",   "tell",        "explain",   "happens", "work",  "works",
      "code",   "way",   "ways",  "place",  "places",      "not",       "no",      "one",   "also",
      "may",    "must",  "than",  "other",  "only",        "more",      "such",    "each",  "own",
      "same",   "both",  "just",  "very",   "return",      "returns",   "self",    "none",  "true",
      "false",  "cls",   "args",  "kwargs", "implemented", "implement", "defined", "define"};
  return words;
}

// The docstring up to its first full stop followed by white space, or its first blank line.
std::string_view first_sentence(std::string_view doc) {
  for (std::size_t i = 0; i + 1 < doc.size(); ++i) {
    if (doc[i] == '.' && std::isspace(static_cast<unsigned char>(doc[i + 1]))) {
      return doc.substr(0, i);
    }
    if (doc[i] == '\n') {
      auto next = doc.find_first_not_of(" \t\r", i + 1);
      if (next != std::string_view::npos && doc[next] == '\n') return doc.substr(0, i);
    }
  }
  return doc;
}

std::string_view last_part(std::string_view fqn) {
  auto dot = fqn.rfind('.');
  return dot == std::string_view::npos ? fqn : fqn.substr(dot + 1);
}

// How many docstring and parameter words learning reads: the first words say what a symbol is
// for; the rest describe details.
constexpr std::size_t DOC_WORDS = 40;
constexpr std::size_t PARAMETER_WORDS = 12;

}  // namespace

const std::set<std::string>& retrievable_kinds() {
  static const std::set<std::string> kinds = {
      "class", "function",    "method", "interface", "struct", "enum",   "trait",
      "type",  "constructor", "macro",  "namespace", "union",  "record", "object"};
  return kinds;
}

std::vector<std::string> meaning_words(std::string_view text, std::size_t limit) {
  std::vector<std::string> out;
  if (limit == 0) return out;
  for (auto& w : subwords(text)) {
    if (w.size() < 2 ||
        std::all_of(w.begin(), w.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
        stop_words().count(w) != 0) {
      continue;
    }
    out.push_back(stem(w));
    if (out.size() == limit) break;
  }
  return out;
}

std::vector<std::string> context_words(const SymbolText& symbol) {
  auto out = meaning_words(symbol.name);
  auto add = [&out](std::vector<std::string> more) {
    out.insert(out.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
  };
  add(meaning_words(last_part(symbol.parent_fqn)));
  add(meaning_words(symbol.docstring, DOC_WORDS));
  auto open = symbol.signature.find('(');
  if (open != std::string::npos) {
    add(meaning_words(std::string_view(symbol.signature).substr(open), PARAMETER_WORDS));
  }
  return out;
}

std::vector<std::pair<std::string, float>> vector_words(const SymbolText& symbol) {
  std::vector<std::pair<std::string, float>> out;
  for (auto& w : meaning_words(symbol.name)) out.emplace_back(std::move(w), 1.0F);
  for (auto& w : meaning_words(last_part(symbol.parent_fqn))) out.emplace_back(std::move(w), 0.5F);
  for (auto& w : meaning_words(first_sentence(symbol.docstring))) {
    out.emplace_back(std::move(w), 0.5F);
  }
  return out;
}

}  // namespace orvane_tamsel::index
