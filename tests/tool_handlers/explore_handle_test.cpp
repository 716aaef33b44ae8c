#include <gtest/gtest.h>

#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include "fakes/fake_repository.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "tool_handlers/json_keys.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::tool_handlers;

using test_json::keys;

TEST(ExploreHandle, EarlyAnswersAndTheFittedShape) {
  fakes::FakeRepository repo;
  fakes::FakeRetriever retriever;
  Json tools = handle_explore(repo, "available tools", "file", "bogus", 1);
  EXPECT_FALSE(tools.contains("tokens_used"));
  Json none = handle_explore(repo, "the of and", "module", "standard", 2000, &retriever);
  EXPECT_EQ(keys(none), (std::vector<std::string>{"query", "error", "hint"}));
  EXPECT_EQ(none["error"], detail::NO_TERMS);

  repo.files["shop/cart.py"] = {1, "shop/cart.py"};
  repo.symbols_by_file[1] = {fakes::symbol(1, "shop.cart.total", "function", 3)};
  repo.placement = {{"shop/cart.py", "shop"}};
  fakes::FakeMemoryLookup memories;
  memories.memories.push_back({1, "t", "x", {}, "2026-01-01T00:00:00Z"});
  Json a = handle_explore(repo, "shop/cart.py", "module", "odd", 0, nullptr, &memories);
  EXPECT_EQ(keys(a), (std::vector<std::string>{"query", "route", "components", "truncated",
                                               "tokens_used", "next_steps", "memories"}));
  EXPECT_TRUE(a["truncated"]);
  EXPECT_EQ(a["next_steps"].back()["arguments"],
            (Json{{"query", "shop/cart.py"}, {"depth", "odd"}, {"token_budget", 2}}));

  EXPECT_FALSE(handle_explore(repo, "shop/cart.py", "file").contains("components"));

  const std::string name = "orvane_tamsel.tool_handlers.explore";
  auto logger = spdlog::get(name) ? spdlog::get(name) : spdlog::stderr_color_mt(name);
  auto ring = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(8);
  logger->sinks().push_back(ring);
  repo.components_throw = true;
  Json c = handle_explore(repo, "shop/cart.py");
  logger->sinks().pop_back();
  auto logged = ring->last_formatted();
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("[warning] explore: the components of 'shop/cart.py' failed\n"),
            std::string::npos);
  EXPECT_NE(logged[0].find("components down"), std::string::npos);
  EXPECT_EQ(c["notes"], Json::array({detail::COMPONENTS_FAILED}));
  EXPECT_TRUE(c.contains("symbols"));

  // A tests query whose target the index lacks is asked as a question.
  retriever.result.hits.push_back({{1, "shop/cart.py"}, 1});
  repo.by_id[1] = {fakes::symbol(1, "shop.cart.total", "function"), "shop/cart.py"};
  repo.components_throw = false;
  Json q = handle_explore(repo, "tests for missing_name", "module", "standard", 2000, &retriever);
  EXPECT_EQ(q["route"], QUESTION);
  EXPECT_TRUE(retriever.calls.back().include_tests);
}

TEST(ExploreHandle, ReprQuotesLikeALiteral) {
  EXPECT_EQ(detail::repr("it's"), "\"it's\"");
  EXPECT_EQ(detail::repr("a'\"b\n\x01"), "'a\\'\"b\\n\\x01'");
  EXPECT_EQ(detail::repr("caf\xc3\xa9"), "'caf\xc3\xa9'");
}
