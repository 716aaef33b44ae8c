#include "orvane_tamsel/index/stats.h"

namespace orvane_tamsel::index {

IndexStats read_stats(Database& db) {
  IndexStats stats;
  auto count = [&db](const char* sql) {
    auto st = db.prepare(sql);
    return st.step() ? st.integer(0) : 0;
  };
  stats.files = count("SELECT count(*) FROM files");
  stats.symbols = count("SELECT count(*) FROM symbols");
  stats.calls =
      count("SELECT count(*) FROM call_sites WHERE callee_id IS NOT NULL AND evidence <> 'macro'");
  stats.unresolved_calls =
      count("SELECT count(*) FROM call_sites WHERE callee_id IS NULL AND evidence <> 'macro'");
  read_documented(db, stats);
  auto st = db.prepare("SELECT reason, count(*) FROM skipped GROUP BY reason");
  while (st.step()) stats.skipped[st.text(0)] = st.integer(1);
  return stats;
}

void read_documented(Database& db, IndexStats& stats) {
  // Counted from the indexes: the table itself is mostly the pages' words.
  auto st = db.prepare(
      "SELECT (SELECT count(*) FROM doc_names), "
      "(SELECT count(*) FROM doc_names WHERE symbol_id IS NOT NULL)");
  if (!st.step()) return;
  stats.documented = st.integer(0);
  stats.documented_linked = st.integer(1);
  auto missed =
      db.prepare("SELECT miss, count(*) FROM doc_names WHERE miss IS NOT NULL GROUP BY miss");
  while (missed.step()) stats.documented_missed[missed.text(0)] = missed.integer(1);
}

}  // namespace orvane_tamsel::index
