#include "orvane_tamsel/indexer/types/type_resolution.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using namespace orvane_tamsel::indexer::types;

class FakeFacts : public TypeFacts {
 public:
  TypeSymbol& add(const std::string& fqn, const std::string& kind, const std::string& type_of = {},
                  const std::string& module = "m", const std::string& path = "m.py") {
    return symbols_[fqn].emplace_back(TypeSymbol{kind, module, type_of, {}, {}, path});
  }
  const std::vector<TypeSymbol>& lookup(const std::string& fqn) override { return symbols_[fqn]; }
  std::string reexported(const std::string& fqn) override { return reexports_[fqn]; }
  std::map<std::string, std::string> reexports_;

 private:
  std::map<std::string, std::vector<TypeSymbol>> symbols_;
};

std::string linked(TypeResolver& r, const std::string& receiver, const std::string& member,
                   const std::string& evidence = {}) {
  std::string out;
  for (const auto& found : r.resolve(receiver, member, evidence)) {
    out += (out.empty() ? "" : ", ") + found.target + " " + found.module + " " + found.evidence;
  }
  if (r.too_wide()) out += "too wide";
  return out.empty() ? "-" : out;
}

TEST(TypeResolution, ChainsThroughResultsFieldsAndAttributes) {
  FakeFacts facts;
  facts.add("m.Engine", "struct").fields = {{"pool", "T:m.Pool@m"}};
  facts.add("m.Engine.Use", "method");
  facts.add("m.Engine.Context", "method", "T:m.Context@m");
  facts.add("m.Pool", "struct");
  facts.add("m.Pool.Get", "method");
  facts.add("m.New", "function", "S:m.Default");  // a result named by another function's
  facts.add("m.Default", "function", "T:m.Engine@m");
  facts.add("m.Context", "class");
  facts.add("m.Context.engine", "variable", "S:m.New");
  facts.add("m.Context.Next", "method");
  facts.add("m.Context.all", "variable", "T:[][]m.Pool@m");
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "S:m.New@m", "Use"), "m.Engine.Use m result-type");
  EXPECT_EQ(linked(r, "T:m.Engine@x.m", "Use"), "m.Engine.Use m declared-type");
  EXPECT_EQ(linked(r, "S:m.Context", "Next"), "m.Context.Next m constructor");
  EXPECT_EQ(linked(r, "S:m.New/Context()", "Next"), "m.Context.Next m result-type");
  EXPECT_EQ(linked(r, "T:m.Context/all/[]/[]", "Get"), "m.Pool.Get m attribute");
  EXPECT_EQ(linked(r, "T:m.Context/all/[]", "Get"), "-");  // a slice has no methods
  EXPECT_EQ(linked(r, "T:[]m.Pool/[]/[]", "Get"), "-");
  EXPECT_EQ(linked(r, "T:m.Context/engine/pool", "Get"), "m.Pool.Get m attribute");
  EXPECT_EQ(linked(r, "T:m.Context/engine/pool", "Get", "fixture"), "m.Pool.Get m fixture");
  EXPECT_TRUE(r.consulted().count("m.Engine.pool") != 0);  // looked for as a symbol first
}

TEST(TypeResolution, MembersAlongBasesNearestFirst) {
  FakeFacts facts;
  facts.add("m.Store", "struct").bases = {"m.Cart", "m.Log"};
  facts.add("m.Cart", "struct").bases = {"m.Base"};
  facts.add("m.Log", "struct");
  facts.add("m.Log.Write", "method");
  facts.add("m.Base", "struct");
  facts.add("m.Base.Count", "method");
  facts.add("m.Base.Write", "method");  // deeper than Log.Write: hidden by it
  facts.add("m.Cart.Add", "method");
  facts.add("m.Log.Add", "method");  // at Cart.Add's depth: ambiguous
  // a base of one fqn in two packages: the one in the embedding type's package
  facts.add("o.Store", "struct", {}, "o").bases = {"m.Cart"};
  facts.add("m.Cart", "struct", {}, "o");
  facts.add("m.Cart.Own", "method", {}, "o");
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "T:m.Store", "Count"), "m.Base.Count m inherited");
  EXPECT_EQ(linked(r, "T:m.Store", "Write"), "m.Log.Write m inherited");
  EXPECT_EQ(linked(r, "T:m.Store", "Add"), "-");
  EXPECT_EQ(linked(r, "T:m.Cart@m", "Add"), "m.Cart.Add m declared-type");
  EXPECT_EQ(linked(r, "T:o.Store@o", "Own"), "m.Cart.Own o inherited");
  EXPECT_TRUE(r.consulted().count("m.Store.Own") == 0);
  EXPECT_TRUE(r.consulted().count("o.Store.Own") != 0);
}

TEST(TypeResolution, CyclesStopAtTheDepthLimit) {
  FakeFacts facts;
  facts.add("m.a", "function", "S:m.b");
  facts.add("m.b", "function", "S:m.a");
  facts.add("m.T", "class").bases = {"m.U"};
  facts.add("m.U", "class").bases = {"m.T"};
  std::string chain = "m.f0";
  for (int i = 0; i < TypeResolver::MAX_DEPTH + 2; ++i) {
    facts.add("m.f" + std::to_string(i), "function", "S:m.f" + std::to_string(i + 1));
  }
  facts.add("m.f" + std::to_string(TypeResolver::MAX_DEPTH + 2), "function", "T:m.T");
  facts.add("m.g0", "function", "S:m.g1");
  facts.add("m.g1", "function", "T:m.T");
  facts.add("m.T.run", "method");
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "S:m.a", "run"), "-");
  EXPECT_EQ(linked(r, "T:m.U", "run"), "m.T.run m inherited");
  EXPECT_EQ(linked(r, "T:m.T", "missing"), "-");
  EXPECT_EQ(linked(r, "S:" + chain, "run"), "-");
  EXPECT_EQ(linked(r, "S:m.g0", "run"), "m.T.run m result-type");
}

TEST(TypeResolution, UnknownOrAmbiguousStaysUnresolved) {
  FakeFacts facts;
  facts.add("a.New", "function", "T:a.Server@x.a", "x.a");
  facts.add("a.New", "function", "T:a.Server@y.a", "y.a");  // one package name twice
  facts.add("a.Server", "struct", {}, "x.a");
  facts.add("a.Server", "struct", {}, "y.a");
  facts.add("a.Server.Run", "method", {}, "x.a");
  facts.add("a.Server.Run", "method", {}, "y.a");
  facts.add("a.untyped", "function", {}, "x.a");
  facts.add("a.Server.Serve", "method", {}, "x.a");
  facts.add("a.Server.Serve", "method", {}, "z.a");  // the same member in two other modules
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "S:a.New", "Run"), "-");
  EXPECT_EQ(linked(r, "S:a.New@github.com.y.a", "Run"), "a.Server.Run y.a result-type");
  EXPECT_EQ(linked(r, "S:a.untyped@x.a", "Run"), "-");
  EXPECT_EQ(linked(r, "S:a.New@y.a/Run()", "Run"), "-");  // Run's result is unknown
  EXPECT_EQ(linked(r, "S:a.New@y.a", "Serve"), "-");
  EXPECT_EQ(linked(r, "S:nowhere.F", "Run"), "-");
  for (const char* bad : {"", "X:a.New", "S:", "S:a.New/", "S:a.New//Run()", "S:@x"})
    EXPECT_EQ(linked(r, bad, "Run"), "-") << bad;
}

// Python's evidence: fixtures of the nearest conftest.py (file-scoped alternatives), names a
// package re-exports, properties read as attributes and fields holding a class.
TEST(TypeResolution, AlternativesFilesReexportsAndProperties) {
  FakeFacts facts;
  facts.add("conftest.client", "function", "T:app.Client", "conftest", "tests/conftest.py");
  facts.add("conftest.db", "function", "T:app.Db", "conftest", "tests/api/conftest.py");
  facts.add("conftest.db", "function", "T:app.Client", "conftest", "tests/conftest.py");
  auto& client = facts.add("app.Client", "class");
  client.bases = {"pkg.Base"};  // named through pkg/__init__.py
  client.fields = {{"session", "T:app.Db"}, {"factory", "S:app.Db"}, {"made", "S:pkg.make"}};
  facts.add("app.Client.get", "method");
  facts.add("app.Db", "class");
  facts.add("app.Db.query", "method");
  facts.add("pkg.impl.Base", "class");
  facts.add("pkg.impl.Base.close", "method");
  facts.reexports_["pkg.Base"] = "pkg.impl.Base";
  facts.reexports_["pkg.make"] = "pkg.impl.make";
  facts.add("pkg.impl.make", "function", "T:app.Db");
  facts.add("app.Client.session", "method", "T:app.Db");  // a property: method and field
  facts.add("app.Client.run", "method");
  TypeResolver r(facts);
  const std::string chain = "S:conftest.db@:tests:api:conftest.py|S:conftest.db@:tests:conftest.py";
  EXPECT_EQ(linked(r, chain, "query", "fixture"), "app.Db.query m fixture");
  EXPECT_EQ(
      linked(r, "S:conftest.client@:tests:api:conftest.py|S:conftest.client@:tests:conftest.py",
             "get"),
      "app.Client.get m result-type");
  EXPECT_EQ(linked(r, "S:conftest.db@:other:conftest.py", "query"), "-");
  EXPECT_EQ(linked(r, "S:nowhere.x|T:app.Db", "query"), "app.Db.query m declared-type");
  EXPECT_EQ(linked(r, "S:conftest.db@:tests:api:conftest.py|T:app.Client", "get"), "-");
  EXPECT_EQ(linked(r, "S:pkg.make", "query"), "app.Db.query m result-type");
  EXPECT_TRUE(r.consulted().count("pkg.make") != 0);
  EXPECT_EQ(linked(r, "T:app.Client", "close"), "pkg.impl.Base.close m inherited");
  EXPECT_EQ(linked(r, "T:app.Client/session", "query"), "app.Db.query m attribute");
  EXPECT_EQ(linked(r, "T:app.Client/factory()", "query"), "app.Db.query m result-type");
  EXPECT_EQ(linked(r, "T:app.Client/made()", "query"), "app.Db.query m result-type");
  EXPECT_EQ(linked(r, "T:app.Client/run", "query"), "-");  // a method, no property
  // several returns: unknown ones are passed over; of a Db or a Client, only a Db can query
  EXPECT_EQ(linked(r, "S:nowhere.f&T:app.Db&S:pkg.make", "query"), "app.Db.query m declared-type");
  EXPECT_EQ(linked(r, "T:app.Db&T:app.Client", "query"), "app.Db.query m declared-type");
  EXPECT_EQ(linked(r, "S:nowhere.f&S:nowhere.g", "query"), "-");
}

}  // namespace

// "A+B": a value that is one of several classes has the nearest base all of them share, and
// each must be known; "/m()#2" is the second result of a call, kept among the method's fields.
TEST(TypeResolution, AlternativesShareTheirNearestBaseAndCallsKeepTheirResults) {
  FakeFacts facts;
  facts.add("m.Base", "class");
  facts.add("m.Base.register", "method");
  facts.add("m.Impl", "class").bases = {"m.Base"};
  facts.add("m.Impl.register", "method");
  facts.add("m.Impl.close", "method");
  facts.add("m.Poll", "class").bases = {"m.PollLike"};
  facts.add("m.PollLike", "class").bases = {"m.Impl"};
  facts.add("m.PollLike.register", "method");
  facts.add("m.Select", "class").bases = {"m.Impl"};
  facts.add("m.Select.register", "method");
  facts.add("m.Select.only", "method");
  facts.add("m.Other", "class");
  facts.add("m.Default", "variable", "S:m.Poll+S:m.Select");
  facts.add("m.Both", "variable", "S:m.Select+S:m.Select");
  facts.add("m.Client", "class");
  facts.add("m.Client.setup", "method").fields = {{"#1", "T:m.Client"}, {"#2", "S:m.Default"}};
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "S:m.Default", "register"), "m.Impl.register m common-base");
  EXPECT_EQ(linked(r, "S:m.Poll+S:m.Select", "close"), "m.Impl.close m common-base");
  EXPECT_EQ(linked(r, "S:m.Both", "register", "attribute"), "m.Select.register m attribute");
  EXPECT_EQ(linked(r, "S:m.Default", "only"), "-");             // Poll has none
  EXPECT_EQ(linked(r, "S:m.Poll+S:m.Other", "register"), "-");  // nothing shared
  EXPECT_EQ(linked(r, "S:m.Poll+S:m.Missing", "register"), "-");
  EXPECT_EQ(linked(r, "T:m.Client/setup()#2", "register"), "m.Impl.register m common-base");
  EXPECT_EQ(linked(r, "T:m.Client/setup()#1", "setup", "result-type"),
            "m.Client.setup m result-type");
  EXPECT_EQ(linked(r, "T:m.Client/setup()#3", "setup"), "-");
  EXPECT_EQ(linked(r, "T:m.Client/setup#1", "setup"), "-");  // only a call has results
}

// A value that is one of several types (returns that disagree) calls each type's member that
// has one, the same one once; past MAX_UNION types it calls none. Without a member, the
// receiver lists the methods read on each branch.
TEST(TypeResolution, UnionsLinkEveryMemberOrNone) {
  FakeFacts facts;
  for (const char* c : {"m.A", "m.B", "m.C", "m.D", "m.E"}) {
    facts.add(c, "class");
    facts.add(std::string(c) + ".run", "method", "T:m.Out");
  }
  facts.add("m.Base", "class");
  facts.add("m.Base.run", "method");
  facts.add("m.Sub", "class").bases = {"m.Base"};
  facts.add("m.Out", "class");
  facts.add("m.Out.close", "method");
  facts.add("m.pick", "function", "T:m.A&T:m.B&S:m.unknown");
  facts.add("m.pick3", "function", "T:m.C&T:m.D&T:m.E");
  facts.add("m.pick5", "function", "S:m.pick&S:m.pick3");
  facts.add("m.Odd", "class");
  TypeResolver r(facts);
  EXPECT_EQ(linked(r, "S:m.pick", "run"), "m.A.run m union, m.B.run m union");
  EXPECT_EQ(linked(r, "S:m.pick&T:m.A", "run"), "m.A.run m union, m.B.run m union");
  // Steps go through each type, and agree again: one result.
  EXPECT_EQ(linked(r, "S:m.pick/run()", "close"), "m.Out.close m result-type");
  EXPECT_EQ(linked(r, "T:m.Base&T:m.Sub", "run"), "m.Base.run m declared-type");
  EXPECT_EQ(linked(r, "S:m.pick&S:m.pick3", "run"), "too wide");
  EXPECT_EQ(linked(r, "S:m.pick5/run()", "close"), "too wide");
  EXPECT_EQ(linked(r, "S:m.pick&T:m.Odd", "run"), "m.A.run m union, m.B.run m union");
  EXPECT_EQ(linked(r, "T:m.Odd", "run"), "-");
  EXPECT_EQ(linked(r, "T:m.A/run&S:m.pick/close", ""), "m.A.run m declared-type");
  EXPECT_EQ(linked(r, "T:m.A/run&T:m.Out/close", ""), "m.A.run m union, m.Out.close m union");
  EXPECT_EQ(linked(r, "T:m.A/run&S:m.pick5/run", ""), "too wide");
  EXPECT_EQ(linked(r, "T:m.A+T:m.B&T:m.C", "run"), "-");  // no base shared
}
