#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// Module fqns from the source root, JSDoc, `this` (on to a base class), typed parameters, imports
// (named and namespace), describe/it blocks as tests, overloads listed once with their
// implementation, and no edge for a name defined nowhere.
TEST(TsExtraction, SymbolsTestsAndCallers) {
  indexer_test::IndexedFixture repo("lang_ts");
  auto& index = repo.index();

  auto cart = repo.symbol("app.cart.Cart");
  EXPECT_EQ(cart.kind, "class");
  EXPECT_EQ(cart.signature.value_or(""), "export class Cart");
  EXPECT_EQ(cart.docstring.value_or(""), "Cart holds the items a customer picked.");
  EXPECT_EQ(repo.symbol("app.cart.Item").kind, "interface");
  EXPECT_EQ(repo.symbol("app.cart.Status").kind, "enum");
  EXPECT_EQ(repo.symbol("app.cart.Cart.constructor").kind, "constructor");
  EXPECT_EQ(repo.symbol("app.cart.emptyCart").kind, "function");
  for (const char* name : {"formatPrice", "priceOf"}) {
    auto found = index.search_symbols({name}, true, 10).symbols;
    ASSERT_EQ(found.size(), 1u) << name << ": overloads and implementation listed apart";
  }
  auto format = repo.symbol("util.format.formatPrice");
  EXPECT_EQ(format.signature.value_or(""),
            "export function formatPrice(amount: number, currency: string): string\n"
            "export function formatPrice(amount: bigint, currency: string): string");
  EXPECT_EQ(format.docstring.value_or(""), "Two decimals and the currency.");
  EXPECT_EQ(format.start_line, 4);
  EXPECT_EQ(format.end_line, 6);
  auto price = repo.symbol("app.cart.Cart.priceOf");
  EXPECT_EQ(price.kind, "method");
  EXPECT_EQ(price.docstring.value_or(""), "The price of an item, by name or position.");
  auto block = repo.symbol("app.cart.test.Cart.adds_an_item");
  EXPECT_TRUE(block.is_test);

  EXPECT_EQ(
      repo.callers("app.cart.Cart.total"),
      (std::set<std::string>{"app.cart.Cart.describe", "app.checkout.checkout",
                             "app.cart.test.Cart.adds_an_item", "app.gift.GiftCart.wrapped"}));
  EXPECT_EQ(repo.callees("app.checkout.checkout"),
            (std::set<std::string>{"app.cart.Cart.total", "util.format.formatPrice"}));
  EXPECT_EQ(repo.callees("app.cart.emptyCart"), std::set<std::string>{"app.cart.Cart"});

  auto tests = repo.tests_of("src/app/cart.ts");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "src/app/cart.test.ts");
}

}  // namespace
