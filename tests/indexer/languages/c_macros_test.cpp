#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "indexer/indexed_fixture.h"
#include "orvane_tamsel/indexer/languages/c_family/macro_bodies.h"

namespace {

using orvane_tamsel::indexer::c_family::calls_in_body;
using orvane_tamsel::indexer::c_family::MacroCall;

// A body read as tokens: stringized and pasted names called alone, declarations, keywords and
// members of what is not a name call nothing; qualified and templated callees keep their scopes;
// a member of a name is called on it, pasted or not; a name passed alone is kept, an expression
// is not, and passing the variadic arguments on counts for any number.
TEST(CMacros, CallsReadFromABody) {
  auto calls = calls_in_body(
      "if (x.ok()) ; else on_failure(gtest_ar.message()) /* f(1) */\n"
      "  class C { void TestBody(); }; #name(1) a##b(2) \\\n"
      "  ::ns::Resolver<T>::Get(__FILE__, 1 + 2) sizeof(int) log(\"(\", __VA_ARGS__)\n"
      "  ((mock).gmock_##call)(w, nullptr).Setter(1) f().g(1) (p)->run(a)");
  EXPECT_EQ(calls, (std::vector<MacroCall>{{"x.ok", 0, {}},
                                           {"on_failure", 1, {""}},
                                           {"gtest_ar.message", 0, {}},
                                           {"::ns::Resolver<T>::Get", 2, {"__FILE__", ""}},
                                           {"log", -1, {"", "__VA_ARGS__"}},
                                           {"mock.gmock_##call", 2, {"w", "nullptr"}},
                                           {"f", 0, {}},
                                           {"p.run", 1, {"a"}}}));
}

// Expansion binds each invoked macro's parameters to the names passed to it, level by level;
// a macro reached again (a cycle) or below the depth bound adds nothing, a parameter left unbound
// calls nothing, a name that is a macro with no definition in sight is neither expanded nor
// called, and the stored forms read back as written.
TEST(CMacros, ExpansionBindsNamesLevelByLevel) {
  using namespace orvane_tamsel::indexer::c_family;
  std::map<std::string, MacroBody> defs;
  auto define = [&](const std::string& name, std::vector<std::string> params, const char* body) {
    auto calls = decode_calls(encode_calls(calls_in_body(body)));
    defs[name] = {name, decode_params(encode_params(params)), calls};
  };
  define("OUTER", {"a"}, "MIDDLE(::ns::f, a); g(a)");
  define("MIDDLE", {"pred", "v"}, "INNER(pred, v, report)");
  define("INNER", {"p", "x", "on_fail"}, "p(#x, x) || on_fail(x); OUTER(x); HIDDEN(x)");
  define("report", {"m"}, "log_it(m)");
  define("HIDDEN", {}, "");
  auto lookup = [&](std::string_view name,
                    const MacroBody&) -> std::optional<std::vector<const MacroBody*>> {
    if (name == "HIDDEN") return std::vector<const MacroBody*>{};
    auto it = defs.find(std::string(name));
    if (it == defs.end()) return std::nullopt;
    return std::vector<const MacroBody*>{&it->second};
  };
  auto callees = [](const std::vector<MacroCall>& calls) {
    std::vector<std::string> out;
    for (const auto& c : calls) out.push_back(c.callee + "/" + std::to_string(c.arguments));
    return out;
  };
  EXPECT_EQ(callees(expand_calls(defs["OUTER"], lookup)),
            (std::vector<std::string>{"::ns::f/2", "log_it/1", "g/1"}));
  EXPECT_EQ(callees(expand_calls(defs["OUTER"], lookup, 1)), std::vector<std::string>{"g/1"});
  // INNER alone: its parameters are unbound; OUTER, which it invokes, calls g and comes back to
  // INNER, a cycle
  EXPECT_EQ(callees(expand_calls(defs["INNER"], lookup)), std::vector<std::string>{"g/1"});
}

// Each caller with its callee and the evidence the index's answer gives.
std::set<std::string> edges(const indexer_test::IndexedFixture& repo) {
  auto rows = repo.rows(
      "SELECT r.fqn || ' ' || c.fqn FROM edges e JOIN symbols r ON r.id = e.caller_id "
      "JOIN symbols c ON c.id = e.callee_id");
  return {rows.begin(), rows.end()};
}

// A use links its caller to the macro and to what the expanded body calls: through a macro
// passing a function's name to another (C and C++, qualified), through a macro calling a macro,
// not endlessly through a cycle, not to a function a parameter is named after; a macro never
// used links nothing. An edit of an inner macro's body reaches the uses of the outer one.
TEST(CMacros, UsesLinkWhatTheBodyCalls) {
  indexer_test::IndexedFixture repo("c_macros");
  EXPECT_EQ(edges(repo),
            (std::set<std::string>{"run LOG", "run log_write", "twice LOG_TWICE", "twice log_write",
                                   "twice log_flush", "cycle PING", "cycle log_flush",
                                   "apply APPLY", "elsewhere LOG", "elsewhere other_log",
                                   "suite.equal_numbers EXPECT_EQ",
                                   "suite.equal_numbers testing.internal.EqHelper.Compare"}));
  auto compare =
      repo.index().call_sites(repo.symbol("testing.internal.EqHelper.Compare").id.value_or(0),
                              orvane_tamsel::index::CALLER, 10);
  ASSERT_EQ(compare.size(), 1u);
  EXPECT_EQ(compare[0].evidence, "macro EXPECT_EQ");
  EXPECT_EQ(compare[0].site_line, 4);
  // the body's calls are no calls of their own in the counts
  EXPECT_EQ(repo.rows("SELECT value FROM meta WHERE key = 'resolved_calls'"),
            std::vector<std::string>{"6"});

  repo.write("src/log.h",
             "void log_write(const char *msg);\nvoid log_flush(void);\n"
             "#define LOG_AT(sink, msg) log_flush()\n"
             "#define LOG(msg) LOG_AT(log_write, msg)\n");
  repo.update();
  EXPECT_EQ(repo.callees("run"), (std::set<std::string>{"LOG", "log_flush"}));
  EXPECT_TRUE(repo.callees("twice").empty());
  EXPECT_TRUE(repo.callers("log_write").empty());
  std::filesystem::remove(repo.root() / "src/log.h");
  repo.update();
  // other.c's LOG is not what app.c's use sees
  EXPECT_TRUE(repo.callers("log_flush").empty());
  EXPECT_TRUE(repo.callees("run").empty());
  EXPECT_EQ(repo.rows("SELECT count(*) FROM macro_sites"), std::vector<std::string>{"2"});
}

}  // namespace

namespace {

// A test framework's macros: a TEST is a test symbol named Suite.Name whose body calls what its
// macros expand to, a site on each line; the use registers the test from the file itself, through
// a body read past its block comment and a call with template arguments; a string literal passed
// to a macro picks the overload of the body's call that takes one; a body calling a member pasted
// from one argument on another calls it on that argument's declared type, with the arguments
// the pasted name is passed (`Push(any)`), or none when the type is unknown.
TEST(CMacros, TestFrameworkMacros) {
  indexer_test::IndexedFixture repo("cpp_test_macros");
  auto test = repo.symbol("MathTest.Twice");
  EXPECT_TRUE(test.is_test);
  EXPECT_EQ(test.kind, "function");
  auto sites = repo.rows(
      "SELECT r.fqn || ' ' || c.name || coalesce(substr(c.signature, instr(c.signature, '(')), "
      "'') || ' ' || e.line FROM edges e JOIN symbols r ON r.id = e.caller_id JOIN symbols c ON "
      "c.id = e.callee_id WHERE c.kind <> 'macro' ORDER BY r.fqn, e.line, c.name, c.signature");
  EXPECT_EQ(sites, (std::vector<std::string>{
                       "MathTest.Dies Dies(Matcher m); 11",
                       "MathTest.Dies MakeMatcher(const char* regex); 11",
                       "MathTest.Dies twice(int x) 11",
                       "MathTest.Dies Dies(Matcher m); 12",
                       "MathTest.Dies MakeMatcher(Matcher m); 12",
                       "MathTest.Dies twice(int x) 12",
                       "MathTest.Twice Compare(const char* text, int a, int b); 5",
                       "MathTest.Twice twice(int x) 5",
                       "MathTest.Twice Compare(const char* text, int a, int b); 6",
                       "MathTest.Twice twice(int x) 6",
                       "MockTest.Pushes GetWithoutMatchers(); 6",
                       "MockTest.Pushes gmock_Push(internal::WithoutMatchers, void* none); 6",
                       "MockTest.Pushes GetWithoutMatchers(); 7",
                       "MockTest.Pushes gmock_Push(Matchers... m); 7",
                       "MockTest.Pushes GetWithoutMatchers(); 8",
                       "test.math_test NameOf(); 4",
                       "test.math_test Register(const char* suite, const char* name); 4",
                       "test.mock_test NameOf(); 3",
                       "test.mock_test Register(const char* suite, const char* name); 3",
                   }));
  auto push = repo.index().call_sites(repo.symbol("testing.Turnstile.gmock_Push").id.value_or(0),
                                      orvane_tamsel::index::CALLER, 10);
  ASSERT_FALSE(push.empty());
  EXPECT_EQ(push[0].evidence, "macro EXPECT_CALL");

  // an edit of the mock's class evaluates the receivers again and links them as a build did
  auto pushes = [&] {
    return repo.rows(
        "SELECT c.line || ' ' || c.evidence || ' ' || s.signature FROM call_sites c JOIN symbols "
        "s ON s.id = c.callee_id WHERE c.member = 'gmock_Push' ORDER BY c.line");
  };
  auto built = pushes();
  ASSERT_EQ(built.size(), 2u);
  std::ifstream in(repo.root() / "include/mini_gtest.h");
  std::string header((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  header.replace(header.find("class Turnstile {"), 17,
                 "class Turnstile {\n public:\n  void Spin();");
  repo.write("include/mini_gtest.h", header);
  repo.update();
  EXPECT_EQ(pushes(), built);
}

}  // namespace
