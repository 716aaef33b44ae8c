#include "orvane_tamsel/index/term_scores.h"

#include <sqlite3.h>

#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

namespace {

// The constants and formula of FTS5's own bm25(), kept term by term: the shares must add up to
// the very score a search for those terms ranks by.
constexpr double K1 = 1.2;
constexpr double B = 0.75;

// What a query shares across its rows: each phrase's inverse document frequency and the mean row
// size, computed once on the first row.
struct QueryStats {
  std::vector<double> idf;
  double mean_size = 0.0;
};

int count_row(const Fts5ExtensionApi*, Fts5Context*, void* user) {
  ++*static_cast<sqlite3_int64*>(user);
  return SQLITE_OK;
}

QueryStats* query_stats(const Fts5ExtensionApi* api, Fts5Context* fts, int* rc) {
  if (auto* kept = static_cast<QueryStats*>(api->xGetAuxdata(fts, 0))) return kept;
  auto* stats = new (std::nothrow) QueryStats;
  if (!stats) {
    *rc = SQLITE_NOMEM;
    return nullptr;
  }
  sqlite3_int64 rows = 0;
  sqlite3_int64 tokens = 0;
  *rc = api->xRowCount(fts, &rows);
  if (*rc == SQLITE_OK) *rc = api->xColumnTotalSize(fts, -1, &tokens);
  if (*rc == SQLITE_OK) stats->mean_size = static_cast<double>(tokens) / static_cast<double>(rows);
  const int phrases = api->xPhraseCount(fts);
  for (int i = 0; *rc == SQLITE_OK && i < phrases; ++i) {
    sqlite3_int64 hits = 0;
    *rc = api->xQueryPhrase(fts, i, &hits, count_row);
    double idf =
        std::log((static_cast<double>(rows - hits) + 0.5) / (static_cast<double>(hits) + 0.5));
    stats->idf.push_back(idf <= 0.0 ? 1e-6 : idf);
  }
  if (*rc != SQLITE_OK) {
    delete stats;
    return nullptr;
  }
  *rc = api->xSetAuxdata(fts, stats, [](void* p) { delete static_cast<QueryStats*>(p); });
  return *rc == SQLITE_OK ? stats : nullptr;
}

void term_scores(const Fts5ExtensionApi* api, Fts5Context* fts, sqlite3_context* result, int argc,
                 sqlite3_value** argv) {
  int rc = SQLITE_OK;
  auto* stats = query_stats(api, fts, &rc);
  if (!stats) {
    sqlite3_result_error_code(result, rc);
    return;
  }
  std::vector<double> frequency(stats->idf.size(), 0.0);
  int instances = 0;
  rc = api->xInstCount(fts, &instances);
  for (int i = 0; rc == SQLITE_OK && i < instances; ++i) {
    int phrase = 0;
    int column = 0;
    int offset = 0;
    rc = api->xInst(fts, i, &phrase, &column, &offset);
    if (rc == SQLITE_OK)
      frequency[phrase] += column < argc ? sqlite3_value_double(argv[column]) : 1.0;
  }
  int size = 0;
  if (rc == SQLITE_OK) rc = api->xColumnSize(fts, -1, &size);
  if (rc != SQLITE_OK) {
    sqlite3_result_error_code(result, rc);
    return;
  }
  const double length = static_cast<double>(size);
  std::vector<double> shares(frequency.size());
  for (std::size_t i = 0; i < frequency.size(); ++i) {
    shares[i] = stats->idf[i] * ((frequency[i] * (K1 + 1.0)) /
                                 (frequency[i] + K1 * (1 - B + B * length / stats->mean_size)));
  }
  sqlite3_result_blob(result, shares.data(), static_cast<int>(shares.size() * sizeof(double)),
                      SQLITE_TRANSIENT);
}

fts5_api* fts5_of(sqlite3* db) {
  fts5_api* api = nullptr;
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT fts5(?1)", -1, &st, nullptr) == SQLITE_OK) {
    sqlite3_bind_pointer(st, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(st);
  }
  sqlite3_finalize(st);
  return api;
}

}  // namespace

void add_term_scores(sqlite3* db) {
  auto* api = fts5_of(db);
  if (!api || api->iVersion < 2) throw SqliteError("this SQLite has no FTS5 ranking functions");
  int rc = api->xCreateFunction(api, "term_scores", nullptr, term_scores, nullptr);
  if (rc != SQLITE_OK) throw SqliteError("could not add term_scores to FTS5", rc);
}

}  // namespace orvane_tamsel::index
