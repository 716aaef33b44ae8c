#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"

namespace {

using namespace orvane_tamsel;

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

  std::set<std::string> callers;
  for (const auto& n : index->evidence_neighbours({*total->id}, index::TestFilter::include, 50,
                                                  std::vector<index::Relation>{index::CALLER})) {
    callers.insert(n.fqn.value_or(""));
  }
  EXPECT_EQ(callers, (std::set<std::string>{"lib.cart.Cart.label",
                                            "__tests__.cart.Cart.totals_the_prices"}));
  auto format = index->get_symbol_by_fqn("lib.format.formatPrice");
  ASSERT_TRUE(format.has_value());
  auto format_callers = index->evidence_neighbours({*format->id}, index::TestFilter::include, 50,
                                                   std::vector<index::Relation>{index::CALLER});
  ASSERT_EQ(format_callers.size(), 1U);
  EXPECT_EQ(format_callers[0].fqn.value_or(""), "lib.cart.Cart.label");

  // a module that is one class, bound whole by `require`
  auto print = index->get_symbol_by_fqn("lib.receipt.Receipt.print");
  ASSERT_TRUE(print.has_value());
  auto print_callers = index->evidence_neighbours({*print->id}, index::TestFilter::include, 50,
                                                  std::vector<index::Relation>{index::CALLER});
  ASSERT_EQ(print_callers.size(), 1U);
  EXPECT_EQ(print_callers[0].fqn.value_or(""), "__tests__.cart.Cart.totals_the_prices");

  auto tests = index->get_tests_for("lib/cart.js");
  ASSERT_FALSE(tests["tests"].empty());
  EXPECT_EQ(tests["tests"][0]["path"], "__tests__/cart.js");
}

}  // namespace
