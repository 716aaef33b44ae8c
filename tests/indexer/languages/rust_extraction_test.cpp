#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// Crate and module fqns from the Cargo layout, `///` docs past attributes, #[test] and
// #[cfg(test)] code, and calls through `self`, `Type::` paths, `use` and typed locals, also in
// macro arguments; an integration test reaches the crate by its package name; components are
// the crate's modules.
TEST(RustExtraction, SymbolsTestsAndCallers) {
  indexer_test::IndexedFixture repo("lang_rust");
  auto& index = repo.index();

  auto item = repo.symbol("crate.cart.Item");
  EXPECT_EQ(item.kind, "struct");
  EXPECT_EQ(item.docstring.value_or(""), "A line of the cart.");
  EXPECT_EQ(repo.symbol("crate.cart.Priced").kind, "trait");
  auto add = repo.symbol("crate.cart.Cart.add");
  EXPECT_EQ(add.kind, "method");
  EXPECT_EQ(add.signature.value_or(""), "pub fn add(&mut self, item: Item)");
  EXPECT_TRUE(repo.symbol("crate.cart.tests.empty_cart_totals_zero").is_test);
  EXPECT_TRUE(repo.symbol("crate.tests.cart_test.adds_an_item").is_test);
  EXPECT_FALSE(add.is_test);

  EXPECT_EQ(repo.callers("crate.cart.Cart.total"),
            (std::set<std::string>{"crate.cart.Cart.label", "crate.checkout.checkout",
                                   "crate.cart.tests.empty_cart_totals_zero",
                                   "crate.tests.cart_test.adds_an_item"}));
  EXPECT_EQ(repo.callers("crate.cart.tests.sample"),
            std::set<std::string>{"crate.cart.tests.empty_cart_totals_zero"});
  EXPECT_EQ(repo.callers("crate.cart.Cart.label"),
            std::set<std::string>{"crate.tests.cart_test.labels_in_euros"});
  EXPECT_EQ(repo.callees("crate.tests.cart_test.labels_in_euros"),
            (std::set<std::string>{"crate.cart.Cart.new", "crate.cart.Cart.label",
                                   "crate.price.format_price"}));
  EXPECT_EQ(repo.callees("crate.checkout.checkout"),
            std::set<std::string>{"crate.cart.Cart.total"});
  EXPECT_EQ(repo.callees("crate.cart.Cart.label"),
            (std::set<std::string>{"crate.cart.Cart.total", "crate.price.format_price"}));

  auto tests = repo.tests_of("src/cart.rs");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "tests/cart_test.rs");

  EXPECT_EQ(
      index.components_of({"src/cart.rs", "src/lib.rs", "tests/cart_test.rs"}),
      (std::map<std::string, std::string>{
          {"src/cart.rs", "cart"}, {"src/lib.rs", "crate"}, {"tests/cart_test.rs", "tests"}}));
}

}  // namespace
