// End to end: the callers that typed receivers in a Python package give, resolved by the writer.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

// Receivers typed by a result, an attribute, a constructor and an annotation reach methods
// defined in other files; a namespace folder inside the package links its base class.
TEST(PythonTypesEndToEnd, TypedReceiversFindTheirCallees) {
  indexer_test::IndexedFixture repo("py_types");
  auto edges = repo.rows(
      "SELECT r.fqn || ' -> ' || e.fqn FROM edges g JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id");
  std::set<std::string> seen(edges.begin(), edges.end());
  for (const char* edge : {
           "kite.app.App.dispatch -> kite.adapters.Adapter.send",
           "kite.app.App.dispatch -> kite.json.JSONProvider.dumps",
           "kite.app.App.dispatch -> kite.wrappers.Request.prepare",
           "kite.app.App.dispatch -> kite.sansio.scaffold.Scaffold.route",
           "kite.app.handle -> kite.wrappers.Request.prepare",
           "kite.app.handle -> kite.app.App.dispatch",
           "kite.app.Client.get -> kite.app.App.dispatch",
           "kite.sansio.scaffold.Scaffold.__init__ -> kite.helpers.Base.__init__",
       }) {
    EXPECT_EQ(seen.count(edge), 1u) << edge;
  }
}

}  // namespace
