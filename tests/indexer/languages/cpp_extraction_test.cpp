#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <tuple>

#include "indexer/indexed_fixture.h"
#include "orvane_tamsel/indexer/languages/c_family/parameters.h"
#include "orvane_tamsel/indexer/languages/cpp/preparse.h"

namespace {

using namespace orvane_tamsel;

// Namespaced fqns, a method declared in its class and defined out of line kept once, calls
// through `this`, members, typed locals, `ns::f` into a header included by a header, using
// directives and constructions, GoogleTest tests and the ranked tests of a source.
TEST(CppExtraction, SymbolsCallersAndTests) {
  indexer_test::IndexedFixture repo("lang_cpp");
  auto& index = repo.index();

  auto cart = repo.symbol("shop.Cart");
  EXPECT_EQ(cart.kind, "class");
  EXPECT_EQ(cart.docstring.value_or(""), "A basket of prices in cents.");
  auto add = repo.symbol("shop.Cart.add");
  EXPECT_EQ(add.kind, "method");
  EXPECT_EQ(index.get_file_paths_batch({add})[add.id.value_or(0)], "src/shop/cart.cpp");
  EXPECT_EQ(add.docstring.value_or(""), "Puts a price in the cart.");
  auto constructor = repo.symbol("shop.Cart.Cart");
  EXPECT_EQ(constructor.signature.value_or(""), "Cart::Cart(int limit)");  // no initializers
  auto total = index.search_symbols({"total"}, true, 10);
  ASSERT_EQ(total.symbols.size(), 1u) << "declaration and definition listed twice";
  EXPECT_EQ(total.symbols[0].docstring.value_or(""), "Adds the prices up.");
  auto checkout = repo.symbol("shop.pay.Checkout");
  EXPECT_EQ(checkout.kind, "struct");
  auto test = repo.symbol("CartTest.AddsUp");
  EXPECT_TRUE(test.is_test);
  EXPECT_EQ(test.kind, "function");

  EXPECT_EQ(repo.callees("shop.Cart.add"), (std::set<std::string>{"shop.Cart.total"}));
  EXPECT_EQ(repo.callers("shop.Cart.add"),
            (std::set<std::string>{"shop.pay.pay_all", "CartTest.AddsUp"}));
  EXPECT_EQ(repo.callers("shop.Cart.total"),
            (std::set<std::string>{"shop.Cart.add", "shop.pay.Checkout.charge", "shop.pay.pay_all",
                                   "CartTest.AddsUp", "CartFixture.StartsEmpty", "orders.fill",
                                   "refund"}));
  // Names that using-directives bring in, constructions (a class without a constructor is the
  // callee itself); a global name beside one a directive brings in is ambiguous: no edge.
  EXPECT_EQ(repo.callees("orders.fill"),
            (std::set<std::string>{"shop.Cart.Cart", "shop.Cart.total", "shop.Ledger",
                                   "shop.Ledger.record", "shop.tax.vat"}));
  EXPECT_EQ(repo.callees("refund"),
            (std::set<std::string>{"shop.Cart.Cart", "shop.Cart.total", "shop.tax.vat"}));
  EXPECT_EQ(repo.callers("round_cents"), std::set<std::string>{});
  EXPECT_FALSE(index.get_symbol_by_fqn("fresh").has_value())
      << "`Cart fresh(limit);` is no prototype";

  EXPECT_EQ(repo.callers("shop.Ledger.record"),
            (std::set<std::string>{"shop.Ledger.close", "shop.pay.pay_all", "orders.fill"}));
  EXPECT_EQ(repo.callers("shop.round_cents"), std::set<std::string>{"shop.pay.pay_all"});

  auto tests = repo.tests_of("src/shop/cart.cpp");
  ASSERT_EQ(tests["tests"].size(), 1u);
  EXPECT_EQ(tests["tests"][0]["path"], "test/cart_test.cpp");
  auto reason = tests["tests"][0]["reason"].get<std::string>();
  EXPECT_NE(reason.find("calls"), std::string::npos) << reason;
  EXPECT_NE(reason.find("named after cart.cpp"), std::string::npos) << reason;
  EXPECT_EQ(repo.tests_of("include/shop/cart.h")["tests"].size(), 1u);

  auto components = index.components_of({"src/shop/cart.cpp", "test/cart_test.cpp"});
  EXPECT_EQ(components["src/shop/cart.cpp"], "shop");
  EXPECT_EQ(components["test/cart_test.cpp"], "test");
  // One project folder under src holding nearly everything is split into its subfolders.
  std::filesystem::create_directories(repo.root() / "src/shop/ledger");
  std::ofstream(repo.root() / "src/shop/ledger/book.cpp") << "int book() { return 1; }\n";
  repo.update();
  components = repo.index().components_of({"src/shop/cart.cpp", "src/shop/ledger/book.cpp"});
  EXPECT_EQ(components["src/shop/cart.cpp"], "shop");
  EXPECT_EQ(components["src/shop/ledger/book.cpp"], "shop.ledger");
}

// Names keep their namespaces when macros the grammar cannot expand open them (libstdc++'s
// versioned namespaces) or decorate a class or function (export macros); inline namespaces add
// nothing. Calls resolve through using-declarations and -directives at file, namespace and
// function scope, and not when two namespaces in scope declare the name.
TEST(CppExtraction, MacroNamespacesAndUsings) {
  indexer_test::IndexedFixture repo("cpp_scopes");
  auto& index = repo.index();
  for (const char* fqn : {"std.vector", "std._Vector_base", "std.basic_string",
                          "std.chrono.system_clock", "testing.Cardinality"}) {
    auto s = index.get_symbol_by_fqn(fqn);
    ASSERT_TRUE(s.has_value()) << fqn;
    EXPECT_TRUE(s->kind == "class" || s->kind == "struct") << fqn << " " << s->kind;
  }
  EXPECT_FALSE(index.get_symbol_by_fqn("vector").has_value());
  // the specialization's members are its own, not functions named after the class
  auto vectors = repo.rows("SELECT kind FROM symbols WHERE fqn = 'std.vector'");
  EXPECT_EQ(std::set<std::string>(vectors.begin(), vectors.end()), std::set<std::string>{"class"});
  // a conditional around part of a header leaves the function whole
  EXPECT_EQ(repo.callees("std.vector.flip"), std::set<std::string>{"std.vector._M_flip_all"});
  EXPECT_EQ(repo.callees("std.vector.push_back"),
            std::set<std::string>{"std.vector._M_realloc_insert"});
  EXPECT_EQ(repo.callees("std.basic_string.empty"), std::set<std::string>{"std.basic_string.size"});
  EXPECT_EQ(repo.symbol("std.chrono.system_clock.now").kind, "method");
  EXPECT_EQ(repo.symbol("testing.Between").kind, "function");

  EXPECT_EQ(repo.callees("testing.AtLeast"),
            (std::set<std::string>{"testing.Between", "testing.internal.Clamp"}));
  EXPECT_EQ(repo.callees("AtLeastHolds"),
            (std::set<std::string>{"testing.AtLeast", "testing.Cardinality.IsSatisfiedByCallCount",
                                   "GMOCK_AT_LEAST_ONCE"}));  // a macro is in no namespace
  EXPECT_EQ(repo.callees("BetweenHolds"),
            (std::set<std::string>{"testing.Between", "testing.internal.Clamp",
                                   "testing.Cardinality.IsSatisfiedByCallCount"}));
  EXPECT_EQ(repo.callees("both"), std::set<std::string>{"geo.perimeter"});
  // a name a using brings in resolves as a name of the file's own scope does
  auto evidence = repo.rows(
      "SELECT DISTINCT s.evidence FROM call_sites s JOIN symbols c ON c.id = s.callee_id "
      "JOIN symbols r ON r.id = s.caller_id WHERE r.fqn IN ('AtLeastHolds', 'BetweenHolds') "
      "AND c.kind = 'function' AND s.evidence <> 'macro'");
  EXPECT_EQ(evidence, std::vector<std::string>{"include"});
}

// What the parse is given: the same bytes and lines, decorations and the fragment branches of a
// conditional blanked, directives, comments and strings as written; untouched text gives "".
TEST(CppExtraction, PreparseBlanksInPlace) {
  using orvane_tamsel::indexer::cpp::closing_brace;
  using orvane_tamsel::indexer::cpp::preparse;
  EXPECT_EQ(preparse("namespace a {\nint f();\n}\n"), "");
  const std::string src =
      "#define GTEST_API_ __attribute__((visibility(\"default\")))\n"
      "class GTEST_API_ Foo {};\n"
      "const char* s = \"_GLIBCXX_NOEXCEPT\";  // _GLIBCXX_NOEXCEPT\n"
      "void f() _GLIBCXX_NOEXCEPT_IF(noexcept(g(1)));\n"
      "#if __cplusplus >= 201103L\n"
      "void h(int a)\n"
      "#else\n"
      "void h(long a)\n"
      "#endif\n"
      "{ }\n"
      "#if 0\n"
      "broken(\n"
      "#else\n"
      "int k()\n"
      "#endif\n"
      "{ return 1; }\n"
      "void Mock::Leak() const GTEST_LOCK_EXCLUDED_(mu) { if (k()) LOG_IT(k()); }\n"
      "// Tests Leak()\n"
      "TEST(MockTest, Leaks) {}\n"
      "#define M(x) f(x); /* a */ \\\n  g(x) /* b */\n";
  auto out = preparse(src);
  ASSERT_EQ(out.size(), src.size());
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), std::count(src.begin(), src.end(), '\n'));
  EXPECT_NE(out.find("#define GTEST_API_ __attribute__"), std::string::npos);
  EXPECT_NE(out.find("class " + std::string(11, ' ') + "Foo {};"), std::string::npos);
  EXPECT_NE(out.find("\"_GLIBCXX_NOEXCEPT\";  // _GLIBCXX_NOEXCEPT"), std::string::npos);
  EXPECT_NE(out.find("void f()" + std::string(37, ' ') + ";"), std::string::npos);
  EXPECT_NE(out.find("void h(int a)"), std::string::npos);
  EXPECT_EQ(out.find("void h(long a)"), std::string::npos);
  EXPECT_EQ(out.find("#if"), std::string::npos);
  EXPECT_EQ(out.find("broken"), std::string::npos);
  EXPECT_NE(out.find("int k()"), std::string::npos);
  // an annotation between a function's parameters and its body; a macro called as a statement
  // stays, and so does a comment ending a directive, but not one on a continued line
  EXPECT_NE(out.find("const" + std::string(26, ' ') + "{ if (k()) LOG_IT(k()); }"),
            std::string::npos);
  EXPECT_NE(out.find("TEST(MockTest, Leaks) {}"), std::string::npos);
  EXPECT_NE(out.find("f(x);" + std::string(9, ' ') + "\\\n  g(x) /* b */"), std::string::npos);
  // a brace in a comment, a literal or a directive closes nothing
  std::string text = "{ /* } */ \"}\" '}'\n#define X }\n}";
  EXPECT_EQ(closing_brace(text, 1), text.size() - 1);
}

// What a definition takes from its declaration must not depend on the order of updates: after
// each edit the index holds what a clean build of the same sources holds.
TEST(CppExtraction, DeclarationAndDefinitionFollowEdits) {
  const std::string snapshot_sql =
      "SELECT s.fqn || ' ' || s.kind || ' ' || f.path || ':' || s.start_line || ' ' || "
      "coalesce(s.docstring, '-') FROM symbols s JOIN files f ON f.id = s.file_id UNION ALL "
      "SELECT c.fqn || ' <- ' || r.fqn FROM edges e JOIN symbols c ON c.id = e.callee_id "
      "JOIN symbols r ON r.id = e.caller_id UNION ALL "
      "SELECT t.fqn || ' text ' || coalesce(t.docstring, '-') FROM symbol_text t";
  auto snapshot = [&](const indexer_test::IndexedFixture& fixture) {
    auto rows = fixture.rows(snapshot_sql);
    return std::multiset<std::string>(rows.begin(), rows.end());
  };
  indexer_test::IndexedFixture repo("lang_cpp"), clean("lang_cpp");
  auto read = [&](const std::string& rel) {
    std::ifstream in(repo.root() / rel);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  auto edit = [&](const std::string& rel, const std::string& from, const std::string& to) {
    auto text = read(rel);
    auto at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    repo.write(rel, text.replace(at, from.size(), to));
  };
  auto same_as_clean = [&](const char* step) {
    auto updated = repo.update();
    clean.copy_sources_of(repo.root());
    auto built = clean.update();
    EXPECT_EQ(snapshot(repo), snapshot(clean)) << step;
    // the summary's counts are kept by each update, not counted again
    EXPECT_EQ(std::tie(updated.symbols, updated.calls, updated.unresolved_calls),
              std::tie(built.symbols, built.calls, built.unresolved_calls))
        << step;
  };

  edit("src/shop/cart.cpp", "  total();\n", "  total();\n  total();\n");
  same_as_clean("the definition's file edited");
  auto add = repo.symbol("shop.Cart.add");
  EXPECT_EQ(add.docstring.value_or(""), "Puts a price in the cart.");
  auto body = read("src/shop/cart.cpp");
  edit("src/shop/cart.cpp",
       "void Cart::add(int price) {\n  items_.push_back(price);\n  total();\n  total();\n}\n", "");
  same_as_clean("the definition deleted");
  auto declared = repo.symbol("shop.Cart.add");
  EXPECT_EQ(declared.signature.value_or(""), "void add(int price);");
  repo.write("src/shop/cart.cpp", body);
  same_as_clean("the definition back");
  edit("include/shop/cart.h", "Puts a price", "Adds a price");
  same_as_clean("the declaration's doc edited");
  std::filesystem::remove(repo.root() / "src/shop/cart.cpp");
  same_as_clean("the definition's file removed");
}

// An overload takes the doc of its own declaration; aliases are types with what they alias in
// the signature; prototypes decorated as glibc decorates them are not lost.
TEST(CppExtraction, OverloadsAliasesAndDecoratedPrototypes) {
  indexer_test::IndexedFixture repo("cpp_decls");
  EXPECT_EQ(
      repo.rows("SELECT signature || ' | ' || coalesce(docstring, '-') FROM symbols "
                "WHERE fqn IN ('geo.scale', 'geo.Shape.grow') AND kind <> 'module' ORDER BY 1"),
      (std::vector<std::string>{"void Shape::grow(Pair<int> by) | -",
                                "void grow(Length by); | Grows the shape.",
                                "void scale(const char* axis, double factor) | Scales one axis.",
                                "void scale(double f) | Scales by a fraction.",
                                "void scale(int f) | Scales by a whole factor."}));
  for (auto [fqn, signature] : std::vector<std::pair<std::string, std::string>>{
           {"geo.Length", "using Length = double"},
           {"geo.Pair", "template <class T> using Pair = std::pair<T, T>"},
           {"geo.ShapeRef", "typedef struct Shape* ShapeRef"},
           {"geo.OnScaled", "typedef void (*OnScaled)(int code)"}}) {
    auto s = repo.symbol(fqn);
    EXPECT_EQ(s.kind, "type") << fqn;
    EXPECT_EQ(s.signature.value_or(""), signature);
  }
  for (const char* name : {"snprintf", "strdup", "strlen", "dgettext", "read", "fopen"}) {
    auto s = repo.symbol(name);
    EXPECT_EQ(s.kind, "function") << name;
    EXPECT_TRUE(s.docstring.has_value()) << name;
  }
  EXPECT_EQ(repo.symbol("fscanf").kind, "function");
  EXPECT_EQ(
      repo.rows("SELECT target_fqn FROM call_sites WHERE target_fqn LIKE '\\_\\_%' ESCAPE '\\'"),
      std::vector<std::string>{})
      << "attributes call nothing";
  EXPECT_FALSE(repo.index().get_symbol_by_fqn("__REDIRECT").has_value());
  // the arguments pick among namesakes of two headers, where one name alone links nothing; a
  // default or `...` fits fewer or more
  EXPECT_EQ(repo.rows("SELECT DISTINCT e.line || ' ' || c.signature FROM edges e "
                      "JOIN symbols c ON c.id = e.callee_id JOIN symbols r ON r.id = e.caller_id "
                      "WHERE r.fqn = 'match.check' ORDER BY e.line"),
            (std::vector<std::string>{"7 inline void Log(const char* format, ...)",
                                      "8 template <typename T> int Eq(T x)", "9 inline int Eq()",
                                      "10 inline int Near(int lo, int hi = 0)"}));
  // an array or a standard container the caller declared picks the overload that takes it; a
  // same-file namesake whose parameters cannot take the arguments gives way to one that can
  EXPECT_EQ(
      repo.rows("SELECT e.line || ' ' || c.signature || ' ' || f.path FROM edges e "
                "JOIN symbols c ON c.id = e.callee_id JOIN symbols r ON r.id = e.caller_id "
                "JOIN files f ON f.id = c.file_id WHERE r.fqn = 'match.sizes' ORDER BY "
                "e.line"),
      (std::vector<std::string>{
          "10 template <typename T, int N> int Each(const T (&array)[N]) include/match/arrays.h",
          "11 template <typename C> int Each(const C& container) include/match/arrays.h",
          "12 template <typename T, int N> int Each(const T (&array)[N]) include/match/arrays.h",
          "13 template <typename T> int Each(const T* first, int count) include/match/arrays.h",
          "14 int Total(const int* xs, int n) src/match/arrays.cpp"}));
  using orvane_tamsel::indexer::c_family::fits;
  EXPECT_TRUE(fits("int Near(int lo, int hi = f(1, 2))", "Near", 1));
  EXPECT_FALSE(fits("int Near(int lo, int hi = f(1, 2))", "Near", 3));
  EXPECT_TRUE(fits("void Log(const char* format, ...)", "Log", 4));
  EXPECT_FALSE(fits("void Log(const char* format, ...)", "Log", 0));
  EXPECT_TRUE(fits("void Emit(Args&&... args)", "Emit", 0));
  EXPECT_FALSE(fits("int f(void)", "f", 1));
  // an edit that only changes a call's arguments links it anew
  repo.write("src/match/check.cpp",
             "#include \"match/matchers.h\"\n#include \"match/pair_matchers.h\"\n"
             "namespace match {\nint check() { return Eq(); }\n}\n");
  repo.update();
  EXPECT_EQ(repo.rows("SELECT c.signature FROM edges e JOIN symbols c ON c.id = e.callee_id "
                      "JOIN symbols r ON r.id = e.caller_id WHERE r.fqn = 'match.check'"),
            std::vector<std::string>{"inline int Eq()"});

  // parameter names, defaults, qualifiers and `(void)` do not tell overloads apart; types do
  using orvane_tamsel::indexer::c_family::same_parameters;
  EXPECT_TRUE(same_parameters("void f(const ns::Point& = {});", "void A::f(const Point &p)", "f"));
  EXPECT_TRUE(same_parameters("int f(void);", "int f()", "f"));
  EXPECT_TRUE(same_parameters("void f(Foo, unsigned long, char[]);",
                              "void f(Foo a, unsigned long n, char buf[])", "f"));
  EXPECT_FALSE(same_parameters("void f(Foo*);", "void f(Bar*)", "f"));
  EXPECT_FALSE(same_parameters("void f(const Foo&);", "void f(const Bar& b)", "f"));
  EXPECT_FALSE(same_parameters("void f(V<Foo>);", "void f(V<Bar> v)", "f"));
  EXPECT_FALSE(same_parameters("void f(int);", "void f(int a, int b)", "f"));
  EXPECT_FALSE(same_parameters("bool operator==(A);", "bool operator==(B)", "operator=="));
  EXPECT_TRUE(same_parameters("void f(int a, long b, ", "void f(long)", "f"))
      << "a list cut short merges by name";
}

}  // namespace

namespace {

// A using-directive and a using-declaration at namespace scope in a header bring their names to
// the files including it; a header edited to drop one takes its callers away. A file's own
// using-directive places the members it defines out of line.
TEST(CppExtraction, UsingsOfAnIncludedHeader) {
  indexer_test::IndexedFixture repo("cpp_decls");
  EXPECT_EQ(repo.callees("match.user.use"),
            (std::set<std::string>{"match.no_adl.Pointee", "match.detail.Hidden"}));
  repo.write(
      "include/match/no_adl.h",
      "namespace match {\nnamespace no_adl {\ninline int Pointee(int x) { return x; }\n}\n"
      "using namespace no_adl;\nnamespace detail {\ninline int Hidden() { return 1; }\n}\n}\n");
  repo.update();
  EXPECT_EQ(repo.callees("match.user.use"), std::set<std::string>{"match.no_adl.Pointee"});
  // a member defined out of line after `using namespace shapes;` is the class's there
  EXPECT_EQ(repo.callees("shapes.Circle.area"), std::set<std::string>{"shapes.Circle.radius"});
}

}  // namespace
