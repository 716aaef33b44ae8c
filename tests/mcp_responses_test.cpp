#include <gtest/gtest.h>

#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_registry.h"

using namespace orvane_tamsel;

TEST(McpResponses, TextAndFirstSentence) {
  Json v = Json::object();
  v["zeta"] = "naïve → ok";
  v["alpha"] = Json::array({1, nullptr});
  EXPECT_EQ(tool_result_text(v), R"({"zeta":"naïve → ok","alpha":[1,null]})");
  EXPECT_EQ(result_chars(Json("é")), 3u);

  EXPECT_EQ(first_sentence(std::nullopt), "");
  EXPECT_EQ(first_sentence(std::string("")), "");
  EXPECT_EQ(
      first_sentence(std::string("\n  Apply a   discount\n  code. Returns the amount.\n\nMore.")),
      "Apply a discount code.");
  EXPECT_EQ(first_sentence(std::string("Version 1.2 of it\n\nsecond")), "Version 1.2 of it");
}

TEST(ToolRegistry, TiersAndExploreBudget) {
  std::vector<std::string> names;
  for (const auto& t : TOOLS) names.push_back(t.name + ":" + std::to_string(t.tier));
  EXPECT_EQ(names, (std::vector<std::string>{"explore:1", "context:1", "symbol:2", "file:2",
                                             "files:2", "tests:2", "search:2", "memory:3"}));
  const auto* explore = find_tool("explore");
  ASSERT_TRUE(explore);
  bool budget = false;
  for (const auto& p : explore->params) {
    if (p.name == "token_budget") budget = p.maximum.value_or(0) >= 20000;
  }
  EXPECT_TRUE(budget);
  EXPECT_EQ(find_tool("nope"), nullptr);
}
