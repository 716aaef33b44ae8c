// The nearest-symbol scan over packed rows: its quick first pass must never change which symbols
// come back or in what order.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "orvane_tamsel/index/meaning_vectors.h"

using namespace orvane_tamsel;

namespace {

std::vector<float> unit_row(std::mt19937& random, std::size_t dims) {
  std::normal_distribution<float> normal;
  std::vector<float> row(dims);
  double norm = 0;
  for (auto& x : row) {
    x = normal(random);
    norm += static_cast<double>(x) * x;
  }
  for (auto& x : row) x = static_cast<float>(x / std::sqrt(norm));
  return row;
}

// Every row scored exactly, best first, ties by id.
std::vector<index::ScoredSymbol> every_row(const index::MeaningVectors& v,
                                           const std::vector<float>& asked, int limit,
                                           bool include_tests) {
  std::vector<index::ScoredSymbol> all;
  for (std::size_t r = 0; r < v.symbol_ids.size(); ++r) {
    if (include_tests || v.symbol_is_test[r] == 0) {
      all.push_back({v.symbol_ids[r], v.similarity(asked, v.symbol_ids[r])});
    }
  }
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
    return a.score != b.score ? a.score > b.score : a.id < b.id;
  });
  all.resize(std::min(all.size(), static_cast<std::size_t>(limit)));
  return all;
}

TEST(MeaningVectors, NearestIsTheExactScanOverPackedRows) {
  for (std::size_t dims : {100U, 13U}) {
    std::mt19937 random(7);
    index::MeaningVectors v;
    v.dims = dims;
    std::vector<std::vector<float>> rows;
    for (index::SymbolId id = 1; id <= 3000; ++id) {
      // Every tenth row repeats an earlier one under another id: exact ties, broken by id.
      if (id % 10 == 0) {
        rows.push_back(rows[static_cast<std::size_t>(id) / 3]);
      } else {
        rows.push_back(unit_row(random, dims));
      }
      v.add_symbol(id, id % 7 == 0, rows.back().data());
    }
    v.remove_symbol(5);                        // the last row moves into its place
    v.add_symbol(11, false, rows[40].data());  // replaces a row
    std::vector<float> unpacked;
    ASSERT_TRUE(index::read_row(index::row_bytes(rows[40].data(), dims), dims, unpacked));
    EXPECT_NEAR(v.similarity(unpacked, 11), 1.0, 0.01);
    for (int question = 0; question < 20; ++question) {
      // Questions near a stored row crowd the top with close scores.
      auto asked = question % 2 == 0 ? unit_row(random, dims) : rows[question * 31];
      for (int limit : {1, 20, 5000}) {
        for (bool tests : {false, true}) {
          auto got = v.nearest(asked, limit, tests);
          auto want = every_row(v, asked, limit, tests);
          ASSERT_EQ(got.size(), want.size()) << dims << " " << question << " " << limit;
          for (std::size_t i = 0; i < got.size(); ++i) {
            ASSERT_EQ(got[i].id, want[i].id) << dims << " " << question << " " << limit << " " << i;
            ASSERT_EQ(got[i].score, want[i].score);
          }
        }
      }
    }
  }
}

}  // namespace
