// The host's tools on a real SQLite index of the shop batch.

#include <gtest/gtest.h>

#include "index/shop_batch.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace orvane_tamsel::tool_handlers {
namespace {

using namespace shop_batch;

std::vector<std::string> column(const Json& rows, const std::string& key) {
  std::vector<std::string> out;
  for (const auto& r : rows) out.push_back(r.value(key, ""));
  return out;
}

TEST(HostToolsOnIndex, CallersReferencesRelatedFilesTestsAndContext) {
  TempRepo repo;
  {
    indexer::IndexWriter writer(repo.root());
    write(writer, all());
  }
  auto index = index::open_repository(repo.root());
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{},
                                     index::open_learned_embedder(repo.root()),
                                     workers::word_sense_embedder());
  ToolContext context{*index, &retriever, nullptr, {}};
  auto run = [&](const std::string& tool, const Json& args) {
    return call_tool(tool, checked_arguments(*find_tool(tool), args), context);
  };

  auto callers = run("symbol", {{"action", "callers"}, {"fqn", "shop.cart.Cart.total"}});
  auto who = column(callers["callers"], "fqn");
  EXPECT_NE(std::find(who.begin(), who.end(), "shop.cart.Cart.add"), who.end());
  EXPECT_NE(std::find(who.begin(), who.end(), "test_cart.test_total"), who.end());
  EXPECT_EQ(callers["total_call_sites"].get<std::size_t>(), who.size());

  auto refs = run("symbol", {{"action", "references"}, {"fqn", "shop.cart.applyDiscount"}});
  auto kinds = column(refs["references"], "kind");
  EXPECT_NE(std::find(kinds.begin(), kinds.end(), "call"), kinds.end());
  EXPECT_NE(std::find(kinds.begin(), kinds.end(), "import"), kinds.end());

  auto related = run("file", {{"action", "related"}, {"path", "src/shop/cart.py"}});
  EXPECT_EQ(related["imports"][0]["module"], "shop.pricing");
  auto importers = column(related["imported_by"], "path");
  EXPECT_NE(std::find(importers.begin(), importers.end(), "tests/test_cart.py"), importers.end());
  EXPECT_FALSE(related["tests"].empty());
  auto defined = run("file", {{"action", "symbols"}, {"path", "src/shop/cart.py"}});
  auto fqns = column(defined["symbols"], "fqn");
  EXPECT_NE(std::find(fqns.begin(), fqns.end(), "shop.cart.Cart.add"), fqns.end()) << defined;
  EXPECT_EQ(std::find(fqns.begin(), fqns.end(), "shop.cart"), fqns.end());

  auto files = run("files", {{"path", "src/shop/"}});
  EXPECT_EQ(files["total"], 3);
  auto tests = run("tests", {{"action", "for_file"}, {"path", "src/shop/cart.py"}});
  EXPECT_EQ(tests["tests"][0]["path"], "tests/test_cart.py");

  auto pack =
      run("context", {{"action", "task"}, {"task", "change how discounts apply to a total"}});
  EXPECT_FALSE(pack["symbols"].empty()) << pack.dump();
  EXPECT_FALSE(pack["files_to_read"].empty());
  EXPECT_THROW(run("context", {{"action", "task"}, {"task", "the a of"}}), ToolError);
}

}  // namespace
}  // namespace orvane_tamsel::tool_handlers
