#pragma once
// Learns word vectors from what a repository's symbols say together: positive pointwise mutual
// information of words that share a symbol, reduced to a few dimensions by a truncated SVD.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "orvane_tamsel/index/meaning_vectors.h"

namespace orvane_tamsel::indexer::meaning {

struct LearnSettings {
  std::size_t dims = 100;
  std::size_t min_symbols = 3;  // a word in fewer symbols says too little to place it
  // Context smoothing of the counts: rare words get less of the mutual information they would
  // otherwise claim.
  double smoothing = 0.75;
  std::size_t oversample = 10;  // extra directions the randomized SVD keeps while it converges
  int power_iterations = 3;
  std::uint32_t seed = 19;
};

// Whether this build learns vectors (it needs Eigen); without, the meaning signal is off.
bool can_learn();

// The word rows (unit length) and weights (idf among the contexts) learned from each symbol's
// words; no symbol rows. Nullopt when this build cannot learn.
std::optional<index::MeaningVectors> learn_word_vectors(
    const std::vector<std::vector<std::string>>& contexts, const LearnSettings& settings = {});

}  // namespace orvane_tamsel::indexer::meaning
