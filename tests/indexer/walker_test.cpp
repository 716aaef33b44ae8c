#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/indexer/ignore_rules.h"
#include "orvane_tamsel/indexer/walker.h"

namespace {

using namespace orvane_tamsel::indexer;
namespace fs = std::filesystem;

bool has(const WalkResult& r, const std::string& path) {
  return std::any_of(r.files.begin(), r.files.end(), [&](const auto& f) { return f.path == path; });
}

TEST(IgnoreRules, GitignoreSemantics) {
  IgnoreRules rules;
  for (const char* line : {"# comment", "*.log", "build/", "/root_only.py", "docs/**/gen_*.py",
                           "**/cache", "!keep.log", "sub/*.py", "\\#hash.py", "x/**/b/**/c.py"}) {
    rules.add_line(line, "");
  }
  rules.add_line("local.py", "pkg");
  EXPECT_TRUE(rules.ignored("a/b/x.log", false));
  EXPECT_FALSE(rules.ignored("a/keep.log", false));  // negation, later rule wins
  EXPECT_TRUE(rules.ignored("a/build", true));
  EXPECT_FALSE(rules.ignored("a/build", false));  // dir-only
  EXPECT_TRUE(rules.ignored("root_only.py", false));
  EXPECT_FALSE(rules.ignored("a/root_only.py", false));  // anchored
  EXPECT_TRUE(rules.ignored("docs/gen_a.py", false));
  EXPECT_TRUE(rules.ignored("docs/x/y/gen_a.py", false));
  EXPECT_TRUE(rules.ignored("deep/er/cache", true));
  EXPECT_TRUE(rules.ignored("sub/a.py", false));
  EXPECT_FALSE(rules.ignored("sub/deeper/a.py", false));  // `*` stops at a slash
  EXPECT_TRUE(rules.ignored("#hash.py", false));
  EXPECT_TRUE(rules.ignored("pkg/local.py", false));
  EXPECT_TRUE(rules.ignored("pkg/inner/local.py", false));
  EXPECT_FALSE(rules.ignored("other/local.py", false));  // scoped to its folder
  EXPECT_TRUE(rules.ignored("x/b/c.py", false));
  EXPECT_TRUE(rules.ignored("x/1/b/2/3/c.py", false));
  EXPECT_FALSE(rules.ignored("x/c.py/b", false));
  // Many `**` against a deep path that misses: answered at once, not by trying every split.
  IgnoreRules stars;
  std::string pattern, path;
  for (int i = 0; i < 40; ++i) pattern += "**/g/";
  for (int i = 0; i < 60; ++i) path += "g/";
  stars.add_line(pattern + "end", "");
  EXPECT_FALSE(stars.ignored(path + "other", false));
}

TEST(Walker, SkipsWithReasonsAndHonoursIgnoreFiles) {
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/blob.py", std::string("import x\0\x01\x02", 11));
  repo.write("src/shop/latin1.py", "name = '\xe9t\xe9'\n");
  repo.write("src/shop/huge.py", std::string(4096, '#'));
  repo.write("src/shop/generated_prices.py", "X = 1\n");  // nested .gitignore
  repo.write("src/shop/generated_keep.py", "X = 1\n");    // ... negated there
  repo.write("build/lib/shop/cart.py", "X = 1\n");        // root .gitignore, anchored dir
  repo.write("node_modules/pkg/index.py", "X = 1\n");
  repo.write(".git/info/exclude", "scratch_*.py\n");
  repo.write("scratch_1.py", "X = 1\n");
  repo.write(".tamselignore", "vendor/\n");
  repo.write("vendor/lib.py", "X = 1\n");
  repo.write("notes.txt", "not code\n");
  repo.write("src/shop/secret.py", "X = 1\n");
  ::chmod((repo.root() / "src/shop/secret.py").c_str(), 0);
  fs::create_directory_symlink(repo.root() / "src", repo.root() / "src/shop/loop");
  fs::create_directory_symlink("/usr/lib/python3", repo.root() / "outside");
  fs::create_symlink("/etc/hostname", repo.root() / "outside_file.py");
  fs::create_symlink(repo.root() / "missing.py", repo.root() / "dangling.py");

  auto r = walk(repo.root(), 1024);
  EXPECT_TRUE(has(r, "src/shop/cart.py"));
  EXPECT_TRUE(has(r, "tests/test_cart.py"));
  EXPECT_TRUE(has(r, "src/shop/generated_keep.py"));
  for (const char* gone :
       {"src/shop/generated_prices.py", "build/lib/shop/cart.py", "node_modules/pkg/index.py",
        "scratch_1.py", "vendor/lib.py", "notes.txt", "src/shop/loop/shop/cart.py"}) {
    EXPECT_FALSE(has(r, gone)) << gone;
    EXPECT_EQ(r.skipped.count(gone), 0u) << gone;  // ignored and unparsed files are not skips
  }
  EXPECT_EQ(r.skipped["src/shop/huge.py"], "too large");
  EXPECT_EQ(r.skipped["src/shop/loop"], "symlink loop");
  EXPECT_EQ(r.skipped["outside"], "symlink outside");
  EXPECT_EQ(r.skipped["outside_file.py"], "symlink outside");
  EXPECT_EQ(r.skipped["dangling.py"], "broken symlink");
  EXPECT_EQ(r.packages.count("src/shop"), 1u);
  EXPECT_EQ(r.packages.count("src"), 0u);
  // Content checks (binary, not utf-8, unreadable) happen when the indexer reads the files.
  EXPECT_TRUE(has(r, "src/shop/blob.py"));
  EXPECT_TRUE(std::is_sorted(r.files.begin(), r.files.end(),
                             [](const auto& a, const auto& b) { return a.path < b.path; }));
}

std::string summary(const WalkResult& r) {
  std::string out;
  for (const auto& f : r.files) out += f.path + " " + std::to_string(f.size) + "\n";
  for (const auto& [path, reason] : r.skipped) out += "skip " + path + " " + reason + "\n";
  for (const auto& p : r.packages) out += "package " + p + "\n";
  return out;
}

// Every change a cached walk must see, each compared with a walk that lists everything.
TEST(Walker, CachedListingsSeeEveryChange) {
  indexer_test::TempRepo repo("shop");
  fs::create_directories(repo.root() / ".tamsel");  // never walked, so the saves change nothing
  auto cache_file = repo.root() / ".tamsel/folders.cache";
  auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(40)); };
  auto check = [&](const char* step, bool expect_changed) {
    settle();  // past the margin, so that the folders changed so far are kept
    FolderCache cache(20'000'000);
    cache.load(cache_file);
    auto cached = walk(repo.root(), 1024, &cache);
    EXPECT_EQ(summary(cached), summary(walk(repo.root(), 1024))) << step;
    EXPECT_EQ(cache.changed(), expect_changed) << step;
    EXPECT_TRUE(cache.save(cache_file)) << step;
  };
  check("first walk", true);
  check("nothing changed", false);
  repo.write("src/shop/cart.py", "X = 1  # longer than before\n");  // folder untouched
  check("file edited", false);
  repo.write("src/shop/new_module.py", "X = 1\n");
  check("file added", true);
  repo.write("src/shop/.gitignore", "new_module.py\n");  // a listed ignore file edited in place
  check("ignore file edited", false);
  fs::remove(repo.root() / "src/shop/.gitignore");
  fs::rename(repo.root() / "src/shop", repo.root() / "src/shop_old");
  fs::create_directories(repo.root() / "src/shop");
  repo.write("src/shop/__init__.py", "");
  check("folder replaced", true);
  fs::remove_all(repo.root() / "src/shop_old");
  check("folder removed", true);
  // Folders whose listings hold no file are stamped without being opened, and what lies below
  // them is reached from the nearest folder that was: a change anywhere there is still seen.
  repo.write("locale/fr/LC_MESSAGES/django.po", "msgid \"\"\n");
  repo.write("deep/a/b/c/leaf.py", "X = 1\n");
  check("folders of no code added", true);
  check("folders of no code unchanged", false);
  repo.write("deep/a/b/c/leaf.py", "X = 1  # edited below two unopened folders\n");
  check("file edited below unopened folders", false);
  repo.write("locale/fr/LC_MESSAGES/late.py", "X = 1\n");
  check("file added to a folder of no code", true);
  repo.write("locale/fr/LC_MESSAGES/late.py", "X = 1  # and edited\n");
  check("file edited there", false);
  fs::remove(repo.root() / "locale/fr/LC_MESSAGES/late.py");
  check("file removed there", true);
  repo.write("locale/de/LC_MESSAGES/other.py", "X = 1\n");
  repo.write("deep/a/b/d.py", "X = 1\n");
  check("folder and file added below unopened folders", true);
  fs::remove_all(repo.root() / "deep/a/b/c");
  check("folder removed below unopened folders", true);
  std::ofstream(cache_file, std::ios::trunc) << "tmslfc01 damaged";
  check("damaged cache", true);
}

}  // namespace
