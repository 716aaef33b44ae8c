// The nearest-symbol scan over packed rows: its quick first pass must never change which symbols
// come back or in what order.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "orvane_tamsel/index/meaning_vectors.h"

using namespace orvane_tamsel;

TEST(MeaningVectors, NearestIsTheExactScanOverPackedRows) {
  for (std::size_t dims : {100U, 13U}) {
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    index::MeaningVectors v;
    v.dims = dims;
    std::vector<std::vector<float>> rows;
    for (index::SymbolId id = 1; id <= 3000; ++id) {
      std::vector<float> row(dims);
      for (auto& x : row) x = normal(random);
      // Every tenth row repeats an earlier one under another id: exact ties, broken by id.
      rows.push_back(id % 10 == 0 ? rows[static_cast<std::size_t>(id) / 3] : row);
      v.add_symbol(id, id % 7 == 0, index::row_bytes(rows.back().data(), dims));
    }
    v.remove_symbol(5);                                                // the last row moves
    v.add_symbol(11, false, index::row_bytes(rows[40].data(), dims));  // a row replaced
    for (int question = 0; question < 20; ++question) {
      // Questions on or near a stored row crowd the top with close scores.
      auto asked = rows[static_cast<std::size_t>(question) * 31 + question % 2];
      float norm = 0;
      for (float x : asked) norm += x * x;
      for (auto& x : asked) x /= std::sqrt(norm);
      for (int limit : {1, 20, 5000}) {
        for (bool tests : {false, true}) {
          std::vector<index::ScoredSymbol> want;
          for (std::size_t r = 0; r < v.symbol_ids.size(); ++r) {
            auto id = v.symbol_ids[r];
            if (tests || !v.symbol_is_test[r]) want.push_back({id, v.similarity(asked, id)});
          }
          std::sort(want.begin(), want.end(), [](const auto& a, const auto& b) {
            return a.score != b.score ? a.score > b.score : a.id < b.id;
          });
          want.resize(std::min(want.size(), static_cast<std::size_t>(limit)));
          auto got = v.nearest(asked, limit, tests);
          ASSERT_EQ(got.size(), want.size());
          for (std::size_t i = 0; i < got.size(); ++i) {
            ASSERT_EQ(got[i].id, want[i].id) << dims << " " << question << " " << limit << " " << i;
            ASSERT_EQ(got[i].score, want[i].score);
          }
        }
      }
    }
  }
}
