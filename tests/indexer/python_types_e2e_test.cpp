// End to end: the callers that typed receivers in a Python package give, resolved by the writer.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/indexer.h"

namespace {

using namespace orvane_tamsel;

// Receivers typed by a result, an attribute, a constructor, an annotation and a pytest fixture
// reach methods defined in other files, on bases too; a namespace folder inside the package
// links its base class.
TEST(PythonTypesEndToEnd, TypedReceiversFindTheirCallees) {
  indexer_test::TempRepo repo("py_types");
  indexer::update_index(repo.root());
  index::Database db(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
  auto typed =
      db.prepare("SELECT count(*) FROM pragma_table_info('call_sites') WHERE name = 'receiver'");
  if (!typed.step() || typed.integer(0) == 0) GTEST_SKIP() << "the writer keeps no receivers";
  auto st = db.prepare(
      "SELECT r.fqn || ' -> ' || e.fqn FROM edges g JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id");
  std::set<std::string> seen;
  while (st.step()) seen.insert(st.text(0));
  for (const char* edge : {
           "kite.app.App.dispatch -> kite.adapters.Adapter.send",
           "kite.app.App.dispatch -> kite.json.JSONProvider.dumps",
           "kite.app.App.dispatch -> kite.wrappers.Request.prepare",
           "kite.app.App.dispatch -> kite.sansio.scaffold.Scaffold.route",
           "kite.app.handle -> kite.wrappers.Request.prepare",
           "kite.app.handle -> kite.app.App.dispatch",
           "kite.app.Client.get -> kite.app.App.dispatch",
           "kite.sansio.scaffold.Scaffold.__init__ -> kite.helpers.Base.__init__",
           // fixtures of conftest.py, a classmethod on a base in another file
           "test_app.test_dispatch -> kite.app.App.dispatch",
           "test_app.test_get -> kite.app.Client.get",
           "test_app.test_response -> kite.wrappers.Response.close",
           "test_app.test_build -> kite.sansio.scaffold.Scaffold.build",
       }) {
    EXPECT_EQ(seen.count(edge), 1u) << edge;
  }
}

}  // namespace
