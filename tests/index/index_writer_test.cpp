#include <gtest/gtest.h>

#include "index/shop_batch.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"

using namespace orvane_tamsel;
using namespace shop_batch;

namespace {

std::int64_t count(const std::filesystem::path& root, const std::string& sql) {
  index::Database db(index::index_file(root), index::Database::Mode::read);
  auto st = db.prepare(sql);
  return st.step() ? st.integer(0) : -1;
}

}  // namespace

TEST(IndexWriter, LinksCallsAndCountsTheUnresolved) {
  TempRepo repo("writer-link");
  indexer::IndexWriter writer(repo.root);
  write(writer, all());
  auto stats = writer.stats();
  EXPECT_EQ(stats.files, 6);
  // 15 sites: the one with no target stays unlinked; the subclass call falls back to the base.
  EXPECT_EQ(stats.unresolved_calls, 1);
  EXPECT_EQ(stats.calls, 14);
  EXPECT_EQ(count(repo.root,
                  "SELECT count(*) FROM edges e JOIN symbols s ON s.id = e.callee_id "
                  "WHERE s.fqn = 'shop.cart.Cart.__init__' AND e.derived = 1"),
            3);
  EXPECT_EQ(writer.file_states().at("src/shop/cart.py").hash, "h");
}
