#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/indexer/reference_docs/rest_directives.h"

namespace {

using namespace orvane_tamsel;
namespace fs = std::filesystem;

// Everything a reader sees of an index, as comparable text lines.
std::multiset<std::string> dump(const fs::path& root) {
  auto repo = index::open_repository(root);
  std::multiset<std::string> out;
  auto [paths, total] = repo->paths_under("", 100000);
  std::vector<index::SymbolId> ids;
  for (const auto& p : paths) {
    auto file = repo->get_file_by_path(p);
    out.insert("file " + p + " " + file->module);
    for (const auto& s : repo->get_symbols_by_file(*file->id)) {
      out.insert("symbol " + s.fqn + " " + s.kind + " " + std::to_string(s.start_line) + "-" +
                 std::to_string(s.end_line));
      ids.push_back(*s.id);
    }
  }
  // The text rows search reads, which an update rewrites only for symbols whose text changed.
  index::Database db(root / ".tamsel" / "index.db", index::Database::Mode::read);
  for (const char* sql :
       {"SELECT 'text ' || coalesce(s.fqn, 'orphan') || ' ' || t.name || ' ' || t.fqn || ' ' || "
        "coalesce(t.signature, '') || ' ' || coalesce(t.docstring, '') || ' ' || t.path || ' ' || "
        "coalesce(t.reference, '') || ' ' || coalesce(t.words, '') || ' ' || t.mentions || ' ' || "
        "t.context "
        "FROM symbol_text t LEFT JOIN symbols s ON s.id = t.rowid",
        "SELECT 'gram ' || coalesce(s.fqn, 'orphan') || ' ' || g.name "
        "FROM name_grams g LEFT JOIN symbols s ON s.id = g.rowid"}) {
    auto st = db.prepare(sql);
    while (st.step()) out.insert(st.text(0));
  }
  // Rows as stored, ids replaced by what they name: an update must leave what a clean build
  // writes, also in the columns no reader above shows.
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"'row'", "s.fqn", "s.name", "s.name_folded", "s.kind", "s.start_line", "s.end_line",
        "s.signature", "s.docstring", "s.is_test", "p.fqn", "s.parent_fqn", "s.bases", "f.path",
        "s.type_of", "s.fields", "s.words"},
       "symbols s JOIN files f ON f.id = s.file_id LEFT JOIN symbols p ON p.id = s.parent_id"},
      {{"'site'", "f.path", "c.line", "r.fqn", "c.evidence", "c.target_fqn", "e.fqn",
        "(SELECT group_concat(b.rank || ':' || b.fqn) FROM call_fallbacks b "
        "WHERE b.site_id = c.id)",
        "(SELECT group_concat(k.module) FROM call_scopes k WHERE k.site_id = c.id)", "c.receiver",
        "c.member", "c.receiver_evidence"},
       "call_sites c JOIN files f ON f.id = c.file_id LEFT JOIN symbols r ON r.id = c.caller_id "
       "LEFT JOIN symbols e ON e.id = c.callee_id"},
      {{"'edge'", "r.fqn", "e.fqn", "f.path", "g.line", "g.derived", "c.line"},
       "edges g JOIN symbols r ON r.id = g.caller_id JOIN symbols e ON e.id = g.callee_id "
       "JOIN files f ON f.id = g.file_id JOIN call_sites c ON c.id = g.site_id"},
      {{"'merged'", "d.fqn", "d.kind", "d.start_line", "d.signature", "d.docstring", "d.gave_doc",
        "f.path", "s.fqn", "g.path"},
       "declarations d JOIN files f ON f.id = d.file_id LEFT JOIN symbols s ON s.id = d.def_id "
       "LEFT JOIN files g ON g.id = d.def_file_id"},
      {{"'import'", "f.path", "i.line", "i.module", "i.name", "i.alias", "t.path", "s.fqn"},
       "imports i JOIN files f ON f.id = i.file_id LEFT JOIN files t ON t.id = i.target_file_id "
       "LEFT JOIN symbols s ON s.id = i.target_symbol_id"},
      {{"'docname'", "n.path", "n.fqn", "n.text", "s.fqn", "n.last", "n.owner", "n.miss"},
       "doc_names n LEFT JOIN symbols s ON s.id = n.symbol_id"},
      {{"'doctext'", "s.fqn", "d.text"}, "doc_text d LEFT JOIN symbols s ON s.id = d.symbol_id"}};
  for (const auto& [columns, from] : rows) {
    std::string select;
    for (const auto& c : columns)
      select += (select.empty() ? "" : " || ' ' || ") + ("coalesce(" + c + ", '~')");
    auto st = db.prepare("SELECT " + select + " FROM " + from);
    while (st.step()) out.insert(st.text(0));
  }
  auto byid = repo->symbols_with_paths(ids);
  for (const auto& n : repo->evidence_neighbours(ids, index::TestFilter::include, 100000,
                                                 std::vector<index::Relation>{index::CALLEE})) {
    out.insert("call " + byid[n.of].first.fqn + " -> " + n.fqn.value_or("?") + " x" +
               std::to_string(n.call_sites));
  }
  return out;
}

// The tree under `root` indexed from scratch in a copy, with the report of that build.
std::pair<std::multiset<std::string>, indexer::IndexReport> clean_build(const fs::path& root) {
  indexer_test::TempRepo clean;
  clean.copy_sources_of(root);
  auto report = indexer::update_index(clean.root());
  return {dump(clean.root()), report};
}

std::multiset<std::string> clean_dump(const fs::path& root) {
  return clean_build(root).first;
}

TEST(UpdateIndex, ReparsesOnlyWhatChangedAndCountsSkips) {
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/blob.py", std::string("import x\0\x01", 10));
  repo.write("src/shop/latin1.py", "name = '\xe9t\xe9'\n");
  // A declaration merged into its definition in another file, so an edit there changes counts.
  repo.write("native/calc.h", "int sub(int a, int b);\nint add(int a, int b);\n");
  repo.write("native/calc.c", "#include \"calc.h\"\nint add(int a, int b) { return a + b; }\n");
  repo.write("native/sub.c", "#include \"calc.h\"\nint sub(int a, int b) { return a - b; }\n");
  // A Go package whose edited file keeps, moves, changes, drops and adds symbols and calls.
  repo.write("go/shop/base.go",
             "package shop\n\ntype Base struct{}\n\nfunc (b *Base) Sum() int { return 0 }\n");
  repo.write("go/shop/cart.go",
             "package shop\n\n// Cart holds items.\ntype Cart struct {\n\tBase\n}\n\n"
             "func (c *Cart) Total() int { return c.Sum() + helper() }\n\n"
             "func helper() int { return 1 }\n\nfunc gone() int { return helper() }\n");
  auto first = indexer::update_index(repo.root());
  EXPECT_EQ(first.parsed, 15);
  EXPECT_EQ(first.indexed, 15);
  EXPECT_EQ(first.skipped["binary"], 1);
  EXPECT_EQ(first.skipped["not utf-8"], 1);
  EXPECT_GT(first.calls, 10);
  EXPECT_GT(first.unresolved_calls, 0);
  auto line = indexer::summary_line(first);
  EXPECT_NE(line.find("binary: 1"), std::string::npos) << line;
  {  // a first build writes without the log, then leaves the index in the mode readers use
    index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
    auto mode = db.prepare("PRAGMA journal_mode");
    ASSERT_TRUE(mode.step());
    EXPECT_EQ(mode.text(0), "wal");
  }
  EXPECT_FALSE(fs::exists(repo.root() / ".tamsel" / "index.db-journal"));

  auto again = indexer::update_index(repo.root());
  EXPECT_EQ(again.parsed, 0);
  EXPECT_EQ(again.removed, 0);
  EXPECT_EQ(again.symbols, first.symbols);

  // Touched but unchanged: the hash spares the parse.
  fs::last_write_time(
      repo.root() / "src/shop/models.py",
      fs::last_write_time(repo.root() / "src/shop/models.py") + std::chrono::hours(1));
  EXPECT_EQ(indexer::update_index(repo.root()).parsed, 0);

  repo.write("src/shop/pricing.py",
             "\"\"\"Prices.\"\"\"\n\n\ndef apply_discount(amount, code):\n    return amount\n");
  repo.write("src/shop/shipping.py",
             "from .pricing import apply_discount\n\n\ndef ship(cart):\n"
             "    return apply_discount(1, 'x')\n");
  fs::remove(repo.root() / "src/shop/report.py");
  repo.write("native/calc.c",
             "#include \"calc.h\"\nint add(int a, int b) { return a + b; }\n"
             "int twice(int a) { return add(a, a) + add(a, 1) + sub(a, 1) + missing(a); }\n");
  repo.write("native/calc.h", "int sub(int a, int b);\n\n// Adds.\nint add(int a, int b);\n");
  repo.write("go/shop/cart.go",
             "package shop\n\n// Cart holds the items.\ntype Cart struct {\n\tBase\n}\n\n"
             "func fresh() int { return helper(2) }\n\n"
             "func (c *Cart) Total() int { return c.Sum() + helper(1) }\n\n"
             "func helper(n int) int { return n }\n");
  auto changed = indexer::update_index(repo.root());
  EXPECT_EQ(changed.parsed, 5);
  EXPECT_EQ(changed.removed, 1);
  EXPECT_EQ(changed.indexed, 15);

  auto seen = dump(repo.root());
  EXPECT_EQ(seen.count("symbol shop.pricing.with_tax function 14-15"), 0u);
  EXPECT_EQ(seen.count("file src/shop/report.py shop.report"), 0u);
  EXPECT_EQ(seen.count("call shop.shipping.ship -> shop.pricing.apply_discount x1"), 1u);
  EXPECT_EQ(seen.count("call shop.cart.Cart.total -> shop.pricing.apply_discount x1"), 1u);
  EXPECT_EQ(seen.count("call shop.cart.Cart.total -> shop.pricing.with_tax x1"), 0u);

  // The same tree indexed from scratch reads the same.
  auto [built, clean] = clean_build(repo.root());
  EXPECT_EQ(built, seen);
  // The summary's counts, kept up to date by each run, match counting from scratch.
  EXPECT_EQ(std::tuple(changed.symbols, changed.calls, changed.unresolved_calls),
            std::tuple(clean.symbols, clean.calls, clean.unresolved_calls));
}

// A new __init__.py renames the modules below it although their files are unchanged; an
// unchanged tree is checked without writing.
TEST(UpdateIndex, PackageChangesRenameUnchangedFilesAndNoChangeWritesNothing) {
  indexer_test::TempRepo repo("shop");
  indexer::update_index(repo.root());
  auto db = repo.root() / ".tamsel" / "index.db";
  auto written = fs::last_write_time(db);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(indexer::update_index(repo.root()).parsed, 0);
  EXPECT_EQ(fs::last_write_time(db), written);

  repo.write("tests/__init__.py", "");
  auto renamed = indexer::update_index(repo.root());
  EXPECT_EQ(renamed.parsed, 5);
  auto seen = dump(repo.root());
  EXPECT_EQ(seen.count("file tests/test_cart.py tests.test_cart"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  fs::remove(repo.root() / "tests/__init__.py");
  EXPECT_EQ(indexer::update_index(repo.root()).parsed, 4);
  EXPECT_EQ(dump(repo.root()).count("file tests/test_cart.py test_cart"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));

  // A folder without __init__.py inside the package takes the package's names, and loses them
  // with the package's __init__.py.
  repo.write("src/shop/sansio/views.py", "from ..cart import Cart\n\nclass View(Cart):\n  pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(dump(repo.root()).count("file src/shop/sansio/views.py shop.sansio.views"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  fs::remove(repo.root() / "src/shop/__init__.py");
  indexer::update_index(repo.root());
  EXPECT_EQ(dump(repo.root()).count("file src/shop/sansio/views.py views"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// A name a package imports is its name too: calls through it reach the definition, over two
// packages, a star import and a class member; edits anywhere on the chain relink them.
TEST(UpdateIndex, CallsFollowReexportsAndRelinkWhenTheChainChanges) {
  indexer_test::TempRepo repo("shop");
  repo.write("src/pkg/__init__.py", "from .impl import Thing, make\nfrom .stars import *\n");
  repo.write("src/pkg/impl.py",
             "class Thing:\n    def run(self):\n        pass\n\n\ndef make():\n    pass\n");
  repo.write("src/pkg/stars.py", "def starred():\n    pass\n\n\ndef _hidden():\n    pass\n");
  repo.write("src/pkg2/__init__.py", "from pkg import make as build\n");
  repo.write("src/app.py",
             "import pkg\nfrom pkg import Thing, starred, _hidden, missing\nfrom pkg2 import "
             "build\n\n\ndef main():\n    build()\n    pkg.make()\n    Thing.run(None)\n"
             "    starred()\n    _hidden()\n    missing()\n");
  indexer::update_index(repo.root());
  auto seen = dump(repo.root());
  std::set<std::string> calls;
  for (const auto& line : seen) {
    if (line.starts_with("call app.main")) calls.insert(line);
  }
  EXPECT_EQ(calls, (std::set<std::string>{"call app.main -> pkg.impl.make x2",
                                          "call app.main -> pkg.impl.Thing.run x1",
                                          "call app.main -> pkg.stars.starred x1"}));

  repo.write("src/pkg/impl.py", "class Thing:\n    def run(self):\n        pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(dump(repo.root()).count("call app.main -> pkg.impl.make x2"), 0u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("src/pkg/impl.py", "def make():\n    pass\n\n\nclass Thing:\n    pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(dump(repo.root()).count("call app.main -> pkg.impl.make x2"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("src/pkg/__init__.py", "from .impl import Thing\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(dump(repo.root()).count("call app.main -> pkg.stars.starred x1"), 0u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// A receiver's type may come from another file: a changed result type, a struct's embedded
// field or a method that appears on the nearer type relinks the caller, as a clean build would.
TEST(UpdateIndex, ReceiverTypesFromOtherFilesRelinkWhenTheyChange) {
  indexer_test::TempRepo repo("shop");
  repo.write("go/app/types.go",
             "package app\n\ntype Engine struct{}\n\nfunc (e *Engine) Run() {}\n\n"
             "type Router struct{ Base }\n\nfunc (r *Router) Run() {}\n\ntype Base struct{}\n");
  repo.write("go/app/base.go", "package app\n\nfunc (b *Base) Stop() {}\n");
  repo.write("go/app/new.go", "package app\n\nfunc New() *Engine { return nil }\n");
  repo.write("go/app/main.go",
             "package app\n\nfunc main() {\n\tx, _ := New(), 1\n\ty := New()\n\ty.Run()\n"
             "\ty.Stop()\n}\n");
  indexer::update_index(repo.root());
  auto calls = [&] {
    std::set<std::string> out;
    for (const auto& line : dump(repo.root())) {
      if (line.starts_with("call app.main")) out.insert(line);
    }
    return out;
  };
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.main -> app.Engine.Run x1",
                                            "call app.main -> app.New x2"}));
  repo.write("go/app/new.go", "package app\n\nfunc New() *Router { return nil }\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.main -> app.Router.Run x1",
                                            "call app.main -> app.Base.Stop x1",
                                            "call app.main -> app.New x2"}));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("go/app/base.go",
             "package app\n\nfunc (b *Base) Stop() {}\n\n"
             "func (r *Router) Stop() {}\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls().count("call app.main -> app.Router.Stop x1"), 1u);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("go/app/types.go",
             "package app\n\ntype Engine struct{}\n\nfunc (e *Engine) Run() {}\n\n"
             "type Router struct{}\n\nfunc (r *Router) Run() {}\n\ntype Base struct{}\n");
  repo.write("go/app/base.go", "package app\n\nfunc (b *Base) Stop() {}\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.main -> app.Router.Run x1",
                                            "call app.main -> app.New x2"}));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// Type dependencies are kept per file: a file whose sites consulted a changed name has all its
// receiver sites evaluated again, and only those whose result changed are linked again. Of two
// platform variants of a function, calls stay on the one that builds here as variants come and go.
TEST(UpdateIndex, ReceiverSitesOfAFileAreEvaluatedAgainTogether) {
  indexer_test::TempRepo repo("shop");
  repo.write("go/app/types.go",
             "package app\n\ntype A struct{}\n\nfunc (a *A) Run() {}\n\n"
             "type B struct{}\n\nfunc (b *B) Run() {}\n");
  repo.write("go/app/new.go",
             "package app\n\nfunc NewA() *A { return nil }\n\nfunc NewB() *B { return nil }\n");
  repo.write("go/app/main.go",
             "package app\n\nfunc main() {\n\tNewA().Run()\n\tNewB().Run()\n\tsys()\n}\n");
  repo.write("go/app/sys.go", "package app\n\nfunc sys() {}\n");
  indexer::update_index(repo.root());
  indexer_test::TempRepo fresh("shop");
  auto same_as_fresh = [&] {
    fs::remove_all(fresh.root());
    fs::copy(repo.root(), fresh.root(), fs::copy_options::recursive);
    fs::remove_all(fresh.root() / ".tamsel");
    indexer::update_index(fresh.root());
    EXPECT_EQ(dump(repo.root()), dump(fresh.root()));
  };
  auto calls = [&] {
    std::set<std::string> out;
    for (const auto& line : dump(repo.root())) {
      if (line.starts_with("call app.main")) out.insert(line);
    }
    return out;
  };
  repo.write("go/app/new.go",
             "package app\n\nfunc NewA() *A { return nil }\n\nfunc NewB() *A { return nil }\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(),
            (std::set<std::string>{"call app.main -> app.A.Run x2", "call app.main -> app.NewA x1",
                                   "call app.main -> app.NewB x1", "call app.main -> app.sys x1"}));
  same_as_fresh();
  auto sys_file = [&] {
    index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
    auto st = db.prepare(
        "SELECT f.path FROM edges e JOIN symbols s ON s.id = e.callee_id "
        "JOIN files f ON f.id = s.file_id WHERE s.name = 'sys'");
    return st.step() ? st.text(0) : std::string();
  };
  repo.write("go/app/sys_plan9.go", "package app\n\nfunc sys() {\n\tprintln()\n}\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(sys_file(), "go/app/sys.go");
  same_as_fresh();
  repo.write("go/app/sys.go", "package app\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(sys_file(), "go/app/sys_plan9.go");
  same_as_fresh();
  repo.write("go/app/sys.go", "package app\n\nfunc sys() {}\n");
  repo.write("go/app/types.go",
             "package app\n\ntype A struct{}\n\nfunc (a *A) Run() {}\n\n"
             "type B struct{}\n\nfunc (b *B) Run() {}\n\nfunc (a *A) Stop() {}\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(sys_file(), "go/app/sys.go");
  same_as_fresh();
}

// Python: a method on a base two files away (named through a package's re-export), reached from
// self, an instance and a function's result; edits to the base and to the result relink them.
TEST(UpdateIndex, PythonReceiversFollowBasesAndResultsAcrossFiles) {
  indexer_test::TempRepo repo;
  repo.write("kit/__init__.py", "from .base import Base\n");
  repo.write("kit/base.py", "class Base:\n    def run(self):\n        pass\n");
  repo.write("kit/mid.py",
             "from kit import Base\n\n\nclass Mid(Base):\n    pass\n\n\n"
             "def make():\n    return Mid()\n");
  repo.write("app.py",
             "from kit.mid import Mid, make\n\n\nclass App(Mid):\n    def go(self):\n"
             "        self.run()\n\n\ndef main():\n    m = Mid()\n    m.run()\n"
             "    make().run()\n    x = make()\n    x.run()\n");
  indexer::update_index(repo.root());
  auto calls = [&] {
    std::set<std::string> out;
    for (const auto& line : dump(repo.root())) {
      if (line.starts_with("call app.") && line.find("run") != std::string::npos) out.insert(line);
    }
    return out;
  };
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.App.go -> kit.base.Base.run x1",
                                            "call app.main -> kit.base.Base.run x3"}));
  repo.write("kit/base.py", "class Base:\n    def stop(self):\n        pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(), std::set<std::string>{});
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("kit/mid.py",
             "from kit import Base\n\n\nclass Mid(Base):\n    pass\n\n\nclass Other:\n"
             "    def run(self):\n        pass\n\n\ndef make():\n    return Other()\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.main -> kit.mid.Other.run x2"}));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("kit/base.py", "class Base:\n    def run(self):\n        pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(calls(), (std::set<std::string>{"call app.App.go -> kit.base.Base.run x1",
                                            "call app.main -> kit.base.Base.run x1",
                                            "call app.main -> kit.mid.Other.run x2"}));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// Edits that change only what a name's type is, in one file, relink the callers in other files
// that reached a function or method through it: a package's re-export moved or removed, a module
// imported under another name, a return annotation, a base class, a field's annotation; Go's
// result and field types.
TEST(UpdateIndex, TypeOnlyEditsRelinkCallersInOtherFiles) {
  indexer_test::TempRepo repo;
  auto two = [](const char* a, const char* b) {
    return std::string("class ") + a + ":\n    def run(self):\n        pass\n\n\nclass " + b +
           ":\n    def run(self):\n        pass\n";
  };
  repo.write("kit/__init__.py", "from .a import Thing\n");
  repo.write("kit/a.py", "class Thing:\n    def run(self):\n        pass\n");
  repo.write("kit/b.py", "class Thing:\n    def run(self):\n        pass\n");
  repo.write("tools/__init__.py", "from . import one as impl\n");
  repo.write("tools/one.py", "def run():\n    pass\n");
  repo.write("tools/two.py", "def run():\n    pass\n");
  repo.write("kit/pq.py", two("P", "Q"));
  repo.write("kit/fac.py", "from kit.pq import P, Q\n\n\ndef make() -> P:\n    return get()\n");
  repo.write("kit/mid.py", "from kit.pq import P, Q\n\n\nclass Mid(P):\n    pass\n");
  repo.write("kit/holder.py", "from kit.pq import P, Q\n\n\nclass Holder:\n    part: P\n");
  repo.write(
      "app.py",
      "import kit\nimport tools\nfrom kit import Thing\nfrom kit.fac import make\nfrom kit.mid "
      "import "
      "Mid\nfrom kit.holder import Holder\n\n\ndef main(h: Holder):\n    t = Thing()\n"
      "    t.run()\n    kit.Thing().run()\n    Thing.run(t)\n    make().run()\n    Mid().run()\n"
      "    h.part.run()\n    tools.impl.run()\n");
  repo.write("go/app/types.go",
             "package app\n\ntype Engine struct{}\n\nfunc (e *Engine) Run() {}\n\n"
             "type Router struct{}\n\nfunc (r *Router) Run() {}\n");
  repo.write("go/app/holder.go",
             "package app\n\ntype Holder struct{ e *Engine }\n\n"
             "func (h *Holder) Get() *Engine { return nil }\n");
  repo.write("go/app/main.go",
             "package app\n\nfunc main(h *Holder) {\n\th.e.Run()\n\th.Get().Run()\n}\n");
  indexer::update_index(repo.root());
  auto runs = [&] {
    std::set<std::string> out;
    for (const auto& line : dump(repo.root())) {
      if (line.starts_with("call app.main") &&
          (line.find(".run") != std::string::npos || line.find(".Run") != std::string::npos))
        out.insert(line.substr(14));
    }
    return out;
  };
  using Calls = std::set<std::string>;
  EXPECT_EQ(runs(), (Calls{"-> app.Engine.Run x2", "-> kit.a.Thing.run x3", "-> kit.pq.P.run x3",
                           "-> tools.one.run x1"}));
  const std::vector<std::tuple<std::string, std::string, Calls>> edits = {
      {"kit/__init__.py",
       "from .b import Thing\n",
       {"-> app.Engine.Run x2", "-> kit.b.Thing.run x3", "-> kit.pq.P.run x3",
        "-> tools.one.run x1"}},
      {"kit/__init__.py",
       "",
       {"-> app.Engine.Run x2", "-> kit.pq.P.run x3", "-> tools.one.run x1"}},
      {"kit/fac.py",
       "from kit.pq import P, Q\n\n\ndef make() -> Q:\n    return get()\n",
       {"-> app.Engine.Run x2", "-> kit.pq.P.run x2", "-> kit.pq.Q.run x1", "-> tools.one.run x1"}},
      {"kit/mid.py",
       "from kit.pq import P, Q\n\n\nclass Mid(Q):\n    pass\n",
       {"-> app.Engine.Run x2", "-> kit.pq.P.run x1", "-> kit.pq.Q.run x2", "-> tools.one.run x1"}},
      {"kit/holder.py",
       "from kit.pq import P, Q\n\n\nclass Holder:\n    part: Q\n",
       {"-> app.Engine.Run x2", "-> kit.pq.Q.run x3", "-> tools.one.run x1"}},
      {"kit/__init__.py",
       "from .a import *\n",
       {"-> app.Engine.Run x2", "-> kit.a.Thing.run x3", "-> kit.pq.Q.run x3",
        "-> tools.one.run x1"}},
      {"tools/__init__.py",
       "from . import two as impl\n",
       {"-> app.Engine.Run x2", "-> kit.a.Thing.run x3", "-> kit.pq.Q.run x3",
        "-> tools.two.run x1"}},
      {"go/app/holder.go",
       "package app\n\ntype Holder struct{ e *Router }\n\n"
       "func (h *Holder) Get() *Engine { return nil }\n",
       {"-> app.Engine.Run x1", "-> app.Router.Run x1", "-> kit.a.Thing.run x3",
        "-> kit.pq.Q.run x3", "-> tools.two.run x1"}},
      {"go/app/holder.go",
       "package app\n\ntype Holder struct{ e *Router }\n\n"
       "func (h *Holder) Get() *Router { return nil }\n",
       {"-> app.Router.Run x2", "-> kit.a.Thing.run x3", "-> kit.pq.Q.run x3",
        "-> tools.two.run x1"}},
  };
  for (const auto& [path, text, expected] : edits) {
    SCOPED_TRACE(path + ": " + text);
    repo.write(path, text);
    indexer::update_index(repo.root());
    EXPECT_EQ(runs(), expected);
    EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  }
}

// Runs `tamsel index` and kills it with SIGKILL half-way through.
void index_and_kill(const fs::path& root) {
  int err[2];
  ASSERT_EQ(::pipe(err), 0);
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(err[1], STDERR_FILENO);
    ::close(err[0]);
    ::execl(TAMSEL_BINARY, TAMSEL_BINARY, "index", "--repo", root.c_str(), nullptr);
    ::_exit(127);
  }
  ::close(err[1]);
  FILE* in = ::fdopen(err[0], "r");
  char buf[512];
  // Files are written as they are parsed: half-way, the write transaction is under way.
  while (std::fgets(buf, sizeof buf, in) != nullptr) {
    int done = 0, total = -1;
    if (std::sscanf(buf, "parsed %d/%d", &done, &total) == 2 && 2 * done >= total) break;
  }
  ::kill(pid, SIGKILL);
  int status = 0;
  ::waitpid(pid, &status, 0);
  std::fclose(in);
  EXPECT_TRUE(WIFSIGNALED(status)) << "the index finished before it could be interrupted";
}

TEST(UpdateIndex, AKilledRunLeavesAnIndexTheNextRunCompletes) {
  indexer_test::TempRepo repo("shop");
  ASSERT_EQ(indexer::update_index(repo.root()).indexed, 10);
  std::string body = "from shop.cart import Cart\n\n\ndef fill(n):\n    return Cart(str(n))\n";
  for (int i = 0; i < 290; ++i) {
    std::string text = body;
    for (int k = 0; k < 40; ++k)
      text += "\n\ndef f" + std::to_string(k) + "():\n    return fill(1)\n";
    repo.write("src/shop/gen/m" + std::to_string(i) + ".py", text);
  }
  repo.write("src/shop/gen/__init__.py", "");
  index_and_kill(repo.root());

  auto after = indexer::update_index(repo.root());
  EXPECT_EQ(after.indexed, 301);
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// A first build interrupted after two of its batches keeps their files and says it is
// unfinished; the next run parses only the others and those changed since, and leaves what a
// build in one go writes (calls linked across all files, declarations merged, components).
TEST(UpdateIndex, AnInterruptedFirstBuildResumesFromItsBatches) {
  for (const char* fixture : {"shop", "cpp_decls", "lang_mixed", "lang_go"}) {
    for (bool edit : {false, true}) {
      SCOPED_TRACE(std::string(fixture) + (edit ? ", a kept file edited" : ""));
      indexer_test::TempRepo repo(fixture);
      indexer::IndexOptions options;
      options.batch_files = 2;
      int batches = 0;
      options.after_batch = [&](std::int64_t) {
        if (++batches == 2) throw std::runtime_error("interrupted");
      };
      EXPECT_THROW(indexer::update_index(repo.root(), options), std::runtime_error);
      std::string first;
      {
        index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
        EXPECT_TRUE(index::build_unfinished(db));
        auto st = db.prepare("SELECT count(*), min(path) FROM files");
        ASSERT_TRUE(st.step());
        EXPECT_EQ(st.integer(0), 4);
        first = st.text(1);
      }
      if (edit) {
        std::ofstream(repo.root() / first, std::ios::app) << "\n\n";
      }
      auto resumed = indexer::update_index(repo.root());
      auto [whole, report] = clean_build(repo.root());
      EXPECT_TRUE(resumed.resumed);
      EXPECT_EQ(resumed.kept, edit ? 3 : 4);
      EXPECT_EQ(resumed.parsed, report.parsed - resumed.kept);
      EXPECT_EQ(resumed.calls, report.calls);
      EXPECT_EQ(dump(repo.root()), whole);
      index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
      EXPECT_FALSE(index::build_unfinished(db));
      EXPECT_FALSE(indexer::update_index(repo.root()).resumed);
    }
  }
}

// What a reference page says of a name reaches the text row of the symbol it documents, through
// the package's re-exports, and follows edits of the page and of the code as a clean build would;
// the symbol's own docstring stays the source's.
using Texts = std::pair<std::string, std::string>;

// A symbol's own docstring and one column of its text row, "NULL" for none.
Texts text_row(const fs::path& root, const std::string& fqn, const std::string& column) {
  index::Database db(root / ".tamsel" / "index.db", index::Database::Mode::read);
  auto st = db.prepare("SELECT coalesce(s.docstring, 'NULL'), coalesce(t." + column +
                       ", 'NULL') FROM symbols s JOIN symbol_text t ON t.rowid = s.id "
                       "WHERE s.fqn = ?");
  st.bind(1, fqn);
  return st.step() ? Texts(st.text(0), st.text(1)) : Texts();
}

TEST(UpdateIndex, ReferencePagesReachTheSymbolsTheyDocument) {
  indexer_test::TempRepo repo("shop");
  repo.write("src/pkg/__init__.py", "from .queues import *\n");
  repo.write("src/pkg/queues.py", "class Queue:\n    def join(self):\n        pass\n");
  repo.write("docs/queues.rst",
             ".. currentmodule:: pkg\n\n.. class:: Queue()\n\n   .. method:: join()\n\n"
             "      Block until every item was processed.\n\n.. function:: missing()\n\n"
             "   Gone.\n");
  // The symbol's docstring and what its text row holds from the pages, "NULL" for none.
  auto texts = [&](const std::string& fqn) { return text_row(repo.root(), fqn, "reference"); };
  // A .txt file is read only when its head holds a Python directive.
  repo.write("NOTES.txt", "Release notes.\n\n.. note:: not Python\n");
  repo.write("docs/late.txt", std::string(indexer::reference_docs::TXT_SNIFF_BYTES, 'x') +
                                  "\n\n.. function:: pkg.late()\n");
  auto report = indexer::update_index(repo.root());
  EXPECT_EQ(std::tuple(report.pages_read, report.pages_passed_over), std::tuple(1, 2));
  EXPECT_EQ(std::tuple(report.documented, report.documented_linked), std::tuple(3, 2));
  EXPECT_NE(indexer::summary_line(report).find("3 names in reference pages (2 linked"),
            std::string::npos);
  EXPECT_EQ(texts("pkg.queues.Queue.join"), Texts("NULL", "Block until every item was processed"));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));

  // The code file re-indexed keeps the page's words; the page edited changes them.
  repo.write("src/pkg/queues.py",
             "class Queue:\n    \"\"\"FIFO.\"\"\"\n\n    def join(self):\n        pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(texts("pkg.queues.Queue.join").second, "Block until every item was processed");
  EXPECT_EQ(texts("pkg.queues.Queue"), Texts("FIFO.", "NULL"));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  repo.write("docs/queues.rst",
             ".. module:: pkg\n\n.. class:: Queue\n\n   A queue of tasks.\n\n"
             "   .. method:: join()\n\n      Wait for the workers.\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(texts("pkg.queues.Queue"), Texts("FIFO.", "A queue of tasks"));
  EXPECT_EQ(texts("pkg.queues.Queue.join").second, "Wait for the workers");
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));

  // Without the re-export the one Queue.join of the package is still found; with a second one
  // the name is ambiguous and links to neither.
  repo.write("src/pkg/__init__.py", "");
  EXPECT_EQ(indexer::update_index(repo.root()).documented_linked, 2);
  repo.write("src/pkg/other.py", "class Queue:\n    def join(self):\n        pass\n");
  EXPECT_EQ(indexer::update_index(repo.root()).documented_linked, 0);
  EXPECT_EQ(texts("pkg.queues.Queue.join").second, "NULL");
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  fs::remove(repo.root() / "src/pkg/other.py");
  EXPECT_EQ(indexer::update_index(repo.root()).documented_linked, 2);
  fs::remove(repo.root() / "docs/queues.rst");
  EXPECT_EQ(indexer::update_index(repo.root()).documented, 0);
  EXPECT_EQ(texts("pkg.queues.Queue"), Texts("FIFO.", "NULL"));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// A module's only class or function, undocumented, is searched with the module's docstring, and
// keeps its own docstring empty; an edit that adds a second definition or changes the module's
// docstring rewrites the text an unchanged definition is searched with.
TEST(UpdateIndex, TextRowsReadTheModuleDocstringAndOwnStringsAsACleanBuildWould) {
  indexer_test::TempRepo repo;
  using Docs = Texts;  // the symbol's and its text row's, "NULL"
  auto docs = [&](const std::string& fqn) { return text_row(repo.root(), fqn, "docstring"); };
  auto backend = [](const std::string& said) {
    return "class EmailBackend:\n    def send(self, messages):\n        return '" + said + "'\n";
  };
  repo.write("dummy.py", "\"\"\"Backend that does nothing.\"\"\"\n\n" + backend("sent"));
  repo.write("two.py", "\"\"\"Helpers.\"\"\"\n\ndef a():\n    pass\n\ndef b():\n    pass\n");
  repo.write("own.py", "\"\"\"Module.\"\"\"\n\ndef c():\n    \"\"\"Own words.\"\"\"\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(docs("dummy.EmailBackend"), Docs("NULL", "Backend that does nothing."));
  EXPECT_EQ(docs("dummy.EmailBackend.send"), Docs("NULL", "NULL"));
  EXPECT_EQ(docs("two.a"), Docs("NULL", "NULL"));
  EXPECT_EQ(docs("own.c"), Docs("Own words.", "Own words."));

  repo.write("dummy.py", "\"\"\"Backend that does nothing.\"\"\"\n\n" + backend("sent") +
                             "\ndef helper():\n    pass\n");
  repo.write("two.py", "\"\"\"Helpers.\"\"\"\n\ndef a():\n    pass\n");
  indexer::update_index(repo.root());
  EXPECT_EQ(docs("dummy.EmailBackend"), Docs("NULL", "NULL"));
  EXPECT_EQ(docs("two.a"), Docs("NULL", "Helpers."));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  // The words of a method's own strings, changed alone, change its text row too.
  repo.write("dummy.py", "\"\"\"Sends nothing.\"\"\"\n\n" + backend("discarded"));
  indexer::update_index(repo.root());
  EXPECT_EQ(docs("dummy.EmailBackend"), Docs("NULL", "Sends nothing."));
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// What a package's or type's doc says of a member reaches the member's text row, and follows
// edits of that doc, in the member's file or another, as a clean build would.
TEST(UpdateIndex, MembersReadWhatTheirPackageAndTypeDocsSay) {
  indexer_test::TempRepo repo;
  auto row = [&](const std::string& fqn) {
    return text_row(repo.root(), fqn, "mentions").second + " | " +
           text_row(repo.root(), fqn, "context").second;
  };
  auto circle = [](const std::string& doc) {
    return "\"\"\"Shapes on a plane.\"\"\"\n\nclass Circle:\n    \"\"\"" + doc +
           "\"\"\"\n\n    def area(self):\n        return 1\n";
  };
  repo.write("big/doc.go",
             "// Copyright.\n\n// Package big does arithmetic.\n// Rat holds rational numbers.\n"
             "package big\n");
  repo.write("big/rat.go",
             "package big\n\n// A Rat is a quotient. Call Add to sum two.\n"
             "type Rat struct{}\n");
  repo.write(
      "big/ops.go",
      "package big\n\n// Add sets z to x+y.\nfunc (z *Rat) Add(x, y *Rat) *Rat { return z }\n"
      "\nfunc (z *Rat) Neg() *Rat { return z }\n");
  repo.write("shapes.py", circle("A round shape. Call area() to measure it."));
  indexer::update_index(repo.root());
  EXPECT_EQ(row("big.Rat"), "Rat holds rational numbers. | Package big does arithmetic.");
  EXPECT_EQ(row("big.Rat.Add"),
            "Call Add to sum two. | Package big does arithmetic. A Rat is a quotient. Rat holds "
            "rational numbers.");
  EXPECT_EQ(row("big.Rat.Neg"),
            " | Package big does arithmetic. A Rat is a quotient. Rat holds rational numbers.");
  EXPECT_EQ(row("shapes.Circle.area"),
            "Call area() to measure it. | Shapes on a plane. A round shape.");

  repo.write("big/doc.go", "// Package big does sums.\n// Neg and Rat are here.\npackage big\n");
  repo.write("big/rat.go", "package big\n\n// A Rat is a ratio.\ntype Rat struct{}\n");
  repo.write("shapes.py", circle("A round shape. Its area() is pi r squared."));
  indexer::update_index(repo.root());
  EXPECT_EQ(
      row("big.Rat.Neg"),
      "Neg and Rat are here. | Package big does sums. A Rat is a ratio. Neg and Rat are here.");
  EXPECT_EQ(row("big.Rat.Add"),
            " | Package big does sums. A Rat is a ratio. Neg and Rat are here.");
  EXPECT_EQ(row("shapes.Circle.area"),
            "Its area() is pi r squared. | Shapes on a plane. A round shape.");
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
  // The package's doc goes with its file.
  fs::remove(repo.root() / "big/doc.go");
  indexer::update_index(repo.root());
  EXPECT_EQ(row("big.Rat.Neg"), " | A Rat is a ratio.");
  EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
}

// An update relinks only the names an edit may move, yet leaves what a clean build writes: for
// body edits, members defined on a derived class or a base, bases that change two classes down
// the names a page uses through a renaming import, files added and deleted, and pages edited.
TEST(UpdateIndex, PageLinksFollowCodeEditsAsACleanBuildWould) {
  indexer_test::TempRepo repo;
  repo.write("src/lib/__init__.py", "from .impl import Widget as Gadget\n");
  const std::string roots =
      "class Root:\n    def close(self):\n        pass\n\n"
      "class Other:\n    def close(self):\n        pass\n\n";
  repo.write("src/lib/base.py",
             roots + "class Base(Root):\n    def size(self):\n        return 1\n");
  const std::string widget = "from .base import Base\n\nclass Widget(Base):\n    def draw(self):\n";
  repo.write("src/lib/impl.py", widget + "        \"Paint.\"\n");
  const std::string page =
      ".. module:: cmath\n\n.. function:: sqrt(x)\n\n"
      ".. module:: lib\n\n.. class:: Gadget\n\n   A gadget.\n\n"
      "   .. method:: draw()\n\n      Paints it.\n\n"
      "   .. method:: size()\n\n      Measures it.\n\n"
      "   .. method:: close()\n\n      Shuts it.\n\n"
      "   .. attribute:: colour\n\n      Set when made.\n\n"
      ".. attribute:: LIMIT\n\n   Not the gadget's.\n";
  repo.write("docs/api.rst", page);
  // The symbol a name links to, or why it links nowhere.
  auto linked_to = [&](const std::string& fqn) {
    index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
    auto st = db.prepare(
        "SELECT coalesce(s.fqn, n.miss) FROM doc_names n LEFT JOIN symbols s ON s.id = n.symbol_id "
        "WHERE n.fqn = ?");
    st.bind(1, fqn);
    return st.step() ? st.text(0) : "missing";
  };
  auto update = [&] {
    auto report = indexer::update_index(repo.root());
    EXPECT_EQ(dump(repo.root()), clean_dump(repo.root()));
    return report.documented_linked;
  };
  // Inherited members link to the base's; an instance attribute, a constant written after the
  // class (it stands in the module) and a function of a module without code link nowhere, each
  // for its reason.
  EXPECT_EQ(update(), 4);
  EXPECT_EQ(linked_to("lib.Gadget.size"), "lib.base.Base.size");
  EXPECT_EQ(linked_to("lib.Gadget.close"), "lib.base.Root.close");
  EXPECT_EQ(linked_to("lib.Gadget.colour"), "member");
  EXPECT_EQ(linked_to("lib.LIMIT"), "none");
  EXPECT_EQ(linked_to("cmath.sqrt"), "no code");
  repo.write("src/cmath.py", "def cos(x):\n    pass\n");
  EXPECT_EQ(update(), 4);
  EXPECT_EQ(linked_to("cmath.sqrt"), "none");

  // A one-line edit rewrites the text row of the symbol the page links, which keeps its words.
  repo.write("src/lib/impl.py", widget + "        \"Paint it.\"\n");
  EXPECT_EQ(update(), 4);
  repo.write("src/lib/impl.py",
             widget + "        \"Paint it.\"\n\n    def size(self):\n        return 3\n");
  EXPECT_EQ(update(), 4);
  EXPECT_EQ(linked_to("lib.Gadget.size"), "lib.impl.Widget.size");
  // Only a base two classes up changes: the name documented on the derived class follows.
  repo.write("src/lib/base.py",
             roots + "class Base(Other):\n    def size(self):\n        return 1\n");
  EXPECT_EQ(update(), 4);
  EXPECT_EQ(linked_to("lib.Gadget.close"), "lib.base.Other.close");
  // A re-export that leads elsewhere moves the names documented under it.
  repo.write("src/lib/__init__.py", "from .base import Root as Gadget\n");
  EXPECT_EQ(update(), 2);
  EXPECT_EQ(linked_to("lib.Gadget.close"), "lib.base.Root.close");
  repo.write("src/lib/__init__.py", "from .impl import Widget as Gadget\n");
  EXPECT_EQ(update(), 4);
  repo.write("src/lib/base.py", "class Base:\n    pass\n");
  EXPECT_EQ(update(), 3);
  repo.write("src/lib/consts.py", "LIMIT = 3\n");
  repo.write("src/lib/__init__.py",
             "from .impl import Widget as Gadget\nfrom .consts import LIMIT\n");
  EXPECT_EQ(update(), 4);
  fs::remove(repo.root() / "src/lib/impl.py");
  EXPECT_EQ(update(), 1);
  repo.write("src/lib/impl.py", "class Widget:\n    def draw(self):\n        pass\n");
  repo.write("docs/api.rst", page + "\n.. function:: lib.Gadget.draw\n\n   Draws.\n");
  EXPECT_EQ(update(), 4);
  EXPECT_EQ(linked_to("lib.Gadget.draw"), "lib.impl.Widget.draw");
  fs::remove(repo.root() / "docs/api.rst");
  EXPECT_EQ(update(), 0);
}

}  // namespace
