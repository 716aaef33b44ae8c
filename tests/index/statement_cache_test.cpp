// Reused prepared statements: the same SQL asked twice at once, bindings left behind, and a
// statement given back mid-result must each behave as a freshly prepared one; and a statement
// that outlives its Database must neither touch freed memory nor lose its connection.

#include <gtest/gtest.h>

#include <memory>

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

TEST(StatementCache, AStatementOutlivesItsDatabase) {
  indexer_test::TempRepo repo;
  auto file = repo.root() / "lifetime.db";
  auto db = std::make_unique<index::Database>(file, index::Database::Mode::write);
  db->exec("CREATE TABLE t(x INTEGER); INSERT INTO t VALUES (7), (8);");
  auto running = db->prepare("SELECT x FROM t ORDER BY x");
  ASSERT_TRUE(running.step());
  index::Statement waiting;
  waiting = db->prepare("SELECT count(*) FROM t");
  db.reset();
  // Both still answer, and each gives itself back to the connection as it goes.
  ASSERT_TRUE(running.step());
  EXPECT_EQ(running.integer(0), 8);
  EXPECT_FALSE(running.step());
  ASSERT_TRUE(waiting.step());
  EXPECT_EQ(waiting.integer(0), 2);
  running = index::Statement();  // given back while `waiting` still holds the connection
}  // `waiting` goes last and closes it

}  // namespace
