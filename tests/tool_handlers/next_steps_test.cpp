#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/tool_registry.h"

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

  // Nothing alike still leaves a way on: the text search for a name, every file for a path.
  auto unlike = suggest_symbols(Json::object(), *index, "Zzqq.Qqxxzz", "detail");
  EXPECT_TRUE(unlike["did_you_mean"].empty());
  EXPECT_EQ(tool_result_text(unlike["next_steps"]),
            R"([{"tool":"search","description":"Search the text of the code",)"
            R"("arguments":{"action":"code","query":"Zzqq.Qqxxzz"}}])");
  for (const std::string& root : {std::string("/"), std::string("./"), repo.repo()}) {
    auto listed = suggest_paths(Json::object(), *index, root, "symbols");
    EXPECT_TRUE(listed["did_you_mean"].empty()) << root;
    EXPECT_EQ(tool_result_text(listed["next_steps"]),
              R"([{"tool":"files","description":"Every indexed file","arguments":{"path":""}}])")
        << root;
  }
}

TEST(NextSteps, SuggestedNamesWeighTheOwnerAndAreListedOnce) {
  indexer_test::TempRepo repo;
  std::string text;
  for (int i = 10; i < 50; ++i)
    text += "class Worker" + std::to_string(i) + ":\n    def run(self):\n        pass\n\n";
  repo.write("jobs.py", text);
  repo.write("one.h", "int run_all(void);\n");
  repo.write("two.h", "int run_all(void);\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  // Forty namesakes: more than the candidates alike in name alone.
  EXPECT_EQ(suggest_symbols(Json::object(), *index, "Wrker37.run", "detail")["did_you_mean"][0],
            "jobs.Worker37.run");
  EXPECT_EQ(
      suggest_symbols(Json::object(), *index, "jobs.Wroker12.run", "detail")["did_you_mean"][0],
      "jobs.Worker12.run");
  auto declared = suggest_symbols(Json::object(), *index, "rnu_all", "detail")["did_you_mean"];
  EXPECT_EQ(std::count(declared.begin(), declared.end(), "run_all"), 1) << declared;
  // The symbol tool suggests what explore does.
  ToolContext context{*index, nullptr, nullptr, {}};
  try {
    call_tool("symbol", checked_arguments(*find_tool("symbol"), {{"fqn", "Wrker37.run"}}), context);
    FAIL();
  } catch (const ToolError& e) {
    EXPECT_EQ(error_answer(e)["did_you_mean"][0], "jobs.Worker37.run");
  }
}
