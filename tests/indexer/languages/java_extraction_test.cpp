#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// Package fqns under src/main/java and src/test/java, Javadoc, JUnit tests, and calls through
// `this`, fields, locals, imports, the own package and an inherited method; a bare name defined
// nowhere gets no edge; components are the packages below the one all files share.
TEST(JavaExtraction, SymbolsTestsAndCallers) {
  indexer_test::IndexedFixture repo("lang_java");
  auto& index = repo.index();

  auto add = repo.symbol("com.shop.Cart.add");
  EXPECT_EQ(add.kind, "method");
  EXPECT_EQ(add.signature.value_or(""), "public void add(Item item)");
  EXPECT_EQ(add.docstring.value_or(""), "Adds an item to the cart.");
  EXPECT_EQ(repo.symbol("com.shop.Cart.Cart").kind, "constructor");
  EXPECT_EQ(repo.symbol("com.shop.Cart.Entry").kind, "class");
  EXPECT_EQ(repo.symbol("com.shop.Item").kind, "record");
  auto test = repo.symbol("com.shop.CartTest.addsAnItem");
  EXPECT_TRUE(test.is_test);
  EXPECT_FALSE(repo.symbol("com.shop.Cart.total").is_test);

  EXPECT_EQ(
      repo.callers("com.shop.Cart.total"),
      (std::set<std::string>{"com.shop.Cart.label", "com.shop.Checkout.pay",
                             "com.shop.CartTest.addsAnItem", "com.shop.GiftCart.withWrapping"}));
  EXPECT_EQ(repo.callees("com.shop.Checkout.pay"), std::set<std::string>{"com.shop.Cart.total"});
  EXPECT_EQ(repo.callers("com.shop.util.Prices.format"),
            std::set<std::string>{"com.shop.Cart.label"});

  auto tests = repo.tests_of("src/main/java/com/shop/Cart.java");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "src/test/java/com/shop/CartTest.java");

  EXPECT_EQ(index.components_of({"src/main/java/com/shop/Cart.java",
                                 "src/main/java/com/shop/util/Prices.java",
                                 "src/test/java/com/shop/CartTest.java"}),
            (std::map<std::string, std::string>{{"src/main/java/com/shop/Cart.java", "shop"},
                                                {"src/main/java/com/shop/util/Prices.java", "util"},
                                                {"src/test/java/com/shop/CartTest.java", "shop"}}));
}

}  // namespace
