// Reused prepared statements: the same SQL asked twice at once, bindings left behind, and a
// statement given back mid-result must each behave as a freshly prepared one.

#include <gtest/gtest.h>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_db.h"

using namespace orvane_tamsel;

namespace {

TEST(StatementCache, AReusedStatementAnswersAsAFreshOne) {
  indexer_test::TempRepo repo;
  auto file = repo.root() / "cache.db";
  index::Database writer(file, index::Database::Mode::write);
  writer.exec(
      "PRAGMA journal_mode = WAL; CREATE TABLE t(x INTEGER); "
      "INSERT INTO t VALUES (1), (2), (3);");
  index::Database reader(file, index::Database::Mode::read);
  const char* rows = "SELECT x FROM t WHERE ?1 IS NULL OR x >= ?1 ORDER BY x";

  // The same SQL asked while it runs: two independent cursors.
  auto outer = reader.prepare(rows);
  std::vector<std::pair<std::int64_t, std::int64_t>> pairs;
  while (outer.step()) {
    auto inner = reader.prepare(rows);
    inner.bind(1, 3);
    while (inner.step()) pairs.emplace_back(outer.integer(0), inner.integer(0));
  }
  EXPECT_EQ(pairs, (std::vector<std::pair<std::int64_t, std::int64_t>>{{1, 3}, {2, 3}, {3, 3}}));

  {  // a bound value does not outlive the statement's use
    auto bound = reader.prepare(rows);
    bound.bind(1, 2);
    ASSERT_TRUE(bound.step());
    EXPECT_EQ(bound.integer(0), 2);
  }
  {
    auto unbound = reader.prepare(rows);
    ASSERT_TRUE(unbound.step());
    EXPECT_EQ(unbound.integer(0), 1);
  }

  {  // given back after one row: its read snapshot must end with it
    auto half = reader.prepare(rows);
    ASSERT_TRUE(half.step());
  }
  writer.exec("INSERT INTO t VALUES (4)");
  auto count = reader.prepare("SELECT count(*) FROM t");
  ASSERT_TRUE(count.step());
  EXPECT_EQ(count.integer(0), 4);
}

}  // namespace
