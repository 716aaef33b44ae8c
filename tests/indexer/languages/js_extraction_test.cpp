#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// CommonJS: `require` bindings (destructured, relative paths out of `__tests__/`), `new` instances
// and `this`, a test folder and test blocks.
TEST(JsExtraction, SymbolsTestsAndCallers) {
  indexer_test::IndexedFixture repo("lang_js");
  auto total = repo.symbol("lib.cart.Cart.total");
  EXPECT_EQ(total.kind, "method");
  EXPECT_EQ(repo.symbol("lib.cart.Cart.add").docstring.value_or(""), "Adds an item.");
  auto block = repo.symbol("__tests__.cart.Cart.totals_the_prices");
  EXPECT_TRUE(block.is_test);

  EXPECT_EQ(
      repo.callers("lib.cart.Cart.total"),
      (std::set<std::string>{"lib.cart.Cart.label", "__tests__.cart.Cart.totals_the_prices"}));
  EXPECT_EQ(repo.callers("lib.format.formatPrice"), std::set<std::string>{"lib.cart.Cart.label"});
  // a module that is one class, bound whole by `require`
  EXPECT_EQ(repo.callers("lib.receipt.Receipt.print"),
            std::set<std::string>{"__tests__.cart.Cart.totals_the_prices"});

  auto tests = repo.tests_of("lib/cart.js");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "__tests__/cart.js");
}

}  // namespace
