#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/word_table.h"

using namespace orvane_tamsel;

namespace {

// A table as scripts/sentence_words.js lays it out; `cut` drops bytes from its end.
void write_table(const std::filesystem::path& file, const std::vector<std::string>& words,
                 std::uint32_t dims, const char* magic = "TSSENW01", std::size_t cut = 0) {
  std::string bytes(magic, 8);
  auto put = [&](std::uint32_t v) { bytes.append(reinterpret_cast<const char*>(&v), 4); };
  put(static_cast<std::uint32_t>(words.size()));
  put(dims);
  for (const auto& w : words) bytes += w + std::string(24 - w.size(), '\0');
  for (std::size_t i = 0; i < words.size(); ++i) {
    for (std::uint32_t d = 0; d < dims; ++d) bytes.push_back(static_cast<char>(i * 10 + d));
  }
  bytes.resize(bytes.size() - cut);
  std::ofstream(file, std::ios::binary) << bytes;
}

}  // namespace

TEST(WordTable, FindsEachSortedWordsRowAndRefusesADamagedFile) {
  indexer_test::TempRepo dir;
  write_table(dir.root() / "t.bin", {"alpha", "beta", "gamma"}, 3);
  auto table = index::open_word_table(dir.root() / "t.bin");
  ASSERT_TRUE(table);
  EXPECT_EQ(table->dimensions(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto* row = table->row(std::vector<std::string>{"alpha", "beta", "gamma"}[i]);
    ASSERT_NE(row, nullptr) << i;
    EXPECT_EQ(row[0], static_cast<std::int8_t>(i * 10));
    EXPECT_EQ(row[2], static_cast<std::int8_t>(i * 10 + 2));
  }
  for (const char* absent : {"", "alph", "alphas", "delta", "aaa", "zzz"}) {
    EXPECT_EQ(table->row(absent), nullptr) << absent;
  }
  // A cut-off file, another layout, or none: no table, rather than rows read from the wrong place.
  write_table(dir.root() / "cut.bin", {"alpha", "beta"}, 3, "TSSENW01", 1);
  write_table(dir.root() / "old.bin", {"alpha", "beta"}, 3, "TSENGV01");
  for (const char* name : {"cut.bin", "old.bin", "none.bin"}) {
    EXPECT_FALSE(index::open_word_table(dir.root() / name)) << name;
  }
}
