#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

using namespace orvane_tamsel;

// File-less names, a header's prototype merged into its definition, includes as call evidence,
// test code under test/, the tests of a source file and components.
TEST(CExtraction, SymbolsCallersAndTests) {
  indexer_test::IndexedFixture repo("lang_c");
  auto& index = repo.index();

  auto add = repo.symbol("cart_add");
  EXPECT_EQ(add.kind, "function");
  EXPECT_EQ(index.get_file_paths_batch({add})[add.id.value_or(0)], "src/store/cart.c");
  EXPECT_EQ(add.docstring.value_or(""), "Adds a price; returns 0 when the cart is full.");
  EXPECT_EQ(add.signature.value_or(""), "int cart_add(struct cart *c, int price)");
  auto found = index.search_symbols({"cart_add"}, true, 10);
  EXPECT_EQ(found.symbols.size(), 1u) << "a prototype and its definition are one symbol";
  auto cart = repo.symbol("cart");
  EXPECT_EQ(cart.kind, "struct");
  EXPECT_EQ(cart.docstring.value_or(""), "A fixed-size basket of prices.");
  auto macro = repo.symbol("CART_MAX");
  EXPECT_EQ(macro.kind, "macro");
  EXPECT_FALSE(index.get_symbol_by_fqn("STORE_CART_H").has_value()) << "an include guard";
  auto limit = repo.symbol("MAX_PRICE");
  EXPECT_EQ(limit.kind, "variable");
  EXPECT_EQ(limit.signature.value_or(""), "static const int MAX_PRICE");
  EXPECT_FALSE(index.get_symbol_by_fqn("sum").has_value()) << "a local is no symbol";
  auto test = repo.symbol("test_add_and_total");
  EXPECT_TRUE(test.is_test);
  EXPECT_FALSE(add.is_test);

  EXPECT_EQ(repo.callers("cart_add"), (std::set<std::string>{"test_add_and_total"}));
  EXPECT_EQ(repo.callees("cart_add"), (std::set<std::string>{"clamp"}));
  EXPECT_EQ(repo.callers("cart_total"),
            (std::set<std::string>{"receipt_print", "test_add_and_total"}));
  // printf and a name defined nowhere make no edge (`<stdio.h>` is not the stdio.h beside
  // receipt.c), nor cart_reset, defined in two files that receipt.c includes; price_round is
  // declared in a header that cart.h includes
  EXPECT_EQ(repo.callees("receipt_print"), (std::set<std::string>{"cart_total", "price_round"}));

  auto tests = repo.tests_of("src/store/cart.c");
  ASSERT_EQ(tests["tests"].size(), 1u);
  EXPECT_EQ(tests["tests"][0]["path"], "test/test_cart.c");
  EXPECT_NE(tests["tests"][0]["reason"].get<std::string>().find("calls cart_add"),
            std::string::npos);
  EXPECT_EQ(repo.tests_of("test/test_cart.c")["total_count"], 0);

  auto components = index.components_of({"src/store/cart.c", "test/test_cart.c"});
  EXPECT_EQ(components["src/store/cart.c"], "store");
  EXPECT_EQ(components["test/test_cart.c"], "test");

  // an include taken out of a header takes its callees away from the files including it, and
  // a header that comes later is found by the includes waiting for it
  repo.write("src/store/cart.h", "#include \"money.h\"\nint cart_total(const void *c);\n");
  repo.update();
  EXPECT_EQ(repo.callees("receipt_print"), (std::set<std::string>{"cart_total"}));
  repo.write("src/store/money.h", "#include \"price.h\"\n");
  repo.update();
  EXPECT_EQ(repo.callees("receipt_print"), (std::set<std::string>{"cart_total", "price_round"}));
}

}  // namespace
