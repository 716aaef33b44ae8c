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

// CommonJS: `require` bindings (destructured, relative paths out of `__tests__/`), `new` instances
// and `this`, a test folder and test blocks.
TEST(JsExtraction, SymbolsTestsAndCallers) {
  indexer_test::TempRepo repo("lang_js");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());

  auto total = index->get_symbol_by_fqn("lib.cart.Cart.total");
  ASSERT_TRUE(total.has_value());
  EXPECT_EQ(total->kind, "method");
  EXPECT_EQ(index->get_symbol_by_fqn("lib.cart.Cart.add")->docstring.value_or(""), "Adds an item.");
  auto block = index->get_symbol_by_fqn("__tests__.cart.Cart.totals_the_prices");
  ASSERT_TRUE(block.has_value());
  EXPECT_TRUE(block->is_test);

  EXPECT_EQ(
      neighbour_fqns(*index, "lib.cart.Cart.total", index::CALLER),
      (std::set<std::string>{"lib.cart.Cart.label", "__tests__.cart.Cart.totals_the_prices"}));
  EXPECT_EQ(neighbour_fqns(*index, "lib.format.formatPrice", index::CALLER),
            std::set<std::string>{"lib.cart.Cart.label"});
  // a module that is one class, bound whole by `require`
  EXPECT_EQ(neighbour_fqns(*index, "lib.receipt.Receipt.print", index::CALLER),
            std::set<std::string>{"__tests__.cart.Cart.totals_the_prices"});

  auto tests = tests_answer(*index, "lib/cart.js");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "__tests__/cart.js");
}

}  // namespace
