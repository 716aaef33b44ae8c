#include "orvane_tamsel/workers/term_ranking.h"

#include <algorithm>

namespace orvane_tamsel::workers {

namespace {

std::vector<index::ScoredSymbol> best(std::vector<index::ScoredSymbol> scored, int limit) {
  auto better = [](const index::ScoredSymbol& x, const index::ScoredSymbol& y) {
    return x.score != y.score ? x.score > y.score : x.id < y.id;
  };
  const auto keep = std::min(scored.size(), static_cast<std::size_t>(std::max(limit, 0)));
  std::partial_sort(scored.begin(), scored.begin() + static_cast<std::ptrdiff_t>(keep),
                    scored.end(), better);
  scored.resize(keep);
  return scored;
}

}  // namespace

std::vector<index::ScoredSymbol> rank_any(const std::vector<index::TermShares>& rows,
                                          std::size_t count, int limit) {
  std::vector<index::ScoredSymbol> scored;
  for (const auto& row : rows) {
    const auto n = std::min(count, row.shares.size());
    // Summed from the first term on, as the search's own ranking sums them.
    double sum = 0.0;
    bool said = false;
    for (std::size_t i = 0; i < n; ++i) {
      sum += row.shares[i];
      said = said || row.shares[i] > 0;
    }
    if (said) scored.push_back({row.id, sum});
  }
  return best(std::move(scored), limit);
}

std::vector<index::ScoredSymbol> rank_both(const std::vector<index::TermShares>& rows,
                                           std::size_t a, std::size_t b, int limit) {
  std::vector<index::ScoredSymbol> scored;
  for (const auto& row : rows) {
    if (b < row.shares.size() && row.shares[a] > 0 && row.shares[b] > 0) {
      scored.push_back({row.id, row.shares[a] + row.shares[b]});
    }
  }
  return best(std::move(scored), limit);
}

}  // namespace orvane_tamsel::workers
