#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "index/shop_batch.h"
#include "index/tests_answer.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_repository.h"

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
  TempRepo repo;
  indexer::IndexWriter writer(repo.root());
  write(writer, all());
  auto stats = writer.stats();
  EXPECT_EQ(stats.files, 6);
  // 15 sites: the one with no target stays unlinked; the subclass call falls back to the base.
  EXPECT_EQ(stats.unresolved_calls, 1);
  EXPECT_EQ(stats.calls, 14);
  EXPECT_EQ(count(repo.root(),
                  "SELECT count(*) FROM edges e JOIN symbols s ON s.id = e.callee_id "
                  "WHERE s.fqn = 'shop.cart.Cart.__init__' AND e.derived = 1"),
            3);
  EXPECT_EQ(writer.file_states().at("src/shop/cart.py").hash, "h");
}

namespace {

std::vector<std::string> caller_fqns(index::Repository& index, const std::string& fqn) {
  std::vector<std::string> out;
  auto symbol = index.get_symbol_by_fqn(fqn);
  if (!symbol) return out;
  for (const auto& n : index.evidence_neighbours({*symbol->id}, index::TestFilter::include, 20,
                                                 std::vector<index::Relation>{index::CALLER})) {
    out.push_back(*n.fqn);
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

TEST(IndexWriter, IncrementalChangesKeepEdgesRight) {
  TempRepo repo;
  indexer::IndexWriter writer(repo.root());
  write(writer, all());
  auto index = index::open_repository(repo.root());
  auto total_id = index->get_symbol_by_fqn("shop.cart.Cart.total")->id;
  std::vector<std::string> total_callers{"shop.cart.Cart.add", "shop.special.SpecialCart.checkout",
                                         "test_cart.test_total"};

  // Edit the callee's file: a renamed function loses its callers elsewhere, the rest keep theirs.
  auto edited = cart();
  edited.symbols[5] = sym("shop.cart.apply_discount", "function", 30, 33);
  edited.calls[0].target = "shop.cart.apply_discount";
  write(writer, {edited});
  EXPECT_EQ(index->get_symbol_by_fqn("shop.cart.Cart.total")->id, total_id);
  EXPECT_EQ(caller_fqns(*index, "shop.cart.Cart.total"), total_callers);
  EXPECT_EQ(caller_fqns(*index, "shop.cart.apply_discount"),
            std::vector<std::string>{"shop.cart.Cart.total"});
  EXPECT_EQ(index->stats().unresolved_calls, 3);  // price and test_total named applyDiscount
  EXPECT_FALSE(index->imports_of_file("src/shop/pricing.py", 5)[0].target_symbol.has_value());

  // The name comes back: the sites elsewhere link again, the import binds it again.
  write(writer, {cart()});
  EXPECT_EQ(caller_fqns(*index, "shop.cart.applyDiscount"),
            (std::vector<std::string>{"shop.cart.Cart.total", "shop.pricing.price",
                                      "test_cart.test_total"}));
  EXPECT_TRUE(index->imports_of_file("src/shop/pricing.py", 5)[0].target_symbol.has_value());
  EXPECT_EQ(index->stats().unresolved_calls, 1);

  // Delete the callee's file, then add it back.
  writer.begin();
  writer.remove_file("src/shop/cart.py");
  writer.commit();
  EXPECT_EQ(index->stats().files, 5);
  EXPECT_EQ(index->stats().unresolved_calls, 9);  // every site that named shop.cart
  EXPECT_FALSE(index->get_file_by_path("src/shop/cart.py"));
  EXPECT_TRUE(tests_answer(*index, "src/shop/cart.py")["tests"].empty());
  write(writer, {cart()});
  EXPECT_EQ(caller_fqns(*index, "shop.cart.Cart.total"), total_callers);
  EXPECT_EQ(index->stats().unresolved_calls, 1);

  // Edit a caller's file: its edges go, the others stay.
  auto fewer = test_cart();
  fewer.calls.resize(3);
  write(writer, {fewer});
  EXPECT_EQ(caller_fqns(*index, "shop.cart.Cart.total"),
            (std::vector<std::string>{"shop.cart.Cart.add", "shop.special.SpecialCart.checkout"}));

  // A touched file keeps its contents and takes the new state.
  writer.begin();
  writer.touch_file("src/shop/cart.py", state(7));
  writer.set_skipped({{"big.bin", "binary"}, {"huge.py", "too large"}, {"x.bin", "binary"}});
  writer.commit();
  EXPECT_EQ(writer.file_states().at("src/shop/cart.py").mtime_ns, 7);
  EXPECT_EQ(index->stats().skipped,
            (std::map<std::string, std::int64_t>{{"binary", 2}, {"too large", 1}}));
}

TEST(IndexWriter, AnInterruptedBatchLeavesThePreviousIndex) {
  TempRepo repo;
  {
    indexer::IndexWriter writer(repo.root());
    write(writer, all());
    writer.begin();
    writer.remove_file("src/shop/pricing.py");
    writer.rollback();
    writer.begin();
    writer.put_file(file("src/extra.py", "extra"), state());
  }  // dropped without commit
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    indexer::IndexWriter writer(repo.root());
    writer.begin();
    writer.remove_file("src/shop/cart.py");
    writer.put_file(file("src/new.py", "new"), state());
    raise(SIGKILL);  // killed mid-batch
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));

  auto index = index::open_repository(repo.root());
  EXPECT_EQ(index->stats().files, 6);
  EXPECT_TRUE(index->get_file_by_path("src/shop/cart.py"));
  EXPECT_FALSE(index->get_file_by_path("src/new.py"));
  // the next run completes it
  indexer::IndexWriter writer(repo.root());
  writer.begin();
  writer.remove_file("src/shop/cart.py");
  writer.commit();
  EXPECT_EQ(index->stats().files, 5);
}

TEST(IndexWriter, AnotherSchemaVersionIsRebuiltAndReadersSayWhatToDo) {
  TempRepo repo;
  auto message = [&] {
    try {
      index::open_repository(repo.root());
    } catch (const std::exception& e) {
      return std::string(e.what());
    }
    return std::string();
  };
  EXPECT_THAT(message(), ::testing::HasSubstr("run tamsel index first"));
  {
    indexer::IndexWriter writer(repo.root());
    write(writer, all());
  }
  {
    index::Database db(index::index_file(repo.root()), index::Database::Mode::write);
    db.exec("PRAGMA user_version = 99");
  }
  EXPECT_THAT(message(), ::testing::HasSubstr("run tamsel index to rebuild it"));
  {
    indexer::IndexWriter writer(repo.root());  // rebuilds
    EXPECT_EQ(writer.stats().files, 0);
    write(writer, {cart()});
  }
  EXPECT_EQ(index::open_repository(repo.root())->stats().files, 1);
  {
    // An index extracted by another tamsel is rebuilt rather than kept for unchanged files.
    index::Database db(index::index_file(repo.root()), index::Database::Mode::write);
    db.exec("UPDATE meta SET value = '0' WHERE key = 'extractor_version'");
  }
  EXPECT_EQ(indexer::IndexWriter(repo.root()).stats().files, 0);
  std::filesystem::remove(index::index_file(repo.root()).string() + "-wal");
  std::filesystem::remove(index::index_file(repo.root()).string() + "-shm");
  std::ofstream(index::index_file(repo.root()))
      << "not a database, just text long enough to matter";
  EXPECT_THAT(message(), ::testing::HasSubstr("cannot read the index"));
  indexer::IndexWriter writer(repo.root());  // a damaged index is rebuilt
  write(writer, {cart()});
  EXPECT_EQ(index::open_repository(repo.root())->stats().files, 1);
}

TEST(IndexWriter, TwoWritersWaitForEachOther) {
  TempRepo repo;
  indexer::IndexWriter first(repo.root());
  first.begin();
  first.put_file(cart(), state());
  std::atomic<bool> done = false;
  std::thread second([&] {
    indexer::IndexWriter writer(repo.root());  // waits for the first batch instead of failing
    write(writer, {pricing()});
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(done);
  first.commit();
  second.join();
  EXPECT_EQ(first.stats().files, 2);
  EXPECT_EQ(first.stats().calls, 4);  // cart's two and pricing's two
}
