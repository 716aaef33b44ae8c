#pragma once
// Rankings of one text search's term shares by subsets of its terms: what a search of its own
// for those terms would rank, without running it.

#include <cstddef>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::workers {

// The best `limit` symbols that say any of the first `count` terms, by their summed shares (the
// terms joined with OR); ties in id order.
std::vector<index::ScoredSymbol> rank_any(const std::vector<index::TermShares>& rows,
                                          std::size_t count, int limit);
// The best `limit` symbols that say both term `a` and term `b` (a < b), by their two shares.
std::vector<index::ScoredSymbol> rank_both(const std::vector<index::TermShares>& rows,
                                           std::size_t a, std::size_t b, int limit);

}  // namespace orvane_tamsel::workers
