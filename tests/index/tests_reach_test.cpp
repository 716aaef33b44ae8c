#include <gtest/gtest.h>

#include "indexer/indexed_fixture.h"
#include "orvane_tamsel/tool_handlers/explore.h"

namespace {

using orvane_tamsel::index::Json;

Json listed(const Json& answer) {
  Json out = Json::array();
  for (const auto& t : answer["tests"]) out.push_back({t["path"], t["reason"]});
  return out;
}

// Tests that reach a file only through production code come after those that call it or import
// it, nearest first; four calls away (fetch, poll) is too far.
TEST(TestsOfFile, ReachedThroughProductionCode) {
  indexer_test::IndexedFixture repo("tests_reach");
  EXPECT_EQ(listed(repo.tests_of("feeds/tokens.py")), Json::parse(R"json([
    ["tests/test_tokens.py",
     "calls split_words (1 call site); imports feeds.tokens; named after tokens.py"],
    ["tests/test_parse.py", "reaches it through feeds.parse.parse (1 call site)"],
    ["tests/test_load.py",
     "reaches it through feeds.load.load and 1 more, and their callees (3 call sites)"]])json"));

  // A C++ source is tested by what includes the header declaring its definitions, and by what
  // calls code that includes that header, though the calls on from there are not followed.
  EXPECT_EQ(listed(repo.tests_of("src/store/journal_flush.cpp")), Json::parse(R"json([
    ["test/journal_test.cpp", "imports store.journal"],
    ["test/archive_test.cpp", "reaches it through store.Archive.keep (2 call sites)"]])json"));
}

// A test calling a method on a value the index cannot type is a test of the file when only that
// file defines the name, for the file and for the method; a name defined twice says nothing.
TEST(TestsOfFile, CallsOnUntypedValuesByUniqueName) {
  indexer_test::IndexedFixture repo("tests_reach");
  EXPECT_EQ(listed(repo.tests_of("feeds/cache.py")), Json::parse(R"json([
    ["tests/test_store.py",
     "calls evict on a value of unknown type, a name only this file defines (2 call sites)"]])json"));
  Json a = orvane_tamsel::tool_handlers::handle_explore(repo.index(), "tests for evict");
  ASSERT_EQ(a["tests"].size(), 2u) << a.dump();
  EXPECT_EQ(a["tests"][0]["fqn"], "test_store.test_evict");
  EXPECT_EQ(a["tests"][1]["fqn"], "test_store.test_evict_each");
  EXPECT_FALSE(a["tests"][0].contains("reason"));
  // load is defined twice: the untyped call in test_reload says nothing about either.
  Json b = orvane_tamsel::tool_handlers::handle_explore(repo.index(), "tests for Cache.load");
  EXPECT_EQ(b["route"], "tests");
  EXPECT_TRUE(b["tests"].empty()) << b.dump();
}

}  // namespace
