// The server's host between calls: edits, new folders and ignore rules are seen at once, and an
// unchanged repository is not walked again.

#include <gtest/gtest.h>

#include <filesystem>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/indexer/walker.h"
#include "orvane_tamsel/server/change_watch.h"
#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/tool_registry.h"

namespace {

using namespace orvane_tamsel;
namespace fs = std::filesystem;

TEST(LiveHost, EveryCallSeesTheEditsBeforeIt) {
  indexer_test::TempRepo repo("shop");
  server::LiveHost host(repo.root());
  host.start();
  auto run = [&](const std::string& tool, const tool_handlers::Json& args) {
    return host.call_tool(tool, tool_handlers::checked_arguments(*find_tool(tool), args));
  };
  auto files = [&] { return run("files", {{"path", "src/shop/"}})["total"].template get<int>(); };
  int before = files();
  EXPECT_EQ(files(), before);

  repo.write("src/shop/extra/__init__.py", "");
  repo.write("src/shop/extra/deep.py", "def deep():\n    return 1\n");
  EXPECT_EQ(files(), before + 2);
  repo.write("src/shop/extra/deep.py", "def deeper():\n    return 2\n");
  EXPECT_EQ(run("symbol", {{"action", "detail"}, {"fqn", "shop.extra.deep.deeper"}})["fqn"],
            "shop.extra.deep.deeper");
  repo.write("src/shop/.gitignore", "extra/\n");
  EXPECT_EQ(files(), before);
  fs::remove(repo.root() / "src/shop/report.py");
  EXPECT_EQ(files(), before - 1);
}

TEST(LiveHost, AFirstIndexThatFailedIsTriedAgainByTheNextCall) {
  indexer_test::TempRepo repo("shop");
  repo.write(".tamsel", "a file where the index folder goes\n");
  server::LiveHost host(repo.root());
  host.start();
  auto files = [&] {
    return host.call_tool("files", tool_handlers::checked_arguments(*find_tool("files"),
                                                                    tool_handlers::Json::object()));
  };
  EXPECT_THROW(files(), tool_handlers::ToolError);
  fs::remove(repo.root() / ".tamsel");
  EXPECT_GT(files()["total"].get<int>(), 0);

  // A folder that is not there yet: each call says so, without creating it, until it appears.
  auto later = repo.root() / "later";
  server::LiveHost waiting(later);
  waiting.start();
  auto call = [&] {
    return waiting.call_tool("files", tool_handlers::checked_arguments(
                                          *find_tool("files"), tool_handlers::Json::object()));
  };
  for (int i = 0; i < 2; ++i) {
    try {
      call();
      ADD_FAILURE() << "a missing folder was served";
    } catch (const tool_handlers::ToolError& e) {
      EXPECT_NE(std::string(e.what()).find(later.string() + " does not exist"), std::string::npos)
          << e.what();
    }
  }
  EXPECT_FALSE(fs::exists(later));
  fs::create_directories(later);
  repo.write("later/a.py", "def a():\n    return 1\n");
  EXPECT_EQ(call()["total"].get<int>(), 1);
}

TEST(ChangeWatch, QuietOnlyWhenEveryFolderWasWatchedBeforeTheWalk) {
  indexer_test::TempRepo repo("shop");
  server::ChangeWatch watch(repo.root());
  auto walked = [&] { return indexer::walk(repo.root(), 1 << 20).folders; };
  EXPECT_FALSE(watch.quiet());
  watch.arm(walked());
  EXPECT_FALSE(watch.quiet());  // the folders were not watched during that walk
  watch.arm(walked());
  EXPECT_TRUE(watch.quiet());
  fs::create_directories(repo.root() / ".tamsel");
  EXPECT_TRUE(watch.quiet());
  repo.write("tests/test_cart.py", "# edited\n");
  EXPECT_FALSE(watch.quiet());
  EXPECT_FALSE(watch.quiet());  // until the next walk
  watch.arm(walked());
  EXPECT_TRUE(watch.quiet());
}

}  // namespace
