#include "orvane_tamsel/indexer/body_words.h"

#include <algorithm>
#include <numeric>
#include <unordered_set>

#include "orvane_tamsel/index/subwords.h"

namespace orvane_tamsel::indexer {

namespace {

// Enough for a long function's vocabulary; the rest of a very long body adds little to search.
constexpr std::size_t MAX_WORDS = 200;
// Longer "words" are encoded data or hashes, not vocabulary.
constexpr std::size_t MAX_WORD = 30;

bool is_vocabulary(const std::string& w) {
  return w.size() >= 2 && w.size() <= MAX_WORD && !(w[0] >= '0' && w[0] <= '9');
}

}  // namespace

void add_body_words(std::vector<ParsedSymbol>& symbols, std::string_view content) {
  // Start offsets of the lines, 1-based line n at starts[n - 1].
  std::vector<std::size_t> starts{0};
  for (std::size_t i = 0; i < content.size(); ++i) {
    if (content[i] == '\n') starts.push_back(i + 1);
  }
  auto lines = static_cast<std::int64_t>(starts.size());
  // The widest symbols claim their lines first, so the innermost one keeps each line.
  std::vector<std::size_t> order(symbols.size());
  std::iota(order.begin(), order.end(), 0);
  auto span = [&](std::size_t i) { return symbols[i].end_line - symbols[i].start_line; };
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return span(a) > span(b); });
  constexpr std::size_t NONE = static_cast<std::size_t>(-1);
  std::vector<std::size_t> owner(starts.size(), NONE);
  for (auto i : order) {
    const auto& s = symbols[i];
    if (s.kind == "module") continue;
    for (auto line = std::max<std::int64_t>(s.start_line, 1); line <= std::min(s.end_line, lines);
         ++line) {
      owner[line - 1] = i;
    }
  }
  std::vector<std::unordered_set<std::string>> seen(symbols.size());
  for (std::size_t line = 0; line < starts.size(); ++line) {
    auto i = owner[line];
    if (i == NONE) continue;
    auto end = line + 1 < starts.size() ? starts[line + 1] : content.size();
    auto& body = symbols[i].body;
    for (auto& w : index::subwords(content.substr(starts[line], end - starts[line]))) {
      if (seen[i].size() >= MAX_WORDS) break;
      if (!is_vocabulary(w) || !seen[i].insert(w).second) continue;
      body += (body.empty() ? "" : " ") + w;
    }
  }
}

}  // namespace orvane_tamsel::indexer
