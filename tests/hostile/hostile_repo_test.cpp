// Repositories built to hurt an indexer: each oddity is indexed or skipped with a counted reason,
// and the run, a second run and the tools all carry on.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/server/live_host.h"

namespace {

namespace fs = std::filesystem;
using namespace orvane_tamsel;

// Folders made unreadable by a test are made readable again before the repository goes.
class Scratch : public indexer_test::TempRepo {
 public:
  ~Scratch() {
    for (auto& p : locked_) ::chmod(p.c_str(), 0755);
  }
  void lock(const fs::path& p) {
    ::chmod(p.c_str(), 0);
    locked_.push_back(p);
  }

 private:
  std::vector<fs::path> locked_;
};

std::int64_t count(const indexer::IndexReport& r, const std::string& reason) {
  auto it = r.skipped.find(reason);
  return it == r.skipped.end() ? 0 : it->second;
}

TEST(HostileRepository, EveryOddityIsIndexedOrSkippedWithAReason) {
  Scratch repo;
  const auto& root = repo.root();
  repo.write("a_first.py", "def first():\n    return 1\n");
  // Sparse: the size alone must keep it out, never its bytes.
  { std::ofstream(root / "huge.py"); }
  fs::resize_file(root / "huge.py", 50u << 20);
  std::string minified = "def m(a):\n    return a\n";
  while (minified.size() < (5u << 20)) minified += "m(m(1));x=[m(2),{3:m(4)}];";
  repo.write("minified.py", minified + "\n");
  fs::create_directories(root / "flat");
  for (int i = 0; i < 20000; ++i) {
    std::string name = std::to_string(i);
    name.insert(0, 1, 'f');
    name.append(i % 100 == 0 ? ".py" : ".txt");
    std::ofstream(root / "flat" / name) << "x = " << i << "\n";
  }
  std::string deep = "d";
  for (int i = 1; i < 200; ++i) deep += "/d";
  deep.append("/bottom.py");
  repo.write(deep, "def bottom():\n    pass\n");
  fs::create_directory_symlink(".", root / "loop");
  fs::create_symlink("ping.py", root / "pong.py");
  fs::create_symlink("pong.py", root / "ping.py");
  fs::create_directory_symlink("/etc", root / "etc_link");
  fs::create_symlink("/etc/hostname", root / "hostname.py");
  repo.write("with space.py", "def spaced():\n    pass\n");
  repo.write("new\nline.py", "def newline():\n    pass\n");
  repo.write("bad\xff\xfe.py", "def latin():\n    pass\n");
  repo.write("zz_vanishes.py", "def gone():\n    pass\n");
  repo.write("zz_changes.py", "def before():\n    pass\n");
  repo.write("locked/hidden.py", "def hidden():\n    pass\n");
  repo.lock(root / "locked");
  bool locks_work = ::access((root / "locked").c_str(), R_OK) != 0;

  indexer::IndexOptions options;
  options.max_file_size = 6 << 20;
  bool meddled = false;
  auto report = indexer::update_index(root, options, [&](const indexer::Progress&) {
    if (meddled) return;
    meddled = true;  // the two zz_ files sort last, so are read after this
    fs::remove(root / "zz_vanishes.py");
    repo.write("zz_changes.py", "def after():\n    pass\n\ndef more():\n    pass\n");
  });

  EXPECT_EQ(count(report, "too large"), 1);
  EXPECT_EQ(count(report, "symlink loop"), 1);
  EXPECT_EQ(count(report, "symlink outside"), 2);
  EXPECT_EQ(count(report, "broken symlink"), 2);
  EXPECT_EQ(count(report, "unreadable"), locks_work ? 2 : 1);  // the vanished file, the folder
  // 200 flat .py, the minified, bottom, the three odd names, changes, first (+ hidden as root).
  EXPECT_EQ(report.indexed, 200 + 1 + 1 + 3 + 1 + 1 + (locks_work ? 0 : 1));
  EXPECT_GT(report.symbols, 200);

  auto again = indexer::update_index(root, options);
  EXPECT_EQ(again.indexed, report.indexed);

  // The tools answer over all of it, paths with odd bytes included.
  server::LiveHost host(root);
  host.start();
  host.finish();
  auto files = host.call_tool(
      "files", {{"path", "flat"}, {"offset", 0}, {"limit", 100}, {"token_budget", 2000}});
  EXPECT_NE(
      files.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).find("f0.py"),
      std::string::npos);
  auto changed =
      host.call_tool("file",
                     {{"action", "symbols"}, {"path", "zz_changes.py"}, {"token_budget", 2000}})
          .dump();
  EXPECT_NE(changed.find("\"path\":\"zz_changes.py\""), std::string::npos) << changed;
  for (const char* query : {"latin", "newline", "bottom", "what does m do", "more"}) {
    auto answer = host.call_tool(
        "explore",
        {{"query", query}, {"scope", "module"}, {"depth", "standard"}, {"token_budget", 2000}});
    EXPECT_FALSE(
        answer.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).empty());
  }
  if (locks_work) return;
  // As root a folder of mode 000 stays readable: the indexer meets one as nobody instead.
  if (::access("/usr/sbin/runuser", X_OK) != 0) GTEST_SKIP() << "root, and no runuser to drop it";
  Scratch dropped;
  auto home = dropped.root() / "repo";
  dropped.write("repo/shown.py", "def shown():\n    pass\n");
  dropped.write("repo/locked/hidden.py", "def hidden():\n    pass\n");
  dropped.lock(home / "locked");
  fs::copy_file(TAMSEL_BINARY, dropped.root() / "tamsel");
  ::chmod(dropped.root().c_str(), 0755);
  ASSERT_EQ(::chown(home.c_str(), 65534, 65534), 0);  // nobody writes the index
  std::string command = "/usr/sbin/runuser -u nobody -- " + (dropped.root() / "tamsel").string() +
                        " index --repo " + home.string() + " 2>&1";
  std::string out;
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buffer[4096];
  while (auto n = std::fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, n);
  EXPECT_EQ(::pclose(pipe), 0) << out;
  EXPECT_NE(out.find("indexed 1 files"), std::string::npos) << out;
  EXPECT_NE(out.find("unreadable: 1"), std::string::npos) << out;
}

}  // namespace
