#include "orvane_tamsel/utils/query_terms.h"

#include <algorithm>
#include <cctype>
#include <unordered_set>

#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::utils {

namespace {

// English function words and question words that carry no meaning for a code search.
const std::unordered_set<std::string> STOP_WORDS = {
    "a",     "about",   "all",     "an",     "and",         "any",     "are",     "as",     "at",
    "be",    "been",    "being",   "but",    "by",          "can",     "could",   "do",     "does",
    "did",   "done",    "for",     "from",   "got",         "has",     "have",    "having", "how",
    "i",     "if",      "in",      "into",   "is",          "it",      "its",     "me",     "my",
    "of",    "on",      "or",      "our",    "so",          "some",    "that",    "the",    "their",
    "them",  "then",    "there",   "these",  "this",        "those",   "to",      "use",    "used",
    "uses",  "using",   "was",     "we",     "were",        "what",    "when",    "where",  "which",
    "while", "who",     "whom",    "why",    "will",        "with",    "would",   "you",    "your",
    "tell",  "explain", "happens", "code",   "implemented", "defined", "handled", "called", "does",
    "way",   "ways",    "place",   "places", "not",         "one",     "whether", "show"};

// Verbs that name code as often as they frame a question (handle_request, reflect.Value.Call,
// Element.find, get_*, shouldFlush): a term unless the word after them frames it ("find me",
// "find out whether", "should I"). "show" stays a stop word: questions say it of output far more
// than names do.
const std::unordered_set<std::string> FRAME_VERBS = {"handle", "handles", "call",      "calls",
                                                     "find",   "define",  "implement", "work",
                                                     "works",  "get",     "gets",      "should"};
const std::unordered_set<std::string> FRAME_FOLLOWERS = {
    "me",      "us",  "out",  "where", "how", "what", "which",
    "whether", "why", "when", "who",   "i",   "we",   "you"};

// Capitalised words that start sentences in plain English; everything else capitalised and
// identifier-shaped is read as a name in code.
const std::unordered_set<std::string> COMMON_CAPITALISED = {
    "A",     "An",       "The",   "How",    "What",  "Where",   "When",  "Which",  "Who",
    "Why",   "Is",       "Are",   "Does",   "Do",    "Can",     "Could", "Should", "Would",
    "Will",  "Find",     "Show",  "List",   "Tell",  "Explain", "Give",  "Get",    "Please",
    "This",  "That",     "These", "Those",  "In",    "On",      "For",   "From",   "With",
    "Of",    "To",       "And",   "Or",     "Not",   "All",     "Any",   "Some",   "My",
    "Our",   "Your",     "It",    "If",     "Tests", "Test",    "Unit",  "Module", "File",
    "Files", "Function", "Class", "Method", "Code",  "Where's", "I",     "We",     "You",
    "Use",   "Using",    "Why's", "Help",   "Check", "Make",    "Add"};

bool identifier_shaped(const std::string& w) {
  if (w.empty()) return false;
  for (unsigned char c : w) {
    if (!(std::isalnum(c) || c == '_' || c == '$')) return false;
  }
  return true;
}

// Sub-words of an identifier: snake_case, camelCase, PascalCase and letter/digit runs.
std::vector<std::string> sub_words(const std::string& w) {
  std::vector<std::string> out;
  std::string cur;
  auto flush = [&] {
    if (!cur.empty()) out.push_back(lower(cur));
    cur.clear();
  };
  for (std::size_t i = 0; i < w.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(w[i]);
    if (c == '_' || c == '$') {
      flush();
      continue;
    }
    if (!cur.empty()) {
      unsigned char p = static_cast<unsigned char>(cur.back());
      bool upper_after_lower = std::isupper(c) && std::islower(p);
      bool acronym_end = std::isupper(c) && std::isupper(p) && i + 1 < w.size() &&
                         std::islower(static_cast<unsigned char>(w[i + 1]));
      bool digit_edge = (std::isdigit(c) != 0) != (std::isdigit(p) != 0);
      if (upper_after_lower || acronym_end || digit_edge) flush();
    }
    cur.push_back(static_cast<char>(c));
  }
  flush();
  return out;
}

}  // namespace

bool reads_as_code(const std::string& word) {
  if (!identifier_shaped(word)) return false;
  bool has_alpha = false, has_digit = false, has_lower = false, inner_upper = false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(word[i]);
    has_alpha |= std::isalpha(c) != 0;
    has_digit |= std::isdigit(c) != 0;
    has_lower |= std::islower(c) != 0;
    if (i > 0 && std::isupper(c)) inner_upper = true;
  }
  if (!has_alpha) return false;
  if (word.find('_') != std::string::npos || word.find('$') != std::string::npos) return true;
  if (inner_upper && has_lower) return true;  // camelCase, PascalCase
  if (has_digit && !std::isdigit(static_cast<unsigned char>(word.front()))) return true;
  if (std::isupper(static_cast<unsigned char>(word.front())) && word.size() > 1 && has_lower) {
    return COMMON_CAPITALISED.count(word) == 0;
  }
  return false;
}

std::vector<std::string> query_terms(const std::string& query) {
  // Words are runs of letters, digits, '_' and '$'; "." "::" "#" split qualified names.
  std::vector<std::string> words;
  std::string word;
  for (unsigned char c : query) {
    if (std::isalnum(c) || c == '_' || c == '$' || c >= 0x80) {
      word.push_back(static_cast<char>(c));
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  if (!word.empty()) words.push_back(std::move(word));

  std::vector<std::string> terms;
  std::unordered_set<std::string> seen;
  auto add = [&](const std::string& t) {
    if (t.size() < 2 && !(t.size() == 1 && std::isdigit(static_cast<unsigned char>(t[0])))) return;
    if (STOP_WORDS.count(t) != 0) return;
    if (seen.insert(t).second) terms.push_back(t);
  };
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& w = words[i];
    std::string low = lower(w);
    if (FRAME_VERBS.count(low) != 0) {
      bool framed = i + 1 < words.size() && FRAME_FOLLOWERS.count(lower(words[i + 1])) != 0;
      if (!framed && seen.insert(low).second) terms.push_back(low);
      if (framed && lower(words[i + 1]) == "out") ++i;  // "find out": the phrase frames
      continue;
    }
    if (reads_as_code(w)) {
      add(low);
      for (const auto& s : sub_words(w)) add(s);
    } else {
      add(low);
    }
  }
  // Said with nothing else ("how does it work"), a verb names nothing to look for.
  if (std::all_of(terms.begin(), terms.end(),
                  [](const std::string& t) { return FRAME_VERBS.count(t) != 0; })) {
    terms.clear();
  }
  return terms;
}

bool is_test_query(const std::vector<std::string>& terms) {
  static const std::unordered_set<std::string> TEST_WORDS = {
      "test", "tests", "testing", "tested",   "unittest", "unittests", "pytest",
      "spec", "specs", "fixture", "fixtures", "coverage", "covered",   "covers"};
  return std::any_of(terms.begin(), terms.end(),
                     [](const std::string& t) { return TEST_WORDS.count(t) != 0; });
}

}  // namespace orvane_tamsel::utils
