#include <gtest/gtest.h>

#include "fakes/fake_repository.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::tool_handlers;
using namespace orvane_tamsel::tool_handlers::detail;

namespace {
const Depth& standard = depth_profile("standard");

std::vector<std::string> descriptions(const Draft& d) {
  std::vector<std::string> out;
  for (const auto& s : d.steps) out.push_back(s["description"]);
  return out;
}
}  // namespace

TEST(ExploreRoutes, PathFileFolderAndName) {
  fakes::FakeRepository repo;
  repo.files["src/app/cart.py"] = {7, "src/app/cart.py"};
  auto a = fakes::symbol(2, "cart.b", "function", 10);
  auto b = fakes::symbol(1, "cart.a", "function", 10);
  auto c = fakes::symbol(0, "cart.c", "method", 10);
  c.id.reset();
  repo.symbols_by_file[7] = {fakes::symbol(3, "cart", "module", 1), a, b, c,
                             fakes::symbol(4, "cart.z", "function", 2)};
  Draft d("q", PATH);
  path(repo, d, "src/app/cart.py", standard);
  std::vector<std::string> order;
  for (const auto& row : d.blocks["symbols"]) order.push_back(row["fqn"]);
  EXPECT_EQ(order, (std::vector<std::string>{"cart.z", "cart.c", "cart.a", "cart.b"}));
  EXPECT_EQ(d.blocks["files"], Json::array({"src/app/cart.py"}));

  std::vector<std::string> forty;
  for (int i = 0; i < 40; ++i) forty.push_back("src/f" + std::to_string(i) + ".py");
  repo.folders["src/"] = {forty, 40};
  Draft f("q", PATH);
  path(repo, f, "./src/", standard);
  EXPECT_EQ(f.blocks["files"].size(), 10u);
  EXPECT_TRUE(f.capped);
  EXPECT_EQ(f.steps[0]["arguments"], (Json{{"path", "src/"}}));

  repo.stems["cart"] = {"a/cart.py", "b/cart.txt", "c/cart.py"};
  Draft n("q", PATH);
  path(repo, n, "cart.py", standard);
  EXPECT_EQ(n.blocks["files"], Json::array({"a/cart.py", "c/cart.py"}));
  EXPECT_EQ(repo.stem_calls.back(), std::pair(std::string("cart"), 10));
  repo.stems["Makefile"] = {"Makefile", "x/Makefile"};
  EXPECT_EQ(files_named(repo, "Makefile", 10).size(), 2u);
  repo.stems["shop/cli_tools"] = {"shop/cli_tools.py"};
  EXPECT_EQ(module_paths(repo, "shop.cli_tools", 10).size(), 1u);

  // A file the walk left out says why; a path that is nowhere adds no note.
  repo.skipped["src/big.py"] = "too large";
  Draft skipped("q", PATH);
  path(repo, skipped, "./src/big.py", standard);
  EXPECT_EQ(skipped.notes, (std::vector<std::string>{"src/big.py is not indexed: too large"}));
  EXPECT_EQ(skipped.facts["found"], false);
  Draft nowhere("q", PATH);
  path(repo, nowhere, "src/none.py", standard);
  EXPECT_TRUE(nowhere.notes.empty());
}

TEST(ExploreRoutes, IdentifierNamesakesCallersAndFallbacks) {
  fakes::FakeRepository repo;
  for (int i = 1; i <= 8; ++i) {
    repo.namesakes.push_back(fakes::symbol(i, "m" + std::to_string(i) + ".total", "function"));
    repo.paths[i] = "m" + std::to_string(i) + ".py";
  }
  repo.paths.erase(1);  // the first has no path: the tests step names the empty path
  for (int i = 0; i < 6; ++i) repo.neighbours.push_back(fakes::neighbour(100 + i, "c", "t.py", i));
  Draft d("q", IDENTIFIER);
  identifier(repo, d, "total", depth_profile("quick"));
  EXPECT_EQ(d.blocks["symbols"].size(), 5u);
  EXPECT_EQ(d.blocks["symbols"][0]["file"], "");
  EXPECT_EQ(d.blocks["callers"].size(), 5u);
  EXPECT_TRUE(d.capped);
  EXPECT_EQ(
      d.notes,
      (std::vector<std::string>{"5 symbols are named total; the callers are those of m1.total"}));
  EXPECT_EQ(descriptions(d),
            (std::vector<std::string>{"Every caller of m1.total",
                                      "Everything that references m1.total", "The tests of "}));
  const auto& call = repo.neighbour_calls.back();
  EXPECT_EQ(call.ids, (std::vector<index::SymbolId>{1}));
  EXPECT_EQ(call.limit, 6);
  EXPECT_EQ(call.tests, index::TestFilter::include);
  EXPECT_EQ(call.relations, (std::vector<index::Relation>{"caller"}));

  // A qualified name keeps only namesakes ending at a qualifier boundary.
  repo.namesakes = {fakes::symbol(1, "shop.MyCart.total", "method"),
                    fakes::symbol(2, "shop.cart.Cart.total", "method"),
                    fakes::symbol(3, "Cart.total", "method")};
  auto named = symbols_named(repo, "Cart::total");
  ASSERT_EQ(named.size(), 2u);
  EXPECT_EQ(named[0].first.fqn, "shop.cart.Cart.total");

  // A fully qualified name is looked up alone, with no search.
  repo.by_fqn["shop.cart.Cart.total"] = fakes::symbol(2, "shop.cart.Cart.total", "method");
  auto searches = repo.search_calls.size();
  EXPECT_EQ(symbols_named(repo, "shop.cart.Cart.total").size(), 1u);
  EXPECT_EQ(repo.search_calls.size(), searches);

  // A module name answers with its file; nothing at all answers with suggestions.
  repo.namesakes.clear();
  repo.stems["cli_tools"] = {"shop/cli_tools.py"};
  Draft m("q", IDENTIFIER);
  identifier(repo, m, "cli_tools", standard);
  EXPECT_EQ(m.blocks["files"], Json::array({"shop/cli_tools.py"}));
  EXPECT_FALSE(m.blocks.contains("callers"));
  Draft none("q", IDENTIFIER);
  identifier(repo, none, "nothing_here", standard);
  EXPECT_EQ(none.facts["found"], false);
}

TEST(ExploreRoutes, TestsOfSymbolsAndFiles) {
  fakes::FakeRepository repo;
  auto cart = fakes::symbol(1, "shop.Cart", "class", 1, 9);
  repo.by_fqn["shop.Cart"] = cart;
  repo.paths[1] = "shop.py";
  repo.symbols_by_file[9] = {cart, fakes::symbol(2, "shop.Cart.total", "method", 3, 9),
                             fakes::symbol(3, "shop.CartView.total", "method", 9, 9)};
  for (int i = 0; i < 11; ++i)
    repo.neighbours.push_back(fakes::neighbour(100 + i, "t" + std::to_string(i), "t.py", 50 - i));
  Draft d("q", TESTS);
  ASSERT_TRUE(tests(repo, d, "shop.Cart", standard));
  EXPECT_EQ(repo.neighbour_calls.back().ids, (std::vector<index::SymbolId>{1, 2}));
  EXPECT_EQ(repo.neighbour_calls.back().tests, index::TestFilter::only);
  EXPECT_EQ(repo.neighbour_calls.back().limit, 11);
  EXPECT_EQ(d.blocks["tests"].size(), 10u);
  EXPECT_TRUE(d.capped);
  EXPECT_EQ(d.blocks["tests"][0]["line"], 40);  // by path, then line
  // A Go struct holds its methods as a class does; a function is asked alone.
  repo.by_fqn["shop.Cart"].kind = "struct";
  Draft s("q", TESTS);
  tests(repo, s, "shop.Cart", standard);
  EXPECT_EQ(repo.neighbour_calls.back().ids, (std::vector<index::SymbolId>{1, 2}));
  repo.by_fqn["shop.Cart"].kind = "function";
  Draft f1("q", TESTS);
  tests(repo, f1, "shop.Cart", standard);
  EXPECT_EQ(repo.neighbour_calls.back().ids, (std::vector<index::SymbolId>{1}));
  repo.by_fqn["shop.Cart"].kind = "class";
  repo.neighbours = {fakes::neighbour(100, "first", "t.py", 5),
                     fakes::neighbour(101, "x", "a.py", 9),
                     fakes::neighbour(100, "again", "t.py", 5)};
  Draft twice("q", TESTS);
  tests(repo, twice, "shop.Cart", standard);
  EXPECT_EQ(tool_result_text(twice.blocks["tests"]),
            R"([{"fqn":"x","name":"x","kind":"function","file":"a.py","line":9},)"
            R"({"fqn":"again","name":"again","kind":"function","file":"t.py","line":5}])");
  EXPECT_FALSE(twice.capped);
  // Eleven distinct tests behind twelve records, one test calling twice among the first eleven:
  // the answer lists ten and says it is cut, though the first read held only ten distinct.
  repo.neighbours.clear();
  for (int i = 0; i < 11; ++i)
    repo.neighbours.push_back(fakes::neighbour(200 + i, "u" + std::to_string(i), "u.py", i + 1));
  repo.neighbours.insert(repo.neighbours.begin() + 1, fakes::neighbour(200, "u0", "u.py", 1));
  Draft eleven("q", TESTS);
  tests(repo, eleven, "shop.Cart", standard);
  EXPECT_EQ(eleven.blocks["tests"].size(), 10u);
  EXPECT_TRUE(eleven.capped);

  repo.files["src/cart.py"] = {4, "src/cart.py"};
  index::TestsOfFile ranked;
  for (int i = 0; i < 10; ++i) {
    ranked.tests.push_back({"t" + std::to_string(i)});
    if (i > 0) ranked.tests.back().imports = "cart";
  }
  ranked.total_count = 30;
  repo.tests_for["src/cart.py"] = ranked;
  Draft f("q", TESTS);
  ASSERT_TRUE(tests(repo, f, "src/cart.py", standard));
  EXPECT_TRUE(f.capped);
  EXPECT_EQ(tool_result_text(f.blocks["tests"][0]), R"({"file":"t0"})");
  EXPECT_EQ(tool_result_text(f.blocks["tests"][1]), R"({"file":"t1","reason":"imports cart"})");

  repo.tests_for["src/cart.py"] = {};
  Draft g("q", TESTS);
  ASSERT_TRUE(tests(repo, g, "src/cart.py", standard));
  EXPECT_TRUE(g.blocks["tests"].empty());
  EXPECT_FALSE(g.capped);

  Draft missing("q", TESTS);
  EXPECT_FALSE(tests(repo, missing, "src/app/gone.py", standard));
}

TEST(ExploreRoutes, QuestionHitsNeighboursAndScope) {
  fakes::FakeRepository repo;
  fakes::FakeRetriever retriever;
  for (int i = 1; i <= 5; ++i) {
    std::string p = i <= 2 ? "a.py" : "b.py";
    retriever.result.hits.push_back({{i, p}, 1.0});
    if (i != 1) repo.by_id[i] = {fakes::symbol(i, "s" + std::to_string(i), "function"), p};
  }
  retriever.result.shortfall = workers::Shortfall::words_unmatched;
  retriever.result.unmatched = {"zeppelin", "hangar"};
  repo.neighbours = {fakes::neighbour(5, "s5", "b.py", 1, 2),  // a listed symbol: skipped
                     fakes::neighbour(9, "n9", "c.py", 1, 2, "caller"),
                     fakes::neighbour(9, "n9", "c.py", 1, 3, "caller"),
                     fakes::neighbour(8, "n8", "c.py", 2, 3, "callee")};
  Draft d("how are totals computed", QUESTION);
  question(repo, retriever, d, depth_profile("deep"), "module", false);
  EXPECT_EQ(retriever.calls[0].limit, 20);
  EXPECT_TRUE(retriever.calls[0].rerank);
  EXPECT_EQ(d.blocks["symbols"].size(), 4u);  // id 1 is gone from the index
  EXPECT_EQ(repo.neighbour_calls[0].ids, (std::vector<index::SymbolId>{2, 3, 4, 5}));
  EXPECT_EQ(repo.neighbour_calls[0].limit, 5);
  EXPECT_EQ(repo.neighbour_calls[0].tests, index::TestFilter::exclude);
  EXPECT_FALSE(repo.neighbour_calls[0].relations.has_value());
  EXPECT_EQ(
      tool_result_text(d.blocks["related"]),
      R"([{"fqn":"n9","name":"n9","kind":"function","file":"c.py","line":1,"calls":"s2"},)"
      R"({"fqn":"n8","name":"n8","kind":"function","file":"c.py","line":2,"called_by":"s3"}])");
  EXPECT_EQ(d.steps[0]["description"], "The definition and docstring of s2");
  EXPECT_EQ(d.notes, (std::vector<std::string>{"found nothing for: zeppelin, hangar"}));

  // A neighbour reached from an id that was not asked fails the neighbour step only.
  repo.neighbours = {fakes::neighbour(7, "n7", "c.py", 1, 42)};
  Draft f("q", QUESTION);
  question(repo, retriever, f, standard, "file", true);
  EXPECT_EQ(f.blocks["symbols"].size(), 1u);  // a.py only, and id 1 is gone
  EXPECT_FALSE(f.blocks.contains("related"));
  EXPECT_EQ(f.notes.back(), NEIGHBOURS_FAILED);
  EXPECT_EQ(f.steps.size(), 2u);

  retriever.result = {};
  Draft none("where are the totals", QUESTION);
  question(repo, retriever, none, depth_profile("quick"), "module", false);
  EXPECT_TRUE(none.blocks["symbols"].empty());
  EXPECT_EQ(none.steps[0]["arguments"]["query"], "totals");
}
