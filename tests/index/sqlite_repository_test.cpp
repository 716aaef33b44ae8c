#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/shop_batch.h"
#include "index/tests_answer.h"
#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/index/subwords.h"

using namespace orvane_tamsel;
using namespace shop_batch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct Shop {
  TempRepo repo;
  indexer::IndexWriter writer;
  std::unique_ptr<index::Repository> index;
  explicit Shop(std::vector<ParsedFile> extra = {}) : writer(repo.root()) {
    auto files = all();
    files.insert(files.end(), extra.begin(), extra.end());
    write(writer, files);
    index = index::open_repository(repo.root());
  }
  index::SymbolId id(const std::string& fqn) {
    return index->get_symbol_by_fqn(fqn).value().id.value();
  }
};

std::vector<std::string> fqns(const std::vector<index::Symbol>& symbols) {
  std::vector<std::string> out;
  for (const auto& s : symbols) out.push_back(s.fqn);
  return out;
}

std::vector<std::string> described(const std::vector<index::Neighbour>& ns) {
  std::vector<std::string> out;
  for (const auto& n : ns) {
    out.push_back(*n.fqn + " " + n.relation + " " + std::to_string(n.call_sites));
  }
  return out;
}

}  // namespace

TEST(SqliteRepository, FilesPathsStemsAndComponents) {
  Shop shop({file("cart.py", "cart"), file("src/shop/sub/deep.py", "shop.sub.deep")});
  auto& index = *shop.index;
  auto cart = index.get_file_by_path("src/shop/cart.py");
  ASSERT_TRUE(cart && cart->id);
  EXPECT_EQ(cart->module, "shop.cart");
  EXPECT_FALSE(index.get_file_by_path("src/shop").has_value());

  auto [some, total] = index.paths_under("src/shop/", 2);
  EXPECT_THAT(some, ElementsAre("src/shop/cart.py", "src/shop/pricing.py"));
  EXPECT_EQ(total, 4);
  EXPECT_EQ(index.paths_under("src/shop", 10).second, 4);
  EXPECT_EQ(index.paths_under("", 1).second, 8);
  EXPECT_EQ(index.paths_under("src/sho", 10).second, 0);  // a folder, not a text prefix
  EXPECT_THAT(index.paths_page("tests", 1, 1).first, ElementsAre("tests/test_cart.py"));

  EXPECT_THAT(index.paths_with_stem("cart", 10), ElementsAre("cart.py", "src/shop/cart.py"));
  EXPECT_THAT(index.paths_with_stem("cart", 1), ElementsAre("cart.py"));
  EXPECT_THAT(index.paths_with_stem("shop/cart", 10), ElementsAre("src/shop/cart.py"));
  EXPECT_THAT(index.paths_with_stem("hop/cart", 10), IsEmpty());

  auto components = index.components_of({"src/shop/cart.py", "tests/test_cart.py", "cart.py",
                                         "src/shop/none.py", "src/shop/sub/deep.py"});
  EXPECT_EQ(components, (std::map<std::string, std::string>{{"cart.py", "cart"},
                                                            {"src/shop/cart.py", "shop"},
                                                            {"src/shop/sub/deep.py", "shop.sub"},
                                                            {"tests/test_cart.py", "tests"}}));
  EXPECT_EQ(index::component_of("packages/api/src/api/views.py", "api.views"), "api");
  EXPECT_EQ(index::component_of("scripts/run.py", "run"), "scripts");
  EXPECT_EQ(index::component_of("packages/cart/lib/total.js", "", "javascript"), "cart");
  EXPECT_EQ(index::component_of("packages/cart/src/ui/view.ts", "", "typescript"), "cart");
  EXPECT_EQ(index::component_of("lib/total.js", "", "javascript"), "lib");
  EXPECT_EQ(index::split_component("django.db.models.base", "django"), "django.db");
  EXPECT_EQ(index::split_component("django.shortcuts", "django"), "");
  EXPECT_EQ(index::split_component("djangoo.db.x", "django"), "");
  EXPECT_EQ(index::path_stem("a/archive.tar.gz"), "a/archive.tar");
  EXPECT_EQ(index::path_stem("src.d/.env"), "src.d/.env");
}

TEST(SqliteRepository, SymbolsByFileFqnAndName) {
  Shop shop;
  auto& index = *shop.index;
  auto file_id = index.get_file_by_path("src/shop/cart.py")->id.value();
  EXPECT_THAT(
      fqns(index.get_symbols_by_file(file_id)),
      ElementsAre("shop.cart", "shop.cart.TAX_RATE", "shop.cart.Cart", "shop.cart.Cart.__init__",
                  "shop.cart.Cart.add", "shop.cart.Cart.total", "shop.cart.applyDiscount"));
  auto cart = index.get_symbol_by_fqn("shop.cart.Cart");
  ASSERT_TRUE(cart);
  EXPECT_EQ(cart->docstring, "A shopping cart.");
  EXPECT_FALSE(index.get_symbol_by_fqn("shop.cart").has_value());  // modules are files

  auto exact = index.search_symbols({"test_add", "applyDiscount"}, true, 50);
  EXPECT_THAT(fqns(exact.symbols), ElementsAre("shop.cart.applyDiscount",
                                               "shop.pricing.applyDiscount", "test_cart.test_add"));
  EXPECT_EQ(exact.total, 3);
  EXPECT_FALSE(exact.more);
  auto capped = index.search_symbols({"applyDiscount"}, true, 1);
  EXPECT_EQ(capped.symbols.size(), 1u);
  EXPECT_EQ(capped.total, 2);
  EXPECT_TRUE(capped.more);
  EXPECT_THAT(index.search_symbols({"applydiscount"}, true, 5).symbols, IsEmpty());
  EXPECT_EQ(index.search_symbols({"applydiscount"}, false, 5).total, 2);
  // case-insensitive name, then prefix; the module "shop.cart" is never a result
  EXPECT_THAT(fqns(index.search_symbols({"cart"}, false, 5).symbols),
              ElementsAre("shop.cart.Cart"));
  EXPECT_THAT(
      fqns(index.search_symbols({"Test"}, false, 5).symbols),
      ElementsAre("test_cart.test_add", "test_cart.test_total", "test_checkout.test_checkout"));

  auto total_id = shop.id("shop.cart.Cart.total");
  auto paths = index.get_file_paths_batch({*cart, index::Symbol{}});
  EXPECT_EQ(paths, (std::map<index::SymbolId, std::string>{{*cart->id, "src/shop/cart.py"}}));
  auto found = index.symbols_with_paths({total_id, 999999});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found.at(total_id).first.name, "total");
  EXPECT_THAT(index.symbols_with_paths({}), IsEmpty());
  EXPECT_THAT(index.get_file_paths_batch({}), IsEmpty());
}

TEST(SqliteRepository, EvidenceNeighboursFilterOrderAndOrigin) {
  Shop shop;
  auto& index = *shop.index;
  auto total = shop.id("shop.cart.Cart.total");
  // production first, then call sites, then path; the subclass reaches it through its fallback
  auto callers = index.evidence_neighbours({total}, index::TestFilter::include, 10,
                                           std::vector<index::Relation>{index::CALLER});
  EXPECT_THAT(described(callers), ElementsAre("shop.cart.Cart.add caller 1",
                                              "shop.special.SpecialCart.checkout caller 1",
                                              "test_cart.test_total caller 1"));
  EXPECT_EQ(callers[0].line, 7);
  EXPECT_EQ(callers[0].path, "src/shop/cart.py");
  EXPECT_THAT(described(index.evidence_neighbours({total}, index::TestFilter::only, 10,
                                                  std::vector<index::Relation>{index::CALLER})),
              ElementsAre("test_cart.test_total caller 1"));
  EXPECT_EQ(index.evidence_neighbours({total}, index::TestFilter::exclude, 10).size(), 3u);
  EXPECT_EQ(index.evidence_neighbours({total}, index::TestFilter::include, 1).size(), 1u);

  // both relations; every record's origin is an asked id
  auto add = shop.id("shop.cart.Cart.add");
  auto both = index.evidence_neighbours({add, total, 0}, index::TestFilter::include, 20);
  for (const auto& n : both) EXPECT_TRUE(n.of == add || n.of == total) << *n.fqn;
  EXPECT_THAT(described(index.evidence_neighbours({add}, index::TestFilter::include, 10)),
              ElementsAre("shop.cart.Cart.total callee 1", "test_cart.test_add caller 2"));

  // a class call reaches the class and its __init__; top-level code calls as its module
  EXPECT_THAT(described(index.evidence_neighbours({shop.id("shop.cart.Cart.__init__")},
                                                  index::TestFilter::include, 10)),
              ElementsAre("helpers.make_cart caller 1", "test_cart.test_add caller 1",
                          "test_cart.test_total caller 1"));
  EXPECT_THAT(described(index.evidence_neighbours({shop.id("shop.pricing.price")},
                                                  index::TestFilter::include, 10,
                                                  std::vector<index::Relation>{index::CALLER})),
              ElementsAre("shop.pricing caller 1", "test_checkout.test_checkout caller 1"));
  EXPECT_EQ(index.caller_counts({total, add}),
            (std::map<index::SymbolId, std::int64_t>{{total, 3}, {add, 1}}));
  auto sites = index.call_sites(add, index::CALLER, 5);
  ASSERT_EQ(sites.size(), 2u);
  EXPECT_EQ(sites[1].site_line, 8);
  EXPECT_EQ(sites[1].site_path, "tests/test_cart.py");
}

TEST(SqliteRepository, TestsOfAFileRankedWithReasons) {
  Shop shop;
  auto& index = *shop.index;
  auto cart = tests_answer(index, "src/shop/cart.py");
  auto expected = index::Json::parse(R"json({"tests": [
      {"path": "tests/test_cart.py",
       "reason": "calls Cart, Cart.add, Cart.total, applyDiscount (6 call sites); imports shop.cart; named after cart.py"},
      {"path": "tests/test_checkout.py",
       "reason": "calls it through helpers.make_cart (1 call site)"}],
    "total_count": 2})json");
  EXPECT_EQ(cart, expected);
  EXPECT_EQ(tests_answer(index, "src/shop/pricing.py")["tests"][0]["reason"],
            "calls price (1 call site); imports shop.pricing");
  for (auto path : {"tests/test_cart.py", "src/shop/special.py", "nowhere.py"}) {
    EXPECT_EQ(tests_answer(index, path)["total_count"], 0) << path;
    EXPECT_TRUE(tests_answer(index, path)["tests"].empty()) << path;
  }
  // the list is bounded, the total is not; an edge through a subclass counts as a call
  std::vector<ParsedFile> many;
  for (int i = 0; i < 60; ++i) {
    auto name = "test_s" + std::to_string(100 + i);
    auto f = file("tests/" + name + ".py", name, true);
    f.symbols.push_back(sym(name + ".test_it", "function", 2, 4, true));
    f.calls.push_back(call(name + ".test_it", 3, "shop.special.SpecialCart.checkout"));
    many.push_back(f);
  }
  write(shop.writer, many);
  auto special = tests_answer(index, "src/shop/special.py");
  EXPECT_EQ(special["total_count"], 60);
  EXPECT_EQ(special["tests"].size(), 50u);
  EXPECT_EQ(special["tests"][0]["path"], "tests/test_s100.py");
  EXPECT_EQ(special["tests"][0]["reason"], "calls SpecialCart.checkout (1 call site)");
  for (auto path : {"tests/test_s100.py"}) {
    EXPECT_EQ(tests_answer(index, path)["total_count"], 0) << path;
    EXPECT_TRUE(tests_answer(index, path)["tests"].empty()) << path;
  }
}

TEST(SqliteRepository, TextSearchSubwordsStemmingAndSuggestions) {
  Shop shop;
  auto& index = *shop.index;
  EXPECT_THAT(index::subwords("ApplyDiscount"), ElementsAre("apply", "discount"));
  EXPECT_THAT(index::subwords("apply_discount"), ElementsAre("apply", "discount"));
  EXPECT_THAT(index::subwords("HTTPServer2"), ElementsAre("http", "server2"));

  auto ids = [&](const std::string& match, bool tests) {
    std::set<std::string> out;
    auto scored = index.search_text(match, 10, tests);
    std::vector<index::SymbolId> found;
    for (const auto& s : scored) found.push_back(s.id);
    for (auto& [id, pair] : index.symbols_with_paths(found)) out.insert(pair.first.fqn);
    return out;
  };
  std::set<std::string> discounts{"shop.cart.applyDiscount", "shop.pricing.applyDiscount"};
  EXPECT_EQ(ids("name:discount", false), discounts);       // camelCase sub-word
  EXPECT_EQ(ids("name:discounting", false), discounts);    // stemmed
  EXPECT_EQ(ids("name:applydiscount", false), discounts);  // the whole name
  EXPECT_EQ(ids("docstring:item", false), std::set<std::string>{"shop.cart.Cart.add"});
  EXPECT_EQ(ids("path:pricing AND name:price", false), std::set<std::string>{"shop.pricing.price"});
  EXPECT_TRUE(ids("test", false).empty());
  EXPECT_EQ(ids("test", true).size(), 4u);  // the three tests and the helper under tests/
  auto ranked = index.search_text("discount OR cart", 10, false);
  ASSERT_FALSE(ranked.empty());
  EXPECT_GE(ranked.front().score, ranked.back().score);
  EXPECT_THROW(index.search_text("name:(", 10, false), std::exception);

  // One search's term shares rank every subset of the terms exactly as a search of its own.
  std::vector<std::string> terms{"discount", "cart", "price", "test"};
  for (bool tests : {false, true}) {
    auto rows = index.term_shares(terms, tests);
    for (const auto& [subset, match] : std::vector<std::pair<std::vector<int>, std::string>>{
             {{0, 1, 2, 3}, R"("discount" OR "cart" OR "price" OR "test")"},
             {{1, 2}, R"("cart" OR "price")"},
             {{0, 1}, R"("discount" AND "cart")"}}) {
      std::map<index::SymbolId, double> summed;
      for (const auto& row : rows) {
        ASSERT_EQ(row.shares.size(), terms.size());
        double sum = 0;
        int said = 0;
        for (int i : subset) {
          sum += row.shares[i];
          said += row.shares[i] > 0;
        }
        bool all =
            match.find("AND") == std::string::npos || said == static_cast<int>(subset.size());
        if (said > 0 && all) summed[row.id] = sum;
      }
      auto scored = index.search_text(match, 1000, tests);
      ASSERT_EQ(scored.size(), summed.size()) << match;
      for (const auto& hit : scored) EXPECT_EQ(summed[hit.id], hit.score) << match;
    }
  }

  EXPECT_EQ(index.similar_paths("src/shop/crat.py", 3).front(), "src/shop/cart.py");
  EXPECT_EQ(index.similar_paths("pr", 3).front(), "src/shop/pricing.py");
  EXPECT_NO_THROW(index.similar_paths(std::string("ca\0\0rt.py", 9), 3));  // NUL ends FTS strings
  EXPECT_NO_THROW(index.similar_paths(std::string("\0\0\0\0", 4), 3));
  EXPECT_EQ(index.similar_symbols("aplyDiscount", 5).front().name, "applyDiscount");
  EXPECT_EQ(index.similar_symbols("TO", 5).front().name, "total");
}

TEST(SqliteRepository, ImportsAndLinkedFiles) {
  Shop shop;
  auto& index = *shop.index;
  auto imports = index.imports_of_file("src/shop/pricing.py", 10);
  ASSERT_EQ(imports.size(), 1u);
  EXPECT_EQ(imports[0].alias, "disc");
  EXPECT_EQ(imports[0].target_path, "src/shop/cart.py");
  EXPECT_EQ(imports[0].target_symbol, shop.id("shop.cart.applyDiscount"));
  std::vector<std::string> importers;
  for (const auto& i : index.importers_of_file("src/shop/cart.py", 10)) {
    importers.push_back(i.path + ":" + std::to_string(i.line));
  }
  EXPECT_THAT(importers,
              ElementsAre("src/shop/pricing.py:1", "tests/test_cart.py:1", "tests/test_cart.py:2"));
  EXPECT_EQ(index.importers_of_symbol(shop.id("shop.cart.Cart"), 10).size(), 1u);
  auto callers = index.linked_files("src/shop/cart.py", index::CALLER, 10);
  ASSERT_EQ(callers.size(), 4u);
  EXPECT_EQ(callers[0].path, "tests/test_cart.py");
  EXPECT_EQ(callers[0].call_sites, 6);
  auto callees = index.linked_files("tests/test_checkout.py", index::CALLEE, 10);
  ASSERT_EQ(callees.size(), 2u);
  EXPECT_EQ(index.stats().unresolved_calls, 1);
}

TEST(SqliteRepository, WordCountsAndSamplesFollowAnUpdate) {
  Shop shop;
  auto& index = *shop.index;
  const std::string sample = "docstring : \"discounts\"";
  auto [before, symbols_before] = index.name_word_counts({"discount", "total"});
  EXPECT_EQ(before["discount"], 2);
  EXPECT_THAT(index.names_matching_text(sample, 10), ElementsAre("applyDiscount"));
  index.name_word_counts({"discount"});  // asked again: kept

  auto f = file("src/shop/members.py", "shop.members");
  f.symbols.push_back(
      sym("shop.members.discountRate", "function", 2, 5, false, "The discounts a member gets."));
  write(shop.writer, {f});
  auto [after, symbols_after] = index.name_word_counts({"discount", "total"});
  EXPECT_EQ(after["discount"], 3);
  EXPECT_EQ(after["total"], before["total"]);
  EXPECT_EQ(symbols_after, symbols_before + 2);  // the module and its function
  EXPECT_THAT(index.names_matching_text(sample, 10),
              ::testing::UnorderedElementsAre("applyDiscount", "discountRate"));
}

TEST(SqliteRepository, OneRunNamesAreFoundByTheirWordsAfterAnUpdateToo) {
  auto stock = file("src/shop/stock.py", "shop.stock");
  for (const char* fqn : {"shop.stock.get_qty", "shop.stock.set_qty", "shop.stock.get_item",
                          "shop.stock.set_item", "shop.stock.getqty"}) {
    stock.symbols.push_back(sym(fqn, "function", 2, 3));
  }
  Shop shop({stock});
  auto& index = *shop.index;
  auto names = [&](const std::string& match) {
    std::set<std::string> out;
    for (auto& n : index.names_matching_text(match, 10)) out.insert(n);
    return out;
  };
  EXPECT_EQ(names("name:qty"), (std::set<std::string>{"get_qty", "set_qty", "getqty"}));
  EXPECT_EQ(names("name:getqty"), std::set<std::string>{"getqty"});  // the whole name too

  // An update splits its names with the parts the first build kept.
  auto more = file("src/shop/more.py", "shop.more");
  more.symbols.push_back(sym("shop.more.itemqty", "function", 2, 3));
  write(shop.writer, {more});
  EXPECT_EQ(names("name:qty"), (std::set<std::string>{"get_qty", "set_qty", "getqty", "itemqty"}));
}
