#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// Package-qualified fqns, receiver and instance calls (methods promoted from structs embedded
// in other files too), and test code of a small Go package.
TEST(GoExtraction, SymbolsTestsAndCallers) {
  indexer_test::IndexedFixture repo("lang_go");
  auto add = repo.symbol("shop.Cart.Add");
  EXPECT_EQ(add.kind, "method");
  EXPECT_EQ(add.docstring.value_or(""), "Add puts an item in the cart.");
  EXPECT_FALSE(add.is_test);
  auto cart = repo.symbol("shop.Cart");
  EXPECT_EQ(cart.kind, "struct");
  auto test = repo.symbol("shop.TestAdd");
  EXPECT_TRUE(test.is_test);

  EXPECT_EQ(repo.callers("shop.Cart.Add"), (std::set<std::string>{"shop.TestAdd", "shop.serve"}));
  // s.Count() on a Store, which embeds Cart (in another file), which embeds *Base
  EXPECT_EQ(repo.callers("shop.Base.Count"),
            (std::set<std::string>{"shop.Cart.Add", "shop.TestAdd"}));
  // Count is promoted from the embedded Base
  EXPECT_EQ(repo.callees("shop.Cart.Add"),
            (std::set<std::string>{"shop.Cart.total", "shop.Base.Count"}));

  auto tests = repo.tests_of("shop/cart.go");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "shop/cart_test.go");

  // the embedding goes away, and with it the promoted calls
  repo.write("shop/store.go", "package shop\n\ntype Store struct{ c Cart }\n");
  repo.update();
  EXPECT_EQ(repo.callers("shop.Base.Count"), std::set<std::string>{"shop.Cart.Add"});
}

// Receivers whose type comes from declarations elsewhere: parameters (of function literals too),
// results of functions and methods, fields, composite literals and package variables.
TEST(GoExtraction, ReceiverTypesFromDeclarations) {
  indexer_test::IndexedFixture repo("lang_go");
  EXPECT_EQ(repo.callees("shop.serve"),
            (std::set<std::string>{"shop.Engine.handle", "shop.Pool.Get", "shop.Context.Next",
                                   "shop.NewEngine", "shop.Engine.Use", "shop.build",
                                   "shop.Cart.Add", "shop.YAML.Render"}));
  auto sites = repo.rows(
      "SELECT c.line || ' ' || c.evidence FROM call_sites c JOIN files f ON f.id = c.file_id "
      "WHERE f.path = 'shop/server.go' AND c.receiver <> '' ORDER BY c.line, c.id");
  EXPECT_EQ(sites,
            (std::vector<std::string>{"36 ",  // strings.Builder is not in the index: unresolved
                                      "39 attribute", "40 result-type", "40 attribute",
                                      "41 result-type", "41 declared-type", "44 inherited",
                                      "44 result-type", "46 constructor", "47 declared-type",
                                      "49 declared-type", "52 declared-type"}));
}

}  // namespace
