#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::tool_handlers;

TEST(NextSteps, StepKeepsArgumentOrder) {
  EXPECT_EQ(tool_result_text(step("file", "Read it", Json{{"path", "a.py"}, {"action", "x"}})),
            R"({"tool":"file","description":"Read it","arguments":{"path":"a.py","action":"x"}})");
  EXPECT_EQ(tool_result_text(step("files", "All")),
            R"({"tool":"files","description":"All","arguments":{}})");
}

TEST(NextSteps, SuggestionsFromTheShopIndex) {
  indexer_test::TempRepo repo("shop");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());

  auto paths = suggest_paths(Json::object(), *index, "src/shop/pricng.py", "symbols");
  ASSERT_FALSE(paths["did_you_mean"].empty());
  EXPECT_EQ(paths["did_you_mean"][0], "src/shop/pricing.py");
  EXPECT_LE(paths["did_you_mean"].size(), 5u);
  EXPECT_EQ(paths["next_steps"][0]["tool"], "file");
  EXPECT_EQ(paths["next_steps"][0]["arguments"]["action"], "symbols");
  // Same stem, other extension.
  EXPECT_EQ(suggest_paths(Json::object(), *index, "src/shop/cart.js", "symbols")["did_you_mean"][0],
            "src/shop/cart.py");

  auto names = suggest_symbols(Json{{"error", "not found"}}, *index, "Cart.totl", "detail");
  EXPECT_EQ(names["error"], "not found");
  ASSERT_FALSE(names["did_you_mean"].empty());
  EXPECT_EQ(names["did_you_mean"][0], "shop.cart.Cart.total");
  EXPECT_EQ(names["next_steps"][0]["arguments"]["fqn"], "shop.cart.Cart.total");
  EXPECT_EQ(names["next_steps"][0]["arguments"]["action"], "detail");

  auto nothing = suggest_symbols(Json::object(), *index, "", "detail");
  EXPECT_TRUE(nothing["did_you_mean"].empty());
  EXPECT_TRUE(nothing["next_steps"].empty());
}
