// Crashes, faults and concurrent writers around `tamsel index`: the index survives them all.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "faults/tamsel_process.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace {

namespace fs = std::filesystem;
using faults_test::Child;
using faults_test::run;
using orvane_tamsel::index::Database;

#if defined(__SANITIZE_ADDRESS__)
constexpr int FILES = 120;  // the sanitizers slow the child down several times
#else
constexpr int FILES = 300;
#endif

class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/tamsel-faults-XXXXXX";
    root_ = ::mkdtemp(tmpl);
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  const fs::path& root() const { return root_; }
  std::string repo() const { return root_.string(); }

 private:
  fs::path root_;
};

// Symbols and resolved call edges by name, sorted: equal dumps mean equal indexes.
std::string dump(const fs::path& root) {
  Database db(root / ".tamsel" / "index.db", Database::Mode::read);
  std::string out;
  for (const char* sql :
       {"SELECT f.path || ' ' || s.fqn || ' ' || s.kind || ' ' || s.start_line || '-' || "
        "s.end_line FROM symbols s JOIN files f ON f.id = s.file_id ORDER BY 1",
        "SELECT a.fqn || ' -> ' || b.fqn || ' @' || e.line FROM edges e "
        "JOIN symbols a ON a.id = e.caller_id JOIN symbols b ON b.id = e.callee_id ORDER BY 1"}) {
    auto st = db.prepare(sql);
    while (st.step()) out += st.text(0) + "\n";
  }
  return out;
}

std::string clean_dump(const fs::path& repo) {
  TempDir clean;
  fs::copy(repo, clean.root(), fs::copy_options::recursive);
  fs::remove_all(clean.root() / ".tamsel");
  EXPECT_TRUE(run({"index", "--repo", clean.repo()}).exited(0));
  return dump(clean.root());
}

bool explore_answers(const std::string& repo) {
  auto out = run({"explore", "--repo", repo, "where is Worker7 run"});
  return out.exited(0);
}

TEST(Faults, KilledIndexingAlwaysRecoversToTheCleanState) {
  TempDir dir;
  faults_test::generate_repo(dir.root(), FILES, 7);
  std::mt19937 rng(20261123);
  // How long a full first build takes bounds where the kills land.
  auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(run({"index", "--repo", dir.repo()}).exited(0));
  auto full = std::chrono::steady_clock::now() - start;
  fs::remove_all(dir.root() / ".tamsel");

  int interrupted = 0;
  for (int trial = 0; trial < 30; ++trial) {
    if (trial % 3 == 1) {  // edits between kills: changed, added and removed modules
      int i = static_cast<int>(rng() % FILES);
      std::ofstream(faults_test::module_file(dir.root(), "m", i), std::ios::app)
          << "\n\ndef added" << trial << "():\n    return f1()\n";
      std::ofstream(faults_test::module_file(dir.root(), "n", trial))
          << "from pkg.m1 import f2\n\n\ndef g():\n    return f2()\n";
      fs::remove(faults_test::module_file(dir.root(), "n", trial - 3));
    }
    if (trial % 3 == 2) fs::remove_all(dir.root() / ".tamsel");  // kills during a first build
    Child child({"index", "--repo", dir.repo()});
    auto delay = std::chrono::duration_cast<std::chrono::microseconds>(full) * (rng() % 100) / 100;
    std::this_thread::sleep_for(delay);
    child.kill();
    auto out = child.wait();
    if (WIFSIGNALED(out.status)) {
      ++interrupted;
    } else {
      full = full * 3 / 4;  // the first build was timed on a busier machine: aim earlier
    }
    if (fs::exists(dir.root() / ".tamsel" / "index.db") && trial % 5 == 0) {
      auto exp = run({"explore", "--repo", dir.repo(), "where is Worker7 run"});
      // A killed first build leaves no index to read, which explore says; never a crash.
      EXPECT_TRUE(exp.exited(0) || exp.exited(1)) << "trial " << trial << ": " << exp.err;
    }
  }
  EXPECT_GE(interrupted, 10) << "too few runs were killed before they finished";
  auto last = run({"index", "--repo", dir.repo()});
  ASSERT_TRUE(last.exited(0)) << last.err;
  EXPECT_TRUE(explore_answers(dir.repo()));
  EXPECT_EQ(dump(dir.root()), clean_dump(dir.root()));
}

TEST(Faults, DamagedOrNewerIndexIsRebuiltAndMemoriesKept) {
  TempDir dir;
  faults_test::generate_repo(dir.root(), 40, 3);
  ASSERT_TRUE(run({"index", "--repo", dir.repo()}).exited(0));
  auto expected = dump(dir.root());
  auto index = dir.root() / ".tamsel" / "index.db";
  auto memories = dir.root() / ".tamsel" / "memories.db";
  {
    Database mem(memories, Database::Mode::write);
    mem.exec("CREATE TABLE kept(x TEXT); INSERT INTO kept VALUES('memories stay')");
  }
  for (std::string how : {"garbage", "newer", "truncated"}) {
    SCOPED_TRACE(how);
    if (how == "truncated") fs::resize_file(index, fs::file_size(index) / 3);
    if (how == "garbage") std::ofstream(index, std::ios::trunc) << std::string(8192, 'x');
    if (how == "newer") Database(index, Database::Mode::write).exec("PRAGMA user_version = 99");
    auto exp = run({"explore", "--repo", dir.repo(), "where is Worker7 run"});
    EXPECT_TRUE(exp.exited(0)) << exp.err;
    EXPECT_NE(exp.err.find("rebuilding it"), std::string::npos) << exp.err;
    EXPECT_EQ(dump(dir.root()), expected);
    Database mem(memories, Database::Mode::read);
    auto kept = mem.prepare("SELECT x FROM kept");
    EXPECT_TRUE(kept.step() && kept.text(0) == "memories stay");
  }
}

TEST(Faults, FullDiskFailsClearlyAndKeepsThePreviousIndex) {
  TempDir dir;
  faults_test::generate_repo(dir.root(), 60, 5);
  ASSERT_TRUE(run({"index", "--repo", dir.repo()}).exited(0));
  auto before = dump(dir.root());
  // Every module grows: the update needs more room than the limit leaves.
  for (int i = 0; i < 60; ++i) {
    std::ofstream out(faults_test::module_file(dir.root(), "m", i), std::ios::app);
    for (int k = 0; k < 40; ++k) out << "\n\ndef grown" << k << "():\n    return f1()\n";
  }
  long limit = static_cast<long>(fs::file_size(dir.root() / ".tamsel" / "index.db")) + 4096;
  auto out = run({"index", "--repo", dir.repo()}, limit);
  EXPECT_TRUE(out.exited(1)) << out.err;
  EXPECT_NE(out.err.find("the previous index is unchanged"), std::string::npos) << out.err;
  EXPECT_EQ(dump(dir.root()), before);
  EXPECT_TRUE(explore_answers(dir.repo()));
  // With room again the update completes.
  ASSERT_TRUE(run({"index", "--repo", dir.repo()}).exited(0));
  EXPECT_EQ(dump(dir.root()), clean_dump(dir.root()));
}

TEST(Faults, ConcurrentWritersBothFinishWithNothingLost) {
  TempDir dir;
  faults_test::generate_repo(dir.root(), FILES, 11);
  Child a({"index", "--repo", dir.repo()});
  Child b({"index", "--repo", dir.repo()});
  auto ra = a.wait();
  auto rb = b.wait();
  EXPECT_TRUE(ra.exited(0)) << ra.err;
  EXPECT_TRUE(rb.exited(0)) << rb.err;
  EXPECT_EQ(dump(dir.root()), clean_dump(dir.root()));
}

}  // namespace
