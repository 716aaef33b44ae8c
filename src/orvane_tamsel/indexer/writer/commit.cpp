// A batch: beginning it, linking what it changed at commit, and keeping the summary's counts.

#include <string_view>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/rollback.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/indexer/types/receiver_stage.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer::writer {

namespace {

// Sites to link again besides the new ones: those naming an fqn that appeared or vanished, and
// those naming a member of a name bound anew (`n.` up to `n/`, the next character: a range of
// the index on names).
constexpr const char* RELINK_CHANGED = R"sql(
INSERT OR IGNORE INTO relink SELECT c.id FROM affected a CROSS JOIN call_sites c
  ON c.target_fqn = a.fqn AND c.target_fqn <> '';
INSERT OR IGNORE INTO relink SELECT b.site_id FROM affected a CROSS JOIN call_fallbacks b ON b.fqn = a.fqn;
INSERT OR IGNORE INTO relink SELECT c.id FROM rebound a CROSS JOIN call_sites c
  ON c.target_fqn > a.fqn || '.' AND c.target_fqn < a.fqn || '/';
INSERT OR IGNORE INTO relink SELECT b.site_id FROM rebound a CROSS JOIN call_fallbacks b
  ON b.fqn > a.fqn || '.' AND b.fqn < a.fqn || '/';
INSERT OR IGNORE INTO reimport SELECT i.id FROM affected a CROSS JOIN imports i ON i.module = a.fqn;
INSERT OR IGNORE INTO reimport
  SELECT i.id FROM affected a CROSS JOIN imports i ON i.module = a.head AND i.name = a.tail;
)sql";

// A site with no name and no fallbacks links to nothing (see LINK_CALLS): a full build passes
// over them; an update still relinks all of a changed file's sites.
constexpr const char* RELINK_ALL = R"sql(
INSERT INTO relink SELECT id FROM call_sites
  WHERE target_fqn <> '' OR EXISTS (SELECT 1 FROM call_fallbacks b WHERE b.site_id = call_sites.id);
INSERT INTO reimport SELECT id FROM imports;
)sql";

// A site with scope rows links only into the files of those modules (see ParsedCall), preferring
// a definition with a body over a declaration.
#define TAMSEL_IN_SCOPE                                                                  \
  "(NOT EXISTS (SELECT 1 FROM call_scopes k WHERE k.site_id = call_sites.id) OR EXISTS " \
  "(SELECT 1 FROM call_scopes k JOIN files f ON f.id = s.file_id WHERE k.site_id = "     \
  "call_sites.id AND (k.module = f.module OR (f.module <> '' AND "                       \
  "substr(k.module, -length(f.module) - 1) = '.' || f.module))))"
#define TAMSEL_BODY_FIRST "s.start_line - s.end_line"
#define TAMSEL_ALSO_RANK "1500000"
#define TAMSEL_RECEIVER_RANK "2000000"
#define TAMSEL_UNION_RANK "3000000"
#define TAMSEL_ON_BRANCHES "#branches"
static_assert(ALSO_RANK == 1500000 && types::RECEIVER_RANK == 2000000 &&
                  types::UNION_RANK == 3000000,
              "TAMSEL_ALSO_RANK, TAMSEL_RECEIVER_RANK, TAMSEL_UNION_RANK");
static_assert(std::string_view(ON_BRANCHES) == TAMSEL_ON_BRANCHES, "TAMSEL_ON_BRANCHES");
constexpr const char* DELETE_RELINKED_EDGES =
    "DELETE FROM edges WHERE site_id IN (SELECT site_id FROM relink)";
// The sites of files a plug-in links itself (linked_apart) are left alone.
constexpr const char* LINK_CALLS = R"sql(
UPDATE call_sites SET callee_id = coalesce(
    (SELECT s.id FROM symbols s WHERE s.fqn = call_sites.target_fqn AND s.kind <> 'module'
      AND )sql" TAMSEL_IN_SCOPE R"sql( ORDER BY )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1),
    (SELECT s.id FROM call_fallbacks b JOIN symbols s ON s.fqn = b.fqn AND s.kind <> 'module'
      WHERE b.site_id = call_sites.id AND )sql" TAMSEL_IN_SCOPE R"sql(
      ORDER BY b.rank, )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1))
  WHERE id IN (SELECT site_id FROM relink)
    AND file_id NOT IN (SELECT file_id FROM linked_apart)
    -- A site with no name and no fallbacks to look up links to nothing: left as it is when unlinked.
    AND (target_fqn <> '' OR callee_id IS NOT NULL
      OR EXISTS (SELECT 1 FROM call_fallbacks b WHERE b.site_id = call_sites.id));
)sql";
// A construction (`T x(a)`, `new T`, a Python class called) reaches a class or nothing; a receiver
// site's "constructor" says how its receiver was made.
constexpr const char* CONSTRUCTION = R"sql(
UPDATE call_sites SET callee_id = NULL
  WHERE id IN (SELECT site_id FROM relink) AND evidence = 'constructor' AND receiver = ''
    AND (SELECT kind FROM symbols WHERE id = call_sites.callee_id)
      NOT IN ('class', 'struct', 'union', 'constructor');
)sql";

constexpr const char* INSERT_EDGES = R"sql(
INSERT INTO edges(site_id, caller_id, callee_id, file_id, line)
  SELECT c.id, c.caller_id, c.callee_id, c.file_id, c.line
  FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id
  WHERE c.callee_id IS NOT NULL AND c.caller_id IS NOT NULL;
INSERT INTO edges(site_id, caller_id, callee_id, file_id, line, derived)
  SELECT site, caller, init, file_id, line, 1 FROM (
    SELECT c.id AS site, c.caller_id AS caller, c.file_id, c.line,
      (SELECT min(i.id) FROM symbols i WHERE i.fqn = k.fqn || '.__init__' AND i.kind <> 'module') AS init
    FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id CROSS JOIN symbols k ON k.id = c.callee_id
    WHERE k.kind = 'class' AND c.caller_id IS NOT NULL)
  WHERE init IS NOT NULL;
)sql";
// A site that may reach several callees (names bound on different branches, a receiver of one of
// several types) links each fallback of those ranks that names a symbol, besides its own callee,
// and every other definition of its callee on a branch of its file.
constexpr const char* INSERT_OTHER_EDGES = R"sql(
INSERT INTO edges(site_id, caller_id, callee_id, file_id, line)
  SELECT DISTINCT site, caller, callee, file_id, line FROM (
    SELECT call_sites.id AS site, call_sites.caller_id AS caller, call_sites.callee_id AS own,
      call_sites.file_id, call_sites.line,
      (SELECT s.id FROM symbols s WHERE s.fqn = b.fqn AND s.kind <> 'module'
        AND )sql" TAMSEL_IN_SCOPE R"sql( ORDER BY )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1)
        AS callee
    FROM relink r CROSS JOIN call_sites ON call_sites.id = r.site_id
    CROSS JOIN call_fallbacks b ON b.site_id = call_sites.id
    WHERE call_sites.callee_id IS NOT NULL AND call_sites.caller_id IS NOT NULL
      AND ((b.rank >= )sql" TAMSEL_ALSO_RANK R"sql( AND b.rank < )sql" TAMSEL_RECEIVER_RANK R"sql()
        OR b.rank >= )sql" TAMSEL_UNION_RANK R"sql()
  ) WHERE callee IS NOT NULL AND callee <> own;
-- A Python function defined on two branches (`if win32: def f` / `else: def f`) is two symbols
-- of one fqn in one file, both marked (ON_BRANCHES): a call reaches either.
INSERT INTO edges(site_id, caller_id, callee_id, file_id, line)
  SELECT c.id, c.caller_id, o.id, c.file_id, c.line
  FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id
  CROSS JOIN symbols k ON k.id = c.callee_id
  CROSS JOIN symbols o ON o.fqn = k.fqn AND o.file_id = k.file_id AND o.id <> k.id
  WHERE c.caller_id IS NOT NULL AND o.kind = k.kind
    AND instr(k.fields, ')sql" TAMSEL_ON_BRANCHES R"sql(' || char(9)) > 0
    AND instr(o.fields, ')sql" TAMSEL_ON_BRANCHES R"sql(' || char(9)) > 0;
)sql";

// `from m import n` binds the symbol m.n or the module m.n; `import m` the module m.
constexpr const char* LINK_IMPORTS = R"sql(
UPDATE imports SET
  target_symbol_id = CASE WHEN name = '' THEN NULL ELSE
    (SELECT min(s.id) FROM symbols s
      WHERE s.fqn = imports.module || '.' || imports.name AND s.kind <> 'module') END,
  target_file_id = coalesce(
    CASE WHEN name = '' THEN NULL ELSE
      (SELECT f.id FROM files f WHERE f.module = imports.module || '.' || imports.name
        ORDER BY length(f.path), f.path LIMIT 1) END,
    (SELECT f.id FROM files f WHERE f.module = imports.module
      ORDER BY length(f.path), f.path LIMIT 1))
  WHERE id IN (SELECT id FROM reimport);
)sql";

// The summary's call and symbol counts live in meta, kept up to date by each batch, so that a
// small update does not count the sites and symbols of the whole index.
constexpr const char* RESOLVED_KEY = "resolved_calls";
constexpr const char* UNRESOLVED_KEY = "unresolved_calls";
constexpr const char* SYMBOLS_KEY = "symbols";

}  // namespace

void BatchWriter::begin() {
  if (in_batch) return;
  prepare();
  bool resuming = index::build_unfinished(db);
  if (resuming || index_empty()) journaled = index::journal_first_build(db);
  db.exec("BEGIN IMMEDIATE");
  in_batch = true;
  db.exec(CLEAR_BATCH_TABLES);
  context_files.clear();
  context_scopes.clear();
  bulk = resuming || index_empty();
  if (bulk) index::drop_deferrable_indexes(db);
  stored_calls = bulk ? std::nullopt : read_stored_calls();
  stored_symbols = bulk ? std::nullopt : read_stored_symbols();
  stored_production = bulk ? std::nullopt : index::stored_production_symbols(db);
  if (!stored_symbols || !stored_production) stored_symbols = stored_production = std::nullopt;
  if (stored_symbols) {
    db.exec(count_symbols_sql());
  } else {
    db.exec(STOP_COUNTING_SYMBOLS);
  }
  components_changed = false;
  resolved_delta = unresolved_delta = 0;
  for (auto& p : plugins) p->begin_batch(*this);
}

void BatchWriter::commit() {
  if (!in_batch) return;
  if (bulk) {
    // Files kept by an interrupted run are linked and placed as if written in this batch.
    db.exec("INSERT OR IGNORE INTO changed_files SELECT id FROM files");
    auto languages = db.prepare("SELECT DISTINCT language FROM files");
    while (languages.step()) {
      if (index::tree_components(languages.text(0))) tree_languages.insert(languages.text(0));
    }
    index::set_build_unfinished(db, false);
  }
  link();
  if (components_changed || bulk || !tree_languages.empty()) update_dominant_package();
  update_tree_components();
  if (bulk) index::create_deferrable_indexes(db);
  store_calls();
  db.exec(CLEAR_BATCH_TABLES);
  for (auto& p : plugins) p->end_batch(*this);
  db.exec("COMMIT");
  in_batch = false;
  end_journal();
}

// Links the batch's sites and imports: the common rules, and each plug-in's at its hooks.
void BatchWriter::link() {
  if (!bulk) {
    for (auto& p : plugins) p->before_relink(*this);
  }
  db.exec(bulk ? RELINK_ALL : RELINK_CHANGED);
  for (auto& p : plugins) p->after_relink(*this);
  if (bulk) {
    insert_all_text();
  } else {
    insert_new_text();
    refresh_context();
  }
  db.exec(LINK_IMPORTS);
  for (auto& p : plugins) p->after_imports(*this);
  // Linking changes only the sites in relink: their resolved count before and after is the delta.
  auto resolved_before = stored_calls ? relinked_resolved_count() : 0;
  db.exec(DELETE_RELINKED_EDGES);
  for (auto& p : plugins) p->link_calls(*this);
  db.exec(LINK_CALLS);
  db.exec(CONSTRUCTION);
  for (auto& p : plugins) p->after_linking(*this);
  db.exec(INSERT_EDGES);
  db.exec(INSERT_OTHER_EDGES);
  if (stored_calls) {
    auto linked = relinked_resolved_count() - resolved_before;
    resolved_delta += linked;
    unresolved_delta -= linked;
  }
}

bool BatchWriter::checkpoint() {
  if (!in_batch || !bulk) return false;
  index::set_build_unfinished(db, true);
  db.exec("COMMIT");
  db.exec("BEGIN IMMEDIATE");
  return true;
}

std::optional<std::pair<std::int64_t, std::int64_t>> BatchWriter::read_stored_calls() {
  auto st = db.prepare(
      "SELECT (SELECT value FROM meta WHERE key = ?1), (SELECT value FROM meta WHERE key = ?2)");
  st.bind(1, RESOLVED_KEY).bind(2, UNRESOLVED_KEY);
  if (!st.step() || st.is_null(0) || st.is_null(1)) return std::nullopt;
  return std::pair{st.integer(0), st.integer(1)};
}

std::optional<std::int64_t> BatchWriter::read_stored_symbols() {
  auto st = db.prepare("SELECT value FROM meta WHERE key = ?");
  st.bind(1, SYMBOLS_KEY);
  if (!st.step() || st.is_null(0)) return std::nullopt;
  return st.integer(0);
}

std::int64_t BatchWriter::relinked_resolved_count() {
  relinked_resolved.step();
  auto n = relinked_resolved.integer(0);
  relinked_resolved.reset();
  return n;
}

// Brings the stored call counts up to date, counting everything when they were missing.
void BatchWriter::store_calls() {
  std::pair<std::int64_t, std::int64_t> calls;
  if (stored_calls) {
    calls = {stored_calls->first + resolved_delta, stored_calls->second + unresolved_delta};
  } else {
    auto st =
        db.prepare("SELECT count(callee_id), count(*) FROM call_sites WHERE evidence <> 'macro'");
    st.step();
    calls = {st.integer(0), st.integer(1) - st.integer(0)};
  }
  auto count =
      db.prepare(stored_symbols ? "SELECT n, p FROM symbol_delta"
                                : "SELECT count(*), coalesce(sum(" +
                                      index::production_symbol_sql("s") + "), 0) FROM symbols s");
  count.step();
  // An edit that moved nothing leaves the page as it is.
  if (stored_calls && stored_symbols && calls == *stored_calls && count.integer(0) == 0 &&
      count.integer(1) == 0) {
    return;
  }
  auto put = db.prepare("INSERT OR REPLACE INTO meta VALUES(?, ?)");
  put.bind(1, RESOLVED_KEY).bind(2, std::to_string(calls.first)).run();
  put.bind(1, UNRESOLVED_KEY).bind(2, std::to_string(calls.second)).run();
  put.bind(1, SYMBOLS_KEY)
      .bind(2, std::to_string(stored_symbols.value_or(0) + count.integer(0)))
      .run();
  index::store_production_symbols(db, stored_production.value_or(0) + count.integer(1));
}

void BatchWriter::rollback() {
  if (!in_batch) return;
  tree_languages.clear();
  context_files.clear();
  context_scopes.clear();
  in_batch = false;
  index::rollback_if_open(db);
  end_journal();
}

bool BatchWriter::index_empty() {
  auto st = db.prepare("SELECT NOT EXISTS (SELECT 1 FROM files)");
  return st.step() && st.integer(0) != 0;
}

void BatchWriter::end_journal() {
  if (journaled) index::restore_log(db);
  journaled = false;
}

}  // namespace orvane_tamsel::indexer::writer
