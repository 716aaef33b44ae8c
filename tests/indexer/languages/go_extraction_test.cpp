#include <gtest/gtest.h>

#include <set>
#include <string>

#include "index/tests_answer.h"
#include "indexer/languages/neighbour_fqns.h"
#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"

namespace {

using namespace orvane_tamsel;
using indexer_test::neighbour_fqns;

// Package-qualified fqns, receiver and instance calls (methods promoted from structs embedded
// in other files too), and test code of a small Go package.
TEST(GoExtraction, SymbolsTestsAndCallers) {
  indexer_test::TempRepo repo("lang_go");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());

  auto add = index->get_symbol_by_fqn("shop.Cart.Add");
  ASSERT_TRUE(add.has_value());
  EXPECT_EQ(add->kind, "method");
  EXPECT_EQ(add->docstring.value_or(""), "Add puts an item in the cart.");
  EXPECT_FALSE(add->is_test);
  auto cart = index->get_symbol_by_fqn("shop.Cart");
  ASSERT_TRUE(cart.has_value());
  EXPECT_EQ(cart->kind, "struct");
  auto test = index->get_symbol_by_fqn("shop.TestAdd");
  ASSERT_TRUE(test.has_value());
  EXPECT_TRUE(test->is_test);

  EXPECT_EQ(neighbour_fqns(*index, "shop.Cart.Add", index::CALLER),
            std::set<std::string>{"shop.TestAdd"});
  // s.Count() on a Store, which embeds Cart (in another file), which embeds *Base
  EXPECT_EQ(neighbour_fqns(*index, "shop.Base.Count", index::CALLER),
            (std::set<std::string>{"shop.Cart.Add", "shop.TestAdd"}));
  // Count is promoted from the embedded Base
  EXPECT_EQ(neighbour_fqns(*index, "shop.Cart.Add", index::CALLEE),
            (std::set<std::string>{"shop.Cart.total", "shop.Base.Count"}));

  auto tests = tests_answer(*index, "shop/cart.go");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "shop/cart_test.go");

  // the embedding goes away, and with it the promoted calls
  repo.write("shop/store.go", "package shop\n\ntype Store struct{ c Cart }\n");
  indexer::update_index(repo.root());
  index = index::open_repository(repo.root());
  EXPECT_EQ(neighbour_fqns(*index, "shop.Base.Count", index::CALLER),
            std::set<std::string>{"shop.Cart.Add"});
}

}  // namespace
