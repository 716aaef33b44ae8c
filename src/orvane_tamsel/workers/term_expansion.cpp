#include "orvane_tamsel/workers/term_expansion.h"

#include <algorithm>
#include <map>
#include <set>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/workers/term_match.h"

namespace orvane_tamsel::workers::detail {

namespace {

// The symbols whose docstrings use a word best (BM25 order) stand for what the word means here.
constexpr int SAMPLE = 200;
// A pairing seen on fewer symbols than this is chance.
constexpr int MIN_WITNESSES = 3;
// The word must name at least one in ten of the symbols described with the question's word.
constexpr double MIN_SHARE = 0.1;
// The word must name those symbols at least this many times more often than symbols at large:
// "get" and "init" name everything and say nothing.
constexpr double MIN_LIFT = 10.0;
constexpr std::size_t PER_TERM = 1;
// Shorter words are mostly English glue ("to", "as") split out of names.
constexpr std::size_t MIN_LENGTH = 4;

bool plain_word(const std::string& t) {
  return t.size() >= MIN_LENGTH &&
         std::all_of(t.begin(), t.end(), [](char c) { return c >= 'a' && c <= 'z'; }) &&
         !utils::query_terms(t).empty();  // not a stop word
}

}  // namespace

std::vector<std::string> expansions(index::Repository& repository,
                                    const std::vector<std::string>& terms) {
  std::set<std::string> term_stems;
  for (const auto& t : terms) term_stems.insert(stem(t));
  struct Seen {
    std::string term;
    std::size_t sample;
    std::map<std::string, int> witnesses;
  };
  std::vector<Seen> seen;
  std::set<std::string> words;
  for (const auto& t : terms) {
    if (!plain_word(t)) continue;
    auto names = repository.names_matching_text("docstring : \"" + t + "\"", SAMPLE);
    if (names.size() < static_cast<std::size_t>(MIN_WITNESSES)) continue;
    Seen s{t, names.size(), {}};
    for (const auto& name : names) {
      auto parts = index::subwords(name);
      std::set<std::string> distinct(parts.begin(), parts.end());
      for (const auto& w : distinct) {
        if (plain_word(w) && term_stems.count(stem(w)) == 0) ++s.witnesses[w];
      }
    }
    for (const auto& [w, k] : s.witnesses) {
      if (k >= MIN_WITNESSES) words.insert(w);
    }
    seen.push_back(std::move(s));
  }
  if (words.empty()) return {};
  auto [named, total] = repository.name_word_counts({words.begin(), words.end()});
  std::vector<std::string> out;
  for (const auto& s : seen) {
    std::vector<std::pair<double, std::string>> ranked;
    for (const auto& [w, k] : s.witnesses) {
      auto it = named.find(w);
      if (k < MIN_WITNESSES || it == named.end() || it->second == 0 || total == 0) continue;
      double lift = (static_cast<double>(k) / static_cast<double>(s.sample)) /
                    (static_cast<double>(it->second) / static_cast<double>(total));
      double share = static_cast<double>(k) / static_cast<double>(s.sample);
      if (lift >= MIN_LIFT && share >= MIN_SHARE) ranked.emplace_back(lift, w);
    }
    std::sort(ranked.begin(), ranked.end(), std::greater<>());
    for (std::size_t i = 0; i < ranked.size() && i < PER_TERM; ++i) {
      if (std::find(out.begin(), out.end(), ranked[i].second) == out.end()) {
        out.push_back(ranked[i].second);
      }
    }
  }
  return out;
}

}  // namespace orvane_tamsel::workers::detail
