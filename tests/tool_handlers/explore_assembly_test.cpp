#include <gtest/gtest.h>

#include "fakes/fake_repository.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/utils/unicode.h"
#include "tool_handlers/json_keys.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::tool_handlers;
using namespace orvane_tamsel::tool_handlers::detail;

using test_json::keys;

TEST(ExploreAssembly, DraftFilesAndRows) {
  Draft d("q", "path");
  EXPECT_TRUE(d.files().empty());
  d.blocks["symbols"] = Json::array({Json{{"file", "b.py"}}, Json{{"file", nullptr}},
                                     Json{{"name", "x"}}, Json{{"file", ""}}, Json{{"file", 3}}});
  d.blocks["files"] = Json::array({"a.py", "", "b.py", "a.py"});
  EXPECT_EQ(d.files(), (std::vector<std::string>{"b.py", "a.py"}));

  // Empty signature and docstring leave their keys out.
  auto s = fakes::symbol(1, "shop.cart.total", "function", 7);
  s.signature = "";
  EXPECT_EQ(keys(symbol_row(s, "p.py")),
            (std::vector<std::string>{"fqn", "name", "kind", "file", "line"}));
  index::Neighbour empty;
  EXPECT_EQ(tool_result_text(neighbour_row(empty)),
            R"({"fqn":null,"name":null,"kind":null,"file":null,"line":null})");
}

TEST(ExploreAssembly, FittingCutsRowsAndMeasuresItsOwnText) {
  Draft d("q", "question");
  d.blocks["symbols"] = Json::array({Json{{"file", std::string(40, 'x')}}, "a", "b"});
  d.blocks["related"] = Json::array({"c"});
  d.facts["found"] = false;
  d.steps.push_back(Json{{"tool", "t"}});
  Json r = retry("q", "module", "standard", 40);

  Json all = fitted(d, 1000, retry("q", "module", "standard", 1000));
  EXPECT_FALSE(all["truncated"]);
  EXPECT_EQ(all["next_steps"].size(), 1u);  // the retry step is dropped when nothing is cut
  EXPECT_EQ(all["tokens_used"], (utils::code_points(tool_result_text(all)) + 3) / 4);

  // The large first row ends the fill: the small rows after it stay out.
  Json some = fitted(d, 40, r);
  EXPECT_FALSE(some.contains("symbols"));
  EXPECT_FALSE(some.contains("related"));
  EXPECT_TRUE(some["truncated"]);
  EXPECT_EQ(some["next_steps"].back()["description"],
            "The answer was cut to 40 tokens: ask with more");

  // A row whose size equals the room left still goes in; one character less and it is cut.
  Draft e("q", "path");
  e.blocks["files"] = Json::array({"abc"});  // 5 characters, so a size of 6
  for (std::int64_t budget = 1; budget < 100; ++budget) {
    Json skeleton =
        Json{{"query", "q"},       {"route", "path"},       {"files", Json::array()},
             {"truncated", false}, {"tokens_used", budget}, {"next_steps", Json::array()}};
    auto room = budget * 4 - static_cast<std::int64_t>(result_chars(skeleton));
    if (room == 6) {
      EXPECT_TRUE(fitted(e, budget, nullptr).contains("files")) << budget;
    }
    if (room == 5) {
      EXPECT_FALSE(fitted(e, budget, nullptr).contains("files")) << budget;
    }
  }

  // No retry beyond the largest budget; default scope and depth are left out of its arguments.
  EXPECT_TRUE(retry("q", "module", "standard", MAX_BUDGET).is_null());
  EXPECT_EQ(retry("q", "module", "standard", MAX_BUDGET - 1)["arguments"]["token_budget"],
            MAX_BUDGET);
  EXPECT_EQ(tool_result_text(retry("q", "module", "standard", 1)["arguments"]),
            R"({"query":"q","token_budget":2})");

  e.capped = true;
  Json capped = fitted(e, 1000, retry("q", "module", "standard", 1000));
  EXPECT_TRUE(capped["truncated"]);
  EXPECT_TRUE(capped["next_steps"].empty());
}

TEST(ExploreAssembly, ComponentsRankByCountThenName) {
  fakes::FakeRepository repo;
  repo.placement = {{"a", "core"}, {"b", "core"}, {"c", "core"},  {"d", "cli"},
                    {"e", "api"},  {"f", "Zeta"}, {"g", "alpha"}, {"h", "beta"}};
  auto rows = components(repo, {"a", "b", "c", "d", "e", "f", "g", "h", "x"});
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(tool_result_text(rows),
            R"([{"name":"core","files":3},{"name":"Zeta","files":1},{"name":"alpha","files":1},)"
            R"({"name":"api","files":1},{"name":"beta","files":1}])");
  EXPECT_TRUE(components(repo, {}).empty());
}
