// `tamsel explore` as a client runs it: one process per query on a fresh copy of a small
// repository.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include "indexer/temp_repo.h"
#include "orvane_tamsel/utils/unicode.h"
#include "tool_handlers/json_keys.h"

namespace {

using Json = nlohmann::ordered_json;
using test_json::keys;

std::string shell_quote(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

class ExploreEndToEnd : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { repo = new indexer_test::TempRepo("explore_shop"); }
  static void TearDownTestSuite() { delete repo; }

  // The printed answer, checked to be one line of JSON whose tokens_used is its own size.
  static Json explore(const std::string& query, const std::string& flags = "") {
    std::string command = std::string(TAMSEL_BINARY) + " explore --repo " +
                          shell_quote(repo->root().string()) + " " + flags + " " +
                          shell_quote(query) + " 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string out;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    int status = ::pclose(pipe);
    EXPECT_EQ(WEXITSTATUS(status), 0) << query;
    EXPECT_TRUE(!out.empty() && out.back() == '\n' && out.find('\n') == out.size() - 1) << out;
    std::string text = out.substr(0, out.size() - 1);
    Json answer = Json::parse(text);
    if (answer.contains("tokens_used")) {
      EXPECT_EQ(answer["tokens_used"], (orvane_tamsel::utils::code_points(text) + 3) / 4) << text;
    }
    return answer;
  }

  static std::vector<std::string> descriptions(const Json& answer) {
    std::vector<std::string> out;
    for (const auto& s : answer["next_steps"]) out.push_back(s["description"]);
    return out;
  }

  static inline indexer_test::TempRepo* repo = nullptr;
};

using Keys = std::vector<std::string>;
const Keys SYMBOL_ROW = {"fqn", "name", "kind", "file", "line", "signature", "summary"};
const Keys NEIGHBOUR_ROW = {"fqn", "name", "kind", "file", "line"};

TEST_F(ExploreEndToEnd, ToolsRoute) {
  Json a = explore("What tools are available?", "--token-budget 1");
  EXPECT_EQ(keys(a), (Keys{"query", "route", "total_tools", "tiers", "next_steps"}));
  EXPECT_EQ(a["route"], "tools");
  EXPECT_EQ(descriptions(a), (Keys{"Ask about the code: a question, a name in code or a path",
                                   "A context pack for a coding task"}));
}

TEST_F(ExploreEndToEnd, PathRoute) {
  Json a = explore("./shop/cart.py");
  EXPECT_EQ(keys(a), (Keys{"query", "route", "files", "symbols", "components", "truncated",
                           "tokens_used", "next_steps"}));
  EXPECT_EQ(a["files"], Json::array({"shop/cart.py"}));
  EXPECT_EQ(keys(a["symbols"][0]), SYMBOL_ROW);
  EXPECT_EQ(a["symbols"][3]["fqn"], "shop.cart.Cart.total");
  EXPECT_EQ(descriptions(a),
            (Keys{"The imports and related files of shop/cart.py", "The tests of shop/cart.py"}));
  EXPECT_EQ(a["next_steps"][0]["arguments"],
            (Json{{"action", "related"}, {"path", "shop/cart.py"}}));

  Json folder = explore("shop/", "--depth quick");
  EXPECT_EQ(folder["files"].size(), 4u);
  EXPECT_EQ(folder["truncated"], false);
  EXPECT_EQ(descriptions(folder), (Keys{"Every indexed file under shop/"}));

  Json missing = explore("shop/nowhere.py");
  EXPECT_EQ(keys(missing), (Keys{"query", "route", "found", "did_you_mean", "truncated",
                                 "tokens_used", "next_steps"}));
}

TEST_F(ExploreEndToEnd, IdentifierRoute) {
  Json a = explore("apply_discount");
  EXPECT_EQ(keys(a), (Keys{"query", "route", "symbols", "callers", "components", "truncated",
                           "tokens_used", "next_steps"}));
  EXPECT_EQ(a["symbols"][0]["fqn"], "shop.pricing.apply_discount");
  EXPECT_EQ(keys(a["callers"][0]), NEIGHBOUR_ROW);
  EXPECT_EQ(a["callers"].size(), 2u);
  EXPECT_EQ(descriptions(a), (Keys{"Everything that references shop.pricing.apply_discount",
                                   "The tests of shop/pricing.py"}));
  EXPECT_EQ(a["next_steps"][1]["arguments"],
            (Json{{"action", "for_file"}, {"path", "shop/pricing.py"}}));
}

TEST_F(ExploreEndToEnd, TestsRoute) {
  Json a = explore("which tests cover Cart?");
  EXPECT_EQ(a["route"], "tests");
  EXPECT_EQ(keys(a), (Keys{"query", "route", "symbols", "tests", "components", "truncated",
                           "tokens_used", "next_steps"}));
  std::vector<std::string> callers;
  for (const auto& t : a["tests"]) callers.push_back(t["fqn"]);
  // Tests of the class are those of its members, ordered by file then line.
  EXPECT_EQ(callers, (Keys{"test_cart.test_total_applies_discount",
                           "test_receipt.test_receipt_lists_items"}));
  EXPECT_EQ(descriptions(a), (Keys{"The test files of shop/cart.py, ranked"}));

  Json file = explore("shop/receipt.py tests");
  EXPECT_EQ(keys(file).at(2), "files");
  EXPECT_EQ(descriptions(file), (Keys{"Every test of shop/receipt.py, ranked, with why"}));
}

TEST_F(ExploreEndToEnd, QuestionRoute) {
  // "formatted" names nothing, so the retriever's note says so, between the facts and the flags.
  Json a = explore("how is a receipt formatted");
  EXPECT_EQ(keys(a), (Keys{"query", "route", "symbols", "related", "components", "notes",
                           "truncated", "tokens_used", "next_steps"}));
  EXPECT_EQ(a["symbols"][0]["fqn"], "shop.receipt.print_receipt");
  EXPECT_EQ(keys(a["related"][0]), (Keys{"fqn", "name", "kind", "file", "line", "called_by"}));
  EXPECT_EQ(descriptions(a), (Keys{"The definition and docstring of shop.receipt.print_receipt",
                                   "Every caller of shop.receipt.print_receipt"}));
}

TEST_F(ExploreEndToEnd, BudgetOfOneCutsEveryRowAndAsksAgain) {
  for (const std::string query : {"shop/cart.py", "Cart.total", "tests for apply_discount",
                                  "how is the cart total computed"}) {
    Json a = explore(query, "--token-budget 1 --scope project");
    EXPECT_EQ(a["truncated"], true) << query;
    for (const auto* block : {"files", "symbols", "callers", "tests", "related"})
      EXPECT_FALSE(a.contains(block)) << query;
    const Json& retry = a["next_steps"].back();
    EXPECT_EQ(retry["description"], "The answer was cut to 1 tokens: ask with more");
    EXPECT_EQ(retry["arguments"],
              (Json{{"query", query}, {"scope", "project"}, {"token_budget", 2}}));
  }
}

}  // namespace
