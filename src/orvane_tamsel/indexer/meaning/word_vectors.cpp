#include "orvane_tamsel/indexer/meaning/word_vectors.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <thread>
#include <unordered_map>

#ifdef TAMSEL_HAVE_EIGEN
#include <Eigen/Dense>
#include <Eigen/Sparse>
#endif

namespace orvane_tamsel::indexer::meaning {

#ifndef TAMSEL_HAVE_EIGEN

bool can_learn() {
  return false;
}

std::optional<index::MeaningVectors> learn_word_vectors(
    const std::vector<std::vector<std::string>>&, const LearnSettings&) {
  return std::nullopt;
}

#else

namespace {

using Sparse = Eigen::SparseMatrix<double, Eigen::RowMajor>;
using Dense = Eigen::MatrixXd;
using RowDense = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

// Each context as the sorted ids of the vocabulary words it holds, once each.
struct Corpus {
  std::vector<std::string> vocabulary;
  std::vector<float> weights;  // idf per vocabulary word
  std::vector<std::vector<std::uint32_t>> contexts;
};

Corpus vocabulary_of(const std::vector<std::vector<std::string>>& contexts,
                     const LearnSettings& settings) {
  std::map<std::string, std::size_t> df;
  for (const auto& c : contexts) {
    std::vector<std::string> once(c.begin(), c.end());
    std::sort(once.begin(), once.end());
    once.erase(std::unique(once.begin(), once.end()), once.end());
    for (auto& w : once) ++df[w];
  }
  Corpus corpus;
  std::unordered_map<std::string, std::uint32_t> id;
  const double n = static_cast<double>(contexts.size());
  for (const auto& [word, count] : df) {
    if (count < settings.min_symbols) continue;
    id[word] = static_cast<std::uint32_t>(corpus.vocabulary.size());
    corpus.vocabulary.push_back(word);
    corpus.weights.push_back(static_cast<float>(std::log(1.0 + n / static_cast<double>(count))));
  }
  for (const auto& c : contexts) {
    std::vector<std::uint32_t> ids;
    for (const auto& w : c) {
      auto it = id.find(w);
      if (it != id.end()) ids.push_back(it->second);
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    if (ids.size() > 1) corpus.contexts.push_back(std::move(ids));
  }
  return corpus;
}

// Positive PMI of words that share a context, one row at a time over the contexts that hold the
// row's word: memory stays linear in the vocabulary.
Sparse ppmi(const Corpus& corpus, double smoothing) {
  const std::size_t v = corpus.vocabulary.size();
  std::vector<std::vector<std::uint32_t>> holding(v);
  for (std::uint32_t c = 0; c < corpus.contexts.size(); ++c) {
    for (auto w : corpus.contexts[c]) holding[w].push_back(c);
  }
  std::vector<Eigen::Triplet<double>> counts;
  std::vector<double> row(v, 0.0), word_total(v, 0.0);
  std::vector<std::uint32_t> touched;
  for (std::uint32_t i = 0; i < v; ++i) {
    for (auto c : holding[i]) {
      for (auto j : corpus.contexts[c]) {
        if (j == i) continue;
        if (row[j] == 0.0) touched.push_back(j);
        row[j] += 1.0;
      }
    }
    for (auto j : touched) {
      counts.emplace_back(i, j, row[j]);
      word_total[i] += row[j];
      row[j] = 0.0;
    }
    touched.clear();
  }
  // The counts are symmetric: a word's row total is also its column total.
  std::vector<double> smoothed(v);
  double smoothed_total = 0;
  for (std::size_t j = 0; j < v; ++j) {
    smoothed[j] = std::pow(word_total[j], smoothing);
    smoothed_total += smoothed[j];
  }
  std::vector<Eigen::Triplet<double>> positive;
  for (const auto& t : counts) {
    double pmi = std::log(t.value() * smoothed_total /
                          (word_total[static_cast<std::size_t>(t.row())] *
                           smoothed[static_cast<std::size_t>(t.col())]));
    if (pmi > 0) positive.emplace_back(t.row(), t.col(), pmi);
  }
  Sparse m(static_cast<Eigen::Index>(v), static_cast<Eigen::Index>(v));
  m.setFromTriplets(positive.begin(), positive.end());
  return m;
}

// Below this many multiplications a product stays on one thread.
constexpr double SPLIT_PRODUCT = 4e6;

// A * X in one pass over A's rows, each adding its entries' rows of X (Eigen's own product passes
// over all of A once per column of X), the rows shared between two threads, as the learning runs
// once the writing is done. Every element sums the same products in the same order (A's columns
// ascending, from zero), so the result is Eigen's to the last bit.
Dense times(const Sparse& a, const Dense& x) {
  const RowDense from = x;
  const auto width = x.cols();
  RowDense out = RowDense::Zero(a.rows(), width);
  auto rows = [&](Eigen::Index first, Eigen::Index last) {
    for (Eigen::Index i = first; i < last; ++i) {
      double* to = out.row(i).data();
      for (Sparse::InnerIterator it(a, i); it; ++it) {
        const double v = it.value();
        const double* row = from.row(it.index()).data();
        for (Eigen::Index c = 0; c < width; ++c) to[c] += v * row[c];
      }
    }
  };
  const auto half = a.outerSize() / 2;
  if (static_cast<double>(a.nonZeros()) * static_cast<double>(width) < SPLIT_PRODUCT) {
    rows(0, a.outerSize());
  } else {
    std::jthread second(rows, half, a.outerSize());
    rows(0, half);
  }
  return out;
}

Dense orthonormal(const Dense& y) {
  Eigen::HouseholderQR<Dense> qr(y);
  return qr.householderQ() * Dense::Identity(y.rows(), y.cols());
}

// U x sqrt(S) of the `dims` leading singular triplets, by a randomized range finder with power
// iterations (Halko, Martinsson and Tropp): a few products with the sparse matrix, then the
// eigen-decomposition of a small square matrix.
Dense leading_directions(const Sparse& m, std::size_t dims, const LearnSettings& settings) {
  const auto n = m.rows();
  const auto width =
      std::min<Eigen::Index>(n, static_cast<Eigen::Index>(dims + settings.oversample));
  std::mt19937 random(settings.seed);
  std::normal_distribution<double> normal;
  Dense omega(n, width);
  for (Eigen::Index i = 0; i < omega.size(); ++i) omega.data()[i] = normal(random);
  const Sparse mt = m.transpose();  // stored by rows too, for `times`
  Dense q = orthonormal(times(m, omega));
  for (int k = 0; k < settings.power_iterations; ++k) {
    Dense z = orthonormal(times(mt, q));
    q = orthonormal(times(m, z));
  }
  Dense b = times(mt, q).transpose();  // width x n: Q^T M
  Eigen::SelfAdjointEigenSolver<Dense> eigen(b * b.transpose());
  // Eigenvalues come in increasing order: the last ones lead.
  const auto keep = std::min<Eigen::Index>(static_cast<Eigen::Index>(dims), width);
  Dense out(n, keep);
  for (Eigen::Index k = 0; k < keep; ++k) {
    auto col = width - 1 - k;
    double sigma = std::sqrt(std::max(0.0, eigen.eigenvalues()(col)));
    out.col(k) = q * eigen.eigenvectors().col(col) * std::sqrt(sigma);
  }
  return out;
}

}  // namespace

bool can_learn() {
  return true;
}

std::optional<index::MeaningVectors> learn_word_vectors(
    const std::vector<std::vector<std::string>>& contexts, const LearnSettings& settings) {
  index::MeaningVectors learned;
  auto corpus = vocabulary_of(contexts, settings);
  const std::size_t v = corpus.vocabulary.size();
  // Fewer words than dimensions learn nothing worth keeping: the vectors stay empty.
  if (v < 4) return learned;
  const std::size_t dims = std::min(settings.dims, v - 2);
  Dense rows = leading_directions(ppmi(corpus, settings.smoothing), dims, settings);
  learned.dims = static_cast<std::size_t>(rows.cols());
  std::vector<float> row(learned.dims);
  for (std::size_t w = 0; w < v; ++w) {
    double norm = rows.row(static_cast<Eigen::Index>(w)).norm();
    if (norm <= 0) continue;  // a word that shares no context with another
    for (std::size_t k = 0; k < learned.dims; ++k) {
      row[k] = static_cast<float>(rows(static_cast<Eigen::Index>(w), static_cast<Eigen::Index>(k)) /
                                  norm);
    }
    learned.add_word(corpus.vocabulary[w], corpus.weights[w], row.data());
  }
  return learned;
}

#endif

}  // namespace orvane_tamsel::indexer::meaning
