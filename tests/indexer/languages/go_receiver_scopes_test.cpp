#include <gtest/gtest.h>

#include <set>
#include <string>

#include <vector>

#include "indexer/indexed_fixture.h"
#include "orvane_tamsel/indexer/languages/go/build_variants.h"

namespace {

// Which declaration a receiver's name means: the innermost block's, a type switch clause's, a
// dot import's names behind the package's own, methods of an embedded struct of another
// package, a grouped package variable, and of two platform variants the one that builds here.
TEST(GoReceiverScopes, NamesMeanWhatTheCompilerSees) {
  indexer_test::IndexedFixture repo("");
  repo.write("go.mod", "module example.com/m\n");
  repo.write("wire/wire.go",
             "package wire\n\ntype Buf struct{}\n\nfunc (b *Buf) Flush() {}\n\n"
             "func NewBuf() *Buf { return nil }\n\nfunc Max(a, b int) int { return a }\n");
  repo.write("app/types.go",
             "package app\n\nimport \"example.com/m/wire\"\n\ntype A struct{}\n\n"
             "func (a *A) Run() {}\n\ntype B struct{}\n\nfunc (b *B) Run() {}\n\n"
             "type W struct {\n\t*wire.Buf\n}\n\nfunc (w *W) Close() { w.Flush() }\n\n"
             "var (\n\tshared *B\n\tother  int\n)\n\nfunc max(a, b int) int { return a }\n");
  repo.write("app/use.go",
             "package app\n\nfunc use(v interface{}, ok bool) {\n\tx := &A{}\n"
             "\tif ok {\n\t\tx := &B{}\n\t\tx.Run()\n\t}\n\tx.Run()\n"
             "\tswitch y := v.(type) {\n\tcase *B:\n\t\ty.Run()\n\t}\n"
             "\tshared.Run()\n\t(&W{}).Flush()\n\t_ = max(1, 2)\n}\n");
  repo.write("app/sys.go", "package app\n\nfunc sys() {}\n\nfunc callsys() { sys() }\n");
  repo.write("app/sys_plan9.go",
             "package app\n\nfunc sys() {\n\tprintln(1)\n\tprintln(2)\n\tprintln(3)\n}\n");
  repo.write("wire/wire_test.go",
             "package wire_test\n\nimport . \"example.com/m/wire\"\n\n"
             "func TestBuf(t *testing.T) {\n\tNewBuf().Flush()\n\t_ = Max(1, 2)\n}\n");
  repo.update();
  EXPECT_EQ(repo.callees("app.use"),
            (std::set<std::string>{"app.A.Run", "app.B.Run", "wire.Buf.Flush", "app.max"}));
  EXPECT_EQ(repo.callees("app.W.Close"), std::set<std::string>{"wire.Buf.Flush"});
  EXPECT_EQ(repo.callees("wire_test.TestBuf"),
            (std::set<std::string>{"wire.NewBuf", "wire.Buf.Flush", "wire.Max"}));
  EXPECT_EQ(repo.rows("SELECT f.path FROM edges e JOIN symbols r ON r.id = e.caller_id "
                      "JOIN symbols s ON s.id = e.callee_id JOIN files f ON f.id = s.file_id "
                      "WHERE r.fqn = 'app.callsys'"),
            std::vector<std::string>{"app/sys.go"});
  // the lines of use(): x.Run() in the inner block is B's, after it A's
  EXPECT_EQ(repo.rows("SELECT c.line || ' ' || s.fqn FROM edges e "
                      "JOIN call_sites c ON c.id = e.site_id JOIN symbols s ON s.id = e.callee_id "
                      "JOIN symbols r ON r.id = e.caller_id WHERE r.fqn = 'app.use' "
                      "ORDER BY c.line, s.fqn"),
            (std::vector<std::string>{"7 app.B.Run", "9 app.A.Run", "12 app.B.Run", "14 app.B.Run",
                                      "15 wire.Buf.Flush", "16 app.max"}));
}

// A function defined once per build constraint links to the definition whose `//go:build` line
// holds on this machine (the common rule alone picks the longest); lines read as the toolchain
// reads them, a malformed one excluding nothing.
TEST(GoReceiverScopes, BuildConstraintsPickTheVariantThatBuilds) {
  using orvane_tamsel::indexer::go::build_constraint;
  using orvane_tamsel::indexer::go::constraint_excludes;
  EXPECT_TRUE(constraint_excludes("ignore"));
  EXPECT_TRUE(constraint_excludes("race || (windows && !plan9)"));
  EXPECT_FALSE(constraint_excludes("!race"));
  EXPECT_FALSE(constraint_excludes("go1.12 && gc && !(js || wasm)"));
  EXPECT_FALSE(constraint_excludes("race && (("));
  EXPECT_EQ(build_constraint("// Copyright\n\n//go:build !race\n\npackage p\n"), "!race");
  EXPECT_EQ(build_constraint("package p\n\n//go:build ignore\n"), "");
  // Older files: options on a line are alternatives, commas join, every line must hold.
  auto plus = build_constraint("// +build linux,!cgo darwin\n// +build ignore\n\npackage p\n");
  EXPECT_EQ(plus, "((linux && !cgo) || (darwin)) && ((ignore))");
  EXPECT_TRUE(constraint_excludes(plus));
  EXPECT_FALSE(constraint_excludes(build_constraint("// +build !windows,!plan9\n\npackage p\n")));
  EXPECT_EQ(build_constraint("//go:build race\n// +build linux\n\npackage p\n"), "race");

  indexer_test::IndexedFixture repo("");
  repo.write("go.mod", "module example.com/m\n");
  const std::string longer = "{\n\tprintln(1)\n\tprintln(2)\n\tprintln(3)\n}\n";
  repo.write("app/race.go", "//go:build race\n\npackage app\n\nfunc start() " + longer);
  repo.write("app/norace.go", "//go:build !race\n\npackage app\n\nfunc start() {}\n");
  repo.write("app/gen.go", "//go:build ignore\n\npackage app\n\nfunc helper() " + longer);
  repo.write("app/helper.go", "package app\n\nfunc helper() {}\n");
  repo.write("app/use.go", "package app\n\nfunc use() {\n\tstart()\n\thelper()\n}\n");
  repo.update();
  EXPECT_EQ(repo.rows("SELECT f.path FROM edges e JOIN symbols r ON r.id = e.caller_id "
                      "JOIN symbols s ON s.id = e.callee_id JOIN files f ON f.id = s.file_id "
                      "WHERE r.fqn = 'app.use' ORDER BY f.path"),
            (std::vector<std::string>{"app/helper.go", "app/norace.go"}));
  // The constraints swapped: the unchanged caller links to the other file.
  repo.write("app/race.go", "//go:build !race\n\npackage app\n\nfunc start() " + longer);
  repo.write("app/norace.go", "//go:build race\n\npackage app\n\nfunc start() {}\n");
  repo.update();
  EXPECT_EQ(repo.rows("SELECT f.path FROM edges e JOIN symbols r ON r.id = e.caller_id "
                      "JOIN symbols s ON s.id = e.callee_id JOIN files f ON f.id = s.file_id "
                      "WHERE r.fqn = 'app.use' ORDER BY f.path"),
            (std::vector<std::string>{"app/helper.go", "app/race.go"}));
}

}  // namespace
