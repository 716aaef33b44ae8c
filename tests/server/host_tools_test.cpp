// The host's tools other than explore, on a small fake index over real files.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {
namespace {

namespace fs = std::filesystem;
using namespace index;

class FakeIndex : public Repository {
 public:
  explicit FakeIndex(fs::path root) : root_(std::move(root)) {}
  fs::path root() const override { return root_; }
  std::optional<FileRecord> get_file_by_path(const std::string& path) override {
    for (const auto& p : paths_) {
      if (p == path) return FileRecord{1, p, "python", 10, 3, false, ""};
    }
    return std::nullopt;
  }
  std::pair<std::vector<std::string>, std::int64_t> paths_page(const std::string& folder,
                                                               int offset, int limit) override {
    std::vector<std::string> under;
    for (const auto& p : paths_) {
      if (folder.empty() || p.starts_with(folder + "/")) under.push_back(p);
    }
    std::vector<std::string> page;
    for (int i = offset; i < static_cast<int>(under.size()) && i < offset + limit; ++i) {
      page.push_back(under[static_cast<std::size_t>(i)]);
    }
    return {page, static_cast<std::int64_t>(under.size())};
  }
  std::pair<std::vector<std::string>, std::int64_t> paths_under(const std::string& f,
                                                                int limit) override {
    return paths_page(f, 0, limit);
  }
  std::vector<std::string> paths_with_stem(const std::string&, int) override { return {}; }
  std::vector<Symbol> get_symbols_by_file(FileId) override { return {}; }
  std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    if (fqn == total_.fqn) return total_;
    return std::nullopt;
  }
  SymbolSearch search_symbols(const std::vector<std::string>&, bool, int) override { return {}; }
  std::map<SymbolId, std::string> get_file_paths_batch(const std::vector<Symbol>&) override {
    return {{7, "shop/cart.py"}};
  }
  std::map<SymbolId, std::pair<Symbol, std::string>> symbols_with_paths(
      const std::vector<SymbolId>&) override {
    return {};
  }
  std::vector<Neighbour> evidence_neighbours(const std::vector<SymbolId>&, TestFilter, int,
                                             const std::optional<std::vector<Relation>>&) override {
    return {};
  }
  TestsOfFile get_tests_for(const std::string& path) override {
    if (path != "shop/cart.py") return {};
    TestsOfFile found{{{"tests/test_cart.py"}}, 1};
    found.tests[0].imports = "shop.cart";
    return found;
  }
  std::map<std::string, std::string> components_of(const std::vector<std::string>&) override {
    return {};
  }
  std::vector<Symbol> similar_symbols(const std::string&, int) override { return {total_}; }
  std::vector<std::string> similar_paths(const std::string&, int) override { return {}; }
  std::optional<std::string> skip_reason(const std::string&) override { return std::nullopt; }
  std::vector<ScoredSymbol> search_text(const std::string&, int, bool) override { return {}; }
  std::vector<TermShares> term_shares(const std::vector<std::string>&, bool) override { return {}; }
  std::map<SymbolId, std::int64_t> caller_counts(const std::vector<SymbolId>&) override {
    return {};
  }
  std::map<SymbolId, Importers> importers(const std::vector<SymbolId>&) override { return {}; }
  std::map<SymbolId, FileOrigin> file_origins(const std::vector<SymbolId>&) override { return {}; }
  std::vector<std::string> names_matching_text(const std::string&, int) override { return {}; }
  std::pair<std::map<std::string, std::int64_t>, std::int64_t> name_word_counts(
      const std::vector<std::string>&) override {
    return {};
  }
  std::vector<ImportRecord> imports_of_file(const std::string&, int) override { return {}; }
  std::vector<ImportRecord> importers_of_file(const std::string&, int) override { return {}; }
  std::vector<ImportRecord> importers_of_symbol(SymbolId, int) override { return {}; }
  std::vector<FileLink> linked_files(const std::string&, const Relation&, int) override {
    return {};
  }
  IndexStats stats() override { return {}; }
  std::vector<CallSite> call_sites(SymbolId, const Relation&, int) override {
    Neighbour checkout;
    checkout.fqn = "shop.checkout.pay";
    return {{checkout, "shop/checkout.py", 4, "import"},
            {checkout, "shop/checkout.py", 9, "import"}};
  }

  std::vector<std::string> paths_ = {"shop/cart.py", "shop/checkout.py", "tests/test_cart.py"};
  Symbol total_{7, "shop.cart.Cart.total", "total",    "method", 1, 2,
                3, "def total(self)",      "The sum.", false};

 private:
  fs::path root_;
};

class HostTools : public ::testing::Test {
 protected:
  void SetUp() override {
    repo_.write("shop/cart.py",
                "class Cart:\n    def total(self):\n        return sum(self.items)\n");
    repo_.write("shop/checkout.py",
                "from shop.cart import Cart\n\n\ndef pay(cart):\n    return cart.total()\n");
    repo_.write("tests/test_cart.py", "def test_total():\n    assert Cart().total() == 0\n");
    fs::create_directory_symlink(fs::temp_directory_path(), root_ / "elsewhere");
    index_ = std::make_unique<FakeIndex>(root_);
    context_ = std::make_unique<ToolContext>(ToolContext{*index_, nullptr, nullptr, {}});
  }

  Json run(const std::string& tool, const Json& args) {
    return call_tool(tool, checked_arguments(*find_tool(tool), args), *context_);
  }

  indexer_test::TempRepo repo_;
  const fs::path& root_ = repo_.root();
  std::unique_ptr<FakeIndex> index_;
  std::unique_ptr<ToolContext> context_;
};

TEST_F(HostTools, PathsOutsideTheRepositoryAreRefused) {
  EXPECT_EQ(checked_path(root_, "./shop//cart.py"), "shop/cart.py");
  EXPECT_EQ(checked_path(root_, (root_ / "shop/cart.py").string()), "shop/cart.py");
  EXPECT_EQ(checked_path(root_, "shop\\cart.py"), "shop/cart.py");
  EXPECT_EQ(checked_path(root_, "shop/"), "shop");
  for (const std::string& bad :
       std::vector<std::string>{"../etc/passwd", "shop/../../x", "/etc/passwd", "..\\..\\x",
                                "elsewhere/x.py", std::string("shop/a\0b", 8)}) {
    EXPECT_THROW(checked_path(root_, bad), ToolError) << bad;
  }
  for (const auto& tool : {"file", "tests", "files"}) {
    Json args = {{"path", "../outside"}};
    if (std::string(tool) != "files") args["action"] = find_tool(tool)->params[0].default_value;
    EXPECT_THROW(run(tool, args), ToolError) << tool;
  }
}

TEST_F(HostTools, SymbolDetailCallersAndReferences) {
  auto detail = run("symbol", {{"action", "detail"}, {"fqn", "shop::cart::Cart::total"}});
  EXPECT_EQ(detail["path"], "shop/cart.py");
  EXPECT_EQ(detail["source"], "    def total(self):\n        return sum(self.items)");
  EXPECT_EQ(detail["truncated"], false);
  auto cut =
      run("symbol", {{"action", "detail"}, {"fqn", "shop.cart.Cart.total"}, {"token_budget", 60}});
  EXPECT_EQ(cut["source"], "    def total(self):");
  EXPECT_EQ(cut["truncated"], true);
  EXPECT_LE(result_chars(cut), 240u);
  EXPECT_EQ(cut["tokens_used"], (result_chars(cut) + 3) / 4);

  auto callers = run("symbol", {{"action", "callers"}, {"fqn", "shop.cart.Cart.total"}});
  ASSERT_EQ(callers["callers"].size(), 1u);
  EXPECT_EQ(callers["callers"][0]["lines"], Json({4, 9}));
  EXPECT_EQ(callers["total_call_sites"], 2);
  auto refs = run("symbol", {{"action", "references"}, {"fqn", "shop.cart.Cart.total"}});
  EXPECT_EQ(refs["references"].size(), 2u);
  EXPECT_EQ(refs["references"][0]["evidence_backed"], true);

  try {
    run("symbol", {{"action", "detail"}, {"fqn", "shop.cart.Cart.totl"}});
    FAIL();
  } catch (const ToolError& e) {
    EXPECT_EQ(error_answer(e)["did_you_mean"], Json({"shop.cart.Cart.total"}));
  }
}

TEST_F(HostTools, FilesAreListedByPageWithTheTotal) {
  auto page = run("files", {{"limit", 2}});
  EXPECT_EQ(page["total"], 3);
  EXPECT_EQ(page["files"], Json({"shop/cart.py", "shop/checkout.py"}));
  EXPECT_EQ(page["next_offset"], 2);
  EXPECT_EQ(run("files", {{"path", "shop"}, {"offset", 1}})["files"], Json({"shop/checkout.py"}));
  auto small = run("files", {{"token_budget", 20}});
  EXPECT_EQ(small["truncated"], true);
  EXPECT_EQ(small["next_offset"], small["files"].size());
  auto tests = run("tests", {{"path", "shop/cart.py"}});
  EXPECT_EQ(tests["tests"][0]["path"], "tests/test_cart.py");
  EXPECT_THROW(run("tests", {{"path", "shop/nope.py"}}), ToolError);
  EXPECT_THROW(run("files", {{"path", "nowhere"}}), ToolError);
}

TEST_F(HostTools, SearchFindsLiteralTextAndRegularExpressions) {
  auto literal = run("search", {{"query", "CART.TOTAL"}});
  EXPECT_EQ(literal["total"], 1);
  EXPECT_EQ(literal["matches"][0],
            Json({{"path", "shop/checkout.py"}, {"line", 5}, {"text", "    return cart.total()"}}));
  auto regex = run("search", {{"query", "def \\w+\\(self"}, {"regex", true}});
  EXPECT_EQ(regex["total"], 1);
  EXPECT_EQ(run("search", {{"query", "total"}, {"token_budget", 30}})["truncated"], true);
  EXPECT_THROW(run("search", {{"query", "(unclosed"}, {"regex", true}}), ToolError);
}

}  // namespace
}  // namespace orvane_tamsel::tool_handlers
