#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"
#include "orvane_tamsel/indexer/languages/c_family/parameters.h"
#include "orvane_tamsel/indexer/languages/c_family/template_fit.h"

namespace {

using orvane_tamsel::indexer::c_family::fit_score;
using orvane_tamsel::indexer::c_family::specialization_fit;

// Each caller with the line of the callee it links to, for callees of one fqn.
std::set<std::string> linked_lines(const indexer_test::IndexedFixture& repo,
                                   const std::string& fqn) {
  auto rows = repo.rows(
      "SELECT r.name || ' ' || c.start_line || ' ' || s.evidence FROM edges e "
      "JOIN symbols c ON c.id = e.callee_id JOIN symbols r ON r.id = e.caller_id "
      "JOIN call_sites s ON s.id = e.site_id WHERE c.fqn = '" +
      fqn + "'");
  return {rows.begin(), rows.end()};
}

// `Cls<args>::m()` links to m of the specialization args fit best; `const T*` is no const type;
// arguments naming a template parameter of the caller fit only the primary template.
TEST(CFamilyLinking, SpecializationTheArgumentsFit) {
  EXPECT_EQ(specialization_fit("class DefaultValue", "int&"), 0);
  EXPECT_GT(specialization_fit("template <typename T> class DefaultValue<T&>", "const int&"), 0);
  EXPECT_EQ(specialization_fit("template <typename T> class DefaultValue<const T>", "const char*"),
            -1);
  EXPECT_GT(specialization_fit("template <typename T> class DefaultValue<const T>",
                               "const ::std::string"),
            0);
  EXPECT_GT(specialization_fit("template <typename E, typename S> class View<::std::tuple<E, S>>",
                               "std::tuple<const int*, int>"),
            0);
  EXPECT_EQ(specialization_fit("template <typename T, typename U = int> class P<T, U*>", "int"),
            -1);
  EXPECT_EQ(specialization_fit("template <> class DefaultValue<void>", "int"), -1);

  indexer_test::IndexedFixture repo("cpp_lookup");
  EXPECT_EQ(linked_lines(repo, "vals.DefaultValue.Exists"),
            (std::set<std::string>{"reference 14 include", "pointer_to_const 26 include",
                                   "constant 20 include", "array 32 include", "plain 8 include",
                                   "dependent 8 include"}));
  // the specialization's signature keeps the parameters its pattern names
  auto signatures = repo.rows(
      "SELECT signature FROM symbols WHERE fqn = 'vals.DefaultValue' ORDER BY start_line");
  ASSERT_EQ(signatures.size(), 5u);
  EXPECT_EQ(signatures[0], "class DefaultValue");
  EXPECT_EQ(signatures[4], "template <class Element, int N> class DefaultValue<Element[N]>");
}

// Among overloads of one arity, the one whose parameter suits what the call's text shows of an
// argument: a braced list an initializer_list, a wide string a wstring, a narrow one a char
// pointer (not a template, which takes it as it is), a null pointer a pointer; nothing shown
// leaves the first.
TEST(CFamilyLinking, OverloadByArgumentKind) {
  EXPECT_EQ(fit_score("int f(std::initializer_list<T> xs)", "f", 1, "b"), 2);
  EXPECT_EQ(fit_score("int f(const T (&array)[N])", "f", 1, "b"), 1);
  EXPECT_EQ(fit_score("int f(int a, const wchar_t* b)", "f", 2, "?w"), 2);
  EXPECT_EQ(fit_score("int f(int a)", "f", 2, "?w"), 0);
  EXPECT_EQ(fit_score("S g(Matcher<Args>... m)", "g", 2, "?n"), 1);
  EXPECT_EQ(fit_score("S g(const WithoutMatchers&, R (*)(Args...))", "g", 2, "?n"), 2);
  EXPECT_EQ(fit_score("S g(const WithoutMatchers&, R (*)(Args...))", "g", 3, ""), 0);
  indexer_test::IndexedFixture repo("cpp_lookup");
  EXPECT_EQ(linked_lines(repo, "match.ElementsAreArray"),
            (std::set<std::string>{"braced 16 include", "named 6 include"}));
  EXPECT_EQ(linked_lines(repo, "match.StrNe"),
            (std::set<std::string>{"wide 26 include", "narrow 21 include"}));
  EXPECT_EQ(linked_lines(repo, "match.Named"), std::set<std::string>{"narrow 34 include"});
}

// A member called without `this->` from an out-of-line method, or a derived class's own, is
// looked up on the class's bases, and a member of a typedef'd type on that type; a local built
// as `T x(a, b);` has type T, a loop variable or subscript the element type of a sequence or of
// a pointer to pointers; a `::template` member call names the member; a call's result types a
// receiver by its declared return type (a class named inside its own method, too), and a
// `using` alias has its type's members.
TEST(CFamilyLinking, NamesInPlainSight) {
  indexer_test::IndexedFixture repo("cpp_lookup");
  EXPECT_EQ(repo.callees("dt.ForkingDeathTest.Wait"),
            (std::set<std::string>{"dt.DeathTestImpl.set_status", "dt.DeathTestImpl.status"}));
  EXPECT_EQ(repo.callees("dt.ForkingDeathTest.Done"),
            std::set<std::string>{"dt.DeathTestImpl.status"});
  EXPECT_EQ(repo.callees("dt.Reset"), std::set<std::string>{"dt.DeathTestImpl.set_status"});
  EXPECT_EQ(repo.callees("mm.Count"),
            (std::set<std::string>{"mm.MatchMatrix.MatchMatrix", "mm.MatchMatrix.NextGraph"}));
  EXPECT_EQ(repo.callees("mm.Apply"), std::set<std::string>{"mm.CallableTraits.Invoke"});
  EXPECT_EQ(repo.callees("mm.Sum"),
            (std::set<std::string>{"mm.MatchMatrix.Width", "mm.MatchMatrix.Height"}));
  EXPECT_EQ(repo.callees("reg.Total"),
            (std::set<std::string>{"reg.Registry.GetInstance", "reg.Registry.suite",
                                   "reg.Suite.Count", "reg.Suite.Size"}));
}

// A C function declared in an included header links to its one body in a source file outside
// a static, wherever it is; a file-local or twice-defined name stays unlinked, also after an edit
// adds a second definition, and a site linked so takes the include's evidence once an include
// reaches the body.
TEST(CFamilyLinking, CFunctionByUniqueName) {
  indexer_test::IndexedFixture repo("c_unique");
  EXPECT_EQ(linked_lines(repo, "lang_delete"), std::set<std::string>{"query_run 3 unique-name"});
  EXPECT_EQ(linked_lines(repo, "node_start"), std::set<std::string>{"query_run 5 unique-name"});
  EXPECT_EQ(linked_lines(repo, "clamp"),
            (std::set<std::string>{"node_start 3 same-file", "lang_delete 1 same-file"}));
  EXPECT_EQ(repo.callees("query_run"), (std::set<std::string>{"lang_delete", "node_start"}));
  repo.write("src/tree.c", "void lang_delete(void) {}\n");
  repo.update();
  EXPECT_EQ(repo.callees("query_run"), std::set<std::string>{"node_start"});
  repo.write("src/tree.c", "static void lang_delete(void) {}\n");
  repo.update();
  EXPECT_EQ(linked_lines(repo, "lang_delete"), std::set<std::string>{"query_run 3 unique-name"});
  repo.write("include/language.h", "void lang_delete(void);\n");
  repo.write("include/api.h", "#include \"language.h\"\nint node_start(int n);\n");
  repo.update();
  EXPECT_EQ(linked_lines(repo, "lang_delete"), std::set<std::string>{"query_run 3 include"});
}

}  // namespace
