#include "orvane_tamsel/indexer/doc_sentences.h"

#include <cctype>

namespace orvane_tamsel::indexer {

namespace {

// A sentence longer than this is a list or a table more than a statement.
constexpr int MAX_WORDS = 40;

bool identifier_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool space(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Adds the words of `text` to `out` as one sentence, if it has any.
void keep(std::string_view text, std::vector<std::string>& out) {
  std::string sentence;
  int words = 0;
  std::size_t i = 0;
  while (i < text.size() && words < MAX_WORDS) {
    while (i < text.size() && space(text[i])) ++i;
    auto start = i;
    while (i < text.size() && !space(text[i])) ++i;
    if (i == start) break;
    if (!sentence.empty()) sentence += ' ';
    sentence += text.substr(start, i - start);
    ++words;
  }
  if (!sentence.empty()) out.push_back(std::move(sentence));
}

}  // namespace

std::vector<std::string> doc_sentences(std::string_view doc) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (std::size_t i = 0; i < doc.size(); ++i) {
    char c = doc[i];
    bool end = false;
    std::size_t next = i + 1;
    if (c == '.' || c == '?' || c == '!') {
      // `x.y` goes on, and so do `e.g. this` and `... and`: a mark closes a sentence before a
      // space and what is not a lower-case word, or at the end.
      auto j = next;
      while (j < doc.size() && space(doc[j])) ++j;
      end = j == doc.size() || (j > next && !std::islower(static_cast<unsigned char>(doc[j])));
    } else if (c == '\n') {
      auto j = next;
      while (j < doc.size() && (doc[j] == ' ' || doc[j] == '\t' || doc[j] == '\r')) ++j;
      end = j < doc.size() && doc[j] == '\n';
    }
    if (end) {
      keep(doc.substr(start, next - start), out);
      start = next;
    }
  }
  if (start < doc.size()) keep(doc.substr(start), out);
  return out;
}

std::string first_sentence(std::string_view doc) {
  auto all = doc_sentences(doc);
  return all.empty() ? std::string() : all.front();
}

std::string sentences_naming(std::string_view doc, std::string_view name) {
  std::string out;
  if (name.empty()) return out;
  for (const auto& sentence : doc_sentences(doc)) {
    for (auto at = sentence.find(name); at != std::string::npos; at = sentence.find(name, at + 1)) {
      auto after = at + name.size();
      if ((at == 0 || !identifier_char(sentence[at - 1])) &&
          (after == sentence.size() || !identifier_char(sentence[after]))) {
        if (!out.empty()) out += ' ';
        out += sentence;
        break;
      }
    }
  }
  return out;
}

}  // namespace orvane_tamsel::indexer
