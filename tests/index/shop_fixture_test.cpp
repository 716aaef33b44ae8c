#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexer/indexed_fixture.h"

using namespace orvane_tamsel;
using ::testing::ElementsAre;

namespace {

std::vector<std::string> described(const std::vector<index::Neighbour>& ns) {
  std::vector<std::string> out;
  for (const auto& n : ns) out.push_back(*n.fqn + " " + n.relation);
  return out;
}

}  // namespace

// The index of the shop fixture as `tamsel index` writes it, read back through the Repository.
TEST(ShopIndex, ReadsOfARealRepository) {
  indexer_test::IndexedFixture repo("shop");
  auto& index = repo.index();

  EXPECT_EQ(repo.tests_of("src/shop/pricing.py")["tests"][0]["reason"],
            "calls apply_discount (1 call site); calls it through helpers.discounted (1 call "
            "site); imports shop.pricing; named after pricing.py");
  auto cart = repo.tests_of("src/shop/cart.py");
  EXPECT_EQ(cart["total_count"], 1);
  EXPECT_EQ(cart["tests"][0]["reason"],
            "calls Cart, Cart.add, Cart.total, GiftCart and 2 more (7 call sites); imports "
            "shop.cart; named after cart.py");

  auto total = repo.symbol("shop.cart.Cart.total");
  EXPECT_THAT(
      described(index.evidence_neighbours({total.id.value_or(0)}, index::TestFilter::include, 20)),
      ElementsAre("shop.cart.Cart.subtotal callee", "shop.cart.GiftCart.total caller",
                  "shop.cli_tools.main caller", "shop.pricing.apply_discount callee",
                  "shop.pricing.with_tax callee", "test_cart.test_add_and_total caller"));
  auto apply = repo.symbol("shop.pricing.apply_discount");
  EXPECT_THAT(described(index.evidence_neighbours({apply.id.value_or(0)}, index::TestFilter::only,
                                                  20, std::vector<index::Relation>{index::CALLER})),
              ElementsAre("helpers.discounted caller", "test_pricing.test_discount caller"));
  EXPECT_EQ(index.components_of({"src/shop/cart.py", "tests/test_cart.py"}),
            (std::map<std::string, std::string>{{"src/shop/cart.py", "shop"},
                                                {"tests/test_cart.py", "tests"}}));
  EXPECT_THAT(index.paths_with_stem("shop/cli_tools", 5), ElementsAre("src/shop/cli_tools.py"));
}
