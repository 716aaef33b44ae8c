#include "orvane_tamsel/workers/question_form.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "orvane_tamsel/workers/class_bases.h"

namespace orvane_tamsel::workers {

namespace {

std::string lower_word(std::string_view text, std::size_t& at) {
  while (at < text.size() && !std::isalnum(static_cast<unsigned char>(text[at]))) ++at;
  std::string word;
  for (; at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])); ++at) {
    word.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(text[at]))));
  }
  return word;
}

bool one_of(std::string_view word, const auto& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

QuestionForm question_form(std::string_view query) {
  // The verbs that open a yes-or-no question in English.
  static constexpr std::array<std::string_view, 14> auxiliaries = {
      "is",   "are",    "does", "do",   "can",  "could", "has",
      "have", "should", "was",  "were", "will", "may",   "must"};
  static constexpr std::array<std::string_view, 7> error_words = {
      "error", "errors", "exception", "exceptions", "raise", "raises", "raised"};
  static constexpr std::array<std::string_view, 15> failure_words = {
      "fail",      "fails", "failed", "failure", "invalid", "missing",  "cannot",     "unknown",
      "malformed", "bad",   "wrong",  "refused", "rejects", "rejected", "unsupported"};
  QuestionForm form;
  bool failure = false;
  std::size_t at = 0;
  for (bool first = true; at < query.size(); first = false) {
    auto word = lower_word(query, at);
    if (word.empty()) break;
    if (first) form.yes_no = one_of(word, auxiliaries);
    form.error = form.error || one_of(word, error_words);
    failure = failure || one_of(word, failure_words);
  }
  form.failure = failure && !form.error;
  return form;
}

bool predicate_name(std::string_view name) {
  static constexpr std::array<std::string_view, 12> verbs = {"is",    "has",    "can",     "should",
                                                             "must",  "was",    "does",    "needs",
                                                             "allow", "allows", "accepts", "may"};
  for (auto verb : verbs) {
    if (name.size() < verb.size()) continue;
    // Python spells the verb in lower case, Go capitalises an exported one.
    if (std::tolower(static_cast<unsigned char>(name[0])) != verb[0] ||
        name.substr(1, verb.size() - 1) != verb.substr(1)) {
      continue;
    }
    if (name.size() == verb.size()) return true;
    char next = name[verb.size()];
    if (next == '_' || (next >= 'A' && next <= 'Z')) return true;
  }
  return false;
}

bool error_type_name(std::string_view name) {
  return name.ends_with("Error") || name.ends_with("Exception") || name.ends_with("Err") ||
         name.ends_with("Warning");
}

bool error_type(std::string_view name, std::string_view signature) {
  if (error_type_name(name)) return true;
  auto bases = class_bases(signature);
  return std::any_of(bases.begin(), bases.end(), error_type_name);
}

}  // namespace orvane_tamsel::workers
