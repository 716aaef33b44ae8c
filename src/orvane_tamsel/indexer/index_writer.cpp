#include "orvane_tamsel/indexer/index_writer.h"

#include <spdlog/spdlog.h>

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/stats.h"
#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/indexer/types/receiver_stage.h"
#include "orvane_tamsel/indexer/types/sql_type_facts.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::indexer {

using index::Database;
using index::Statement;

namespace {

// Per-batch bookkeeping lives in temporary tables so that linking runs as a few joins. The
// temporary tables drive each join (CROSS JOIN fixes the order): they are small for a small update.
constexpr const char* BATCH_TABLES = R"sql(
CREATE TEMP TABLE IF NOT EXISTS changed_files(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS affected(fqn TEXT PRIMARY KEY, head TEXT, tail TEXT);
CREATE TEMP TABLE IF NOT EXISTS relink(site_id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS reimport(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS merged(decl INTEGER PRIMARY KEY, def INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS temp.merged_def ON merged(def);
CREATE TEMP TABLE IF NOT EXISTS gone_files(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS restored(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS stale_docs(def INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS new_text(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS kept_declarations(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS reach(origin INTEGER, module TEXT, PRIMARY KEY(origin, module))
  WITHOUT ROWID;
CREATE TEMP TABLE IF NOT EXISTS reach_files(origin INTEGER, file_id INTEGER,
  PRIMARY KEY(origin, file_id)) WITHOUT ROWID;
CREATE TEMP TABLE IF NOT EXISTS include_changed(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS symbol_delta(n INTEGER NOT NULL);
)sql";

// An update counts the symbols it adds and removes (a full build counts them once at the end).
constexpr const char* COUNT_SYMBOLS = R"sql(
CREATE TEMP TRIGGER IF NOT EXISTS symbol_added AFTER INSERT ON symbols
  BEGIN UPDATE symbol_delta SET n = n + 1; END;
CREATE TEMP TRIGGER IF NOT EXISTS symbol_removed AFTER DELETE ON symbols
  BEGIN UPDATE symbol_delta SET n = n - 1; END;
)sql";
constexpr const char* STOP_COUNTING_SYMBOLS =
    "DROP TRIGGER IF EXISTS symbol_added; DROP TRIGGER IF EXISTS symbol_removed;";

constexpr const char* CLEAR_BATCH_TABLES =
    "DELETE FROM changed_files; DELETE FROM affected; DELETE FROM relink; DELETE FROM reimport; "
    "DELETE FROM gone_files; DELETE FROM restored; DELETE FROM stale_docs; DELETE FROM new_text; "
    "DELETE FROM kept_declarations; "
    "DELETE FROM reach; DELETE FROM reach_files; DELETE FROM include_changed; "
    "DELETE FROM symbol_delta; INSERT INTO symbol_delta VALUES(0);";

// Sites to link again besides the new ones: those naming an fqn that appeared or vanished.
constexpr const char* RELINK_CHANGED = R"sql(
INSERT OR IGNORE INTO relink SELECT c.id FROM affected a CROSS JOIN call_sites c
  ON c.target_fqn = a.fqn AND c.target_fqn <> '';
INSERT OR IGNORE INTO relink SELECT b.site_id FROM affected a CROSS JOIN call_fallbacks b ON b.fqn = a.fqn;
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
// A C or C++ site (one whose file has `reach` rows) sees the files its file includes, directly
// or through other headers (`reach_files`), and their modules (`reach`): a function declared in
// a header is defined in a source file of the same module. Its own file first, then what the
// includes hold, then their modules' other files.
#define TAMSEL_C_SITE "EXISTS (SELECT 1 FROM reach r WHERE r.origin = call_sites.file_id)"
#define TAMSEL_INCLUDED                                                                      \
  "EXISTS (SELECT 1 FROM reach_files r WHERE r.origin = call_sites.file_id AND r.file_id = " \
  "s.file_id)"
#define TAMSEL_REACHED                                                                        \
  "EXISTS (SELECT 1 FROM files f JOIN reach r ON r.module = f.module WHERE f.id = s.file_id " \
  "AND r.origin = call_sites.file_id)"
#define TAMSEL_C_CANDIDATES(where)                                                             \
  "(SELECT s.id FROM symbols s WHERE s.fqn = call_sites.target_fqn AND s.kind <> 'module' "    \
  "AND " where " ORDER BY " TAMSEL_BODY_FIRST                                                  \
  ", s.id LIMIT 1), "                                                                          \
  "(SELECT s.id FROM call_fallbacks b JOIN symbols s ON s.fqn = b.fqn AND s.kind <> 'module' " \
  "WHERE b.site_id = call_sites.id AND " where " ORDER BY b.rank, " TAMSEL_BODY_FIRST          \
  ", s.id LIMIT 1)"
#define TAMSEL_CALLEE_FQN "(SELECT fqn FROM symbols WHERE id = call_sites.callee_id)"
// Fallback ranks from here on mark names equally near (ParsedCall::equally_near).
#define TAMSEL_EQUALLY_NEAR "1000000"
#define TAMSEL_CALLEE_FILE "(SELECT file_id FROM symbols WHERE id = call_sites.callee_id)"
constexpr const char* LINK_CALLS = R"sql(
DELETE FROM edges WHERE site_id IN (SELECT site_id FROM relink);
UPDATE call_sites SET callee_id = CASE WHEN )sql" TAMSEL_C_SITE R"sql( THEN coalesce(
    )sql" TAMSEL_C_CANDIDATES("s.file_id = call_sites.file_id") R"sql(,
    )sql" TAMSEL_C_CANDIDATES(TAMSEL_INCLUDED) R"sql(,
    )sql" TAMSEL_C_CANDIDATES(TAMSEL_REACHED) R"sql()
  ELSE coalesce(
    (SELECT s.id FROM symbols s WHERE s.fqn = call_sites.target_fqn AND s.kind <> 'module'
      AND )sql" TAMSEL_IN_SCOPE R"sql( ORDER BY )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1),
    (SELECT s.id FROM call_fallbacks b JOIN symbols s ON s.fqn = b.fqn AND s.kind <> 'module'
      WHERE b.site_id = call_sites.id AND )sql" TAMSEL_IN_SCOPE R"sql(
      ORDER BY b.rank, )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1)) END
  WHERE id IN (SELECT site_id FROM relink)
    -- A site with no name and no fallbacks to look up links to nothing: left as it is when unlinked.
    AND (target_fqn <> '' OR callee_id IS NOT NULL
      OR EXISTS (SELECT 1 FROM call_fallbacks b WHERE b.site_id = call_sites.id));
)sql";
// C and C++ only: a site outside those languages has no `reach` rows, and nothing to change.
constexpr const char* ONE_DEFINITION = R"sql(
-- One definition or no edge: a C or C++ call whose name has bodies in two files of the tier it
-- was found in (included files, or their modules' files) is ambiguous. Declarations of one
-- function do not count twice.
UPDATE call_sites SET callee_id = NULL
  WHERE id IN (SELECT site_id FROM relink) AND callee_id IS NOT NULL AND )sql" TAMSEL_C_SITE R"sql(
    AND )sql" TAMSEL_CALLEE_FILE R"sql( <> call_sites.file_id
    AND CASE WHEN EXISTS (SELECT 1 FROM reach_files r WHERE r.origin = call_sites.file_id
                            AND r.file_id = )sql" TAMSEL_CALLEE_FILE R"sql()
      THEN (SELECT count(DISTINCT s.file_id) FROM symbols s
        WHERE s.fqn = )sql" TAMSEL_CALLEE_FQN R"sql( AND s.kind <> 'module'
          AND s.signature NOT GLOB '*;' AND )sql" TAMSEL_INCLUDED R"sql()
      ELSE (SELECT count(DISTINCT s.file_id) FROM symbols s
        WHERE s.fqn = )sql" TAMSEL_CALLEE_FQN R"sql( AND s.kind <> 'module'
          AND s.signature NOT GLOB '*;' AND )sql" TAMSEL_REACHED R"sql() END > 1;
)sql";
constexpr const char* EQUALLY_NEAR_AND_CONSTRUCTION = R"sql(
-- Names equally near (a C++ global name and those using-directives bring in): two that the
-- site sees make no edge.
UPDATE call_sites SET callee_id = NULL
  WHERE id IN (SELECT site_id FROM relink) AND callee_id IS NOT NULL
    AND EXISTS (SELECT 1 FROM call_fallbacks b WHERE b.site_id = call_sites.id
      AND b.rank >= )sql" TAMSEL_EQUALLY_NEAR R"sql( AND b.fqn = )sql" TAMSEL_CALLEE_FQN R"sql()
    AND (SELECT count(DISTINCT s.fqn) FROM call_fallbacks b
      JOIN symbols s ON s.fqn = b.fqn AND s.kind <> 'module'
      WHERE b.site_id = call_sites.id AND b.rank >= )sql" TAMSEL_EQUALLY_NEAR R"sql(
        AND (s.file_id = call_sites.file_id OR )sql" TAMSEL_INCLUDED R"sql( OR )sql" TAMSEL_REACHED
                                                      R"sql()) > 1;
-- A construction (`T x(a)`, `new T`, a Python class called) reaches a class or nothing.
UPDATE call_sites SET callee_id = NULL
  WHERE id IN (SELECT site_id FROM relink) AND evidence = 'constructor' AND receiver = ''
    AND (SELECT kind FROM symbols WHERE id = call_sites.callee_id)
      NOT IN ('class', 'struct', 'union', 'constructor');
)sql";
// C and C++ only, as ONE_DEFINITION: a call that names a class, constructed or not, lands on the
// constructor the class declares, if any.
constexpr const char* CONSTRUCTORS = R"sql(
UPDATE call_sites SET callee_id = coalesce((
    SELECT s.id FROM symbols k CROSS JOIN symbols s ON s.fqn = k.fqn || '.' || k.name
    WHERE k.id = call_sites.callee_id AND s.kind = 'constructor'
      AND (s.file_id = k.file_id OR EXISTS (SELECT 1 FROM declarations d
        WHERE d.def_id = s.id AND d.file_id = k.file_id))
    ORDER BY )sql" TAMSEL_BODY_FIRST R"sql(, s.id LIMIT 1), callee_id)
  WHERE id IN (SELECT site_id FROM relink) AND )sql" TAMSEL_C_SITE R"sql(
    AND (SELECT kind FROM symbols WHERE id = call_sites.callee_id) IN ('class', 'struct');
)sql";

// An #include names a path that the compiler looks for next to the including file (`"a.h"`
// only), then in the include folders: here any folder of the repository, the shortest path
// first, a header before a source file of the same stem. `module` holds the path dotted, without
// its extension; `name` the include as written, whose file name must match (`<vector>` is no
// vector.h).
#define TAMSEL_LAST_PART(p) "substr(" p ", length(rtrim(" p ", replace(" p ", '/', ''))) + 1)"
constexpr const char* LINK_INCLUDES = R"sql(
UPDATE imports SET target_file_id = (
    SELECT f.id FROM imports i CROSS JOIN files g CROSS JOIN files f
    WHERE i.id = imports.id AND g.id = i.file_id AND f.id <> g.id AND f.language IN ('c', 'cpp')
      AND f.base = substr(i.module, length(rtrim(i.module, replace(i.module, '.', ''))) + 1)
      AND (replace(f.stem, '/', '.') = i.module
        OR substr(replace(f.stem, '/', '.'), -length(i.module) - 1) = '.' || i.module)
      AND (i.name = '' OR )sql" TAMSEL_LAST_PART("f.path") R"sql( =
        )sql" TAMSEL_LAST_PART("substr(i.name, 2, length(i.name) - 2)") R"sql()
    ORDER BY i.name GLOB '"*' AND replace(f.stem, '/', '.') =
               replace(rtrim(g.stem, replace(g.stem, '/', '')), '/', '.') || i.module DESC,
      f.path GLOB '*.c' OR f.path GLOB '*.cc' OR f.path GLOB '*.cpp' OR f.path GLOB '*.cxx',
      length(f.path), f.path
    LIMIT 1)
  WHERE id IN (SELECT id FROM reimport)
    AND file_id IN (SELECT id FROM files WHERE language IN ('c', 'cpp'));
)sql";

constexpr std::int64_t EQUALLY_NEAR = 1000000;  // TAMSEL_EQUALLY_NEAR

// How many #includes deep a call looks for its callee (a.c -> b.h -> c.h is two).
constexpr int MAX_INCLUDE_DEPTH = 4;

// Sites of files that include, within that depth, a file whose includes changed see other
// headers now.
constexpr const char* RELINK_INCLUDERS = R"sql(
WITH RECURSIVE up(file, depth) AS (
  SELECT id, 0 FROM include_changed
  UNION SELECT i.file_id, up.depth + 1 FROM up CROSS JOIN imports i ON i.target_file_id = up.file
    WHERE up.depth < ?1)
INSERT OR IGNORE INTO relink
  SELECT c.id FROM (SELECT DISTINCT file FROM up) u CROSS JOIN call_sites c ON c.file_id = u.file
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

// A C or C++ function declared without a body (its signature keeps the ";") and defined under
// the same fqn is one entity: the definition stays, with the declaration's doc comment when it
// has none, so that a method declared in its class and defined out of line is listed once. The
// declaration is kept aside in `declarations`, so that an update gives the index a clean build
// would: UNMERGE takes back what changed or gone files gave or received, and the declarations
// whose definition was extracted again or removed return (`restored`) to be merged anew. The
// MERGE_CANDIDATES_* statements fill `merged` (all of the index, or what the update touches);
// `merged` drives the joins, as the planner would otherwise walk every C file's symbols.
constexpr const char* UNMERGE = R"sql(
INSERT OR IGNORE INTO stale_docs
  SELECT d.def_id FROM changed_files c CROSS JOIN declarations d ON d.file_id = c.id
  WHERE d.gave_doc AND d.def_file_id NOT IN (SELECT id FROM changed_files)
    AND d.def_file_id NOT IN (SELECT id FROM gone_files)
    AND d.id NOT IN (SELECT id FROM kept_declarations);
INSERT OR IGNORE INTO stale_docs
  SELECT d.def_id FROM gone_files c CROSS JOIN declarations d ON d.file_id = c.id
  WHERE d.gave_doc AND d.def_file_id NOT IN (SELECT id FROM changed_files)
    AND d.def_file_id NOT IN (SELECT id FROM gone_files);
DELETE FROM declarations WHERE file_id IN (SELECT id FROM changed_files)
  AND id NOT IN (SELECT id FROM kept_declarations);
DELETE FROM declarations WHERE file_id IN (SELECT id FROM gone_files);
UPDATE symbols SET docstring = (
    SELECT d.docstring FROM declarations d WHERE d.def_id = symbols.id
    AND d.docstring IS NOT NULL ORDER BY d.symbol_id LIMIT 1)
  WHERE id IN (SELECT def FROM stale_docs);
UPDATE declarations SET gave_doc = 1 WHERE id IN (
  SELECT (SELECT d.id FROM declarations d WHERE d.def_id = s.def AND d.docstring IS NOT NULL
          ORDER BY d.symbol_id LIMIT 1) FROM stale_docs s);
)sql";
// After the merge: a definition whose declarations in a changed file were taken back and merged
// again mostly holds the doc comment it had, and its text rows are left as they are.
constexpr const char* SYNC_STALE_DOCS = R"sql(
UPDATE symbol_text SET docstring = (SELECT docstring FROM symbols WHERE id = symbol_text.rowid)
  WHERE rowid IN (SELECT def FROM stale_docs)
    AND docstring IS NOT (SELECT docstring FROM symbols WHERE id = symbol_text.rowid);
)sql";
constexpr const char* RETURNING_DECLARATIONS = R"sql(
SELECT d.id, d.file_id, d.fqn, d.name, d.name_folded, d.kind, d.start_line, d.end_line,
    d.signature, d.docstring, d.is_test, d.parent_id, d.parent_fqn, d.bases, f.path,
    EXISTS (SELECT 1 FROM symbols s WHERE s.id = d.symbol_id), d.symbol_id
  FROM declarations d JOIN files f ON f.id = d.file_id
  WHERE d.def_file_id IN (SELECT id FROM changed_files) OR d.def_file_id IN (SELECT id FROM gone_files)
)sql";
constexpr const char* MERGE_CANDIDATES_RESTORED = R"sql(
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM restored r CROSS JOIN symbols d ON d.id = r.id
  JOIN symbols f ON f.fqn = d.fqn AND f.kind = d.kind
  WHERE f.signature NOT GLOB '*;'
  ORDER BY d.id, f.id;
)sql";
constexpr const char* MERGE_CANDIDATES_ALL = R"sql(
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM symbols d JOIN symbols f ON f.fqn = d.fqn AND f.kind = d.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND d.kind IN ('function', 'method', 'constructor')
  ORDER BY d.id, f.id;
)sql";
constexpr const char* MERGE_CANDIDATES_CHANGED = R"sql(
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM changed_files c CROSS JOIN symbols d ON d.file_id = c.id
  JOIN symbols f ON f.fqn = d.fqn AND f.kind = d.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND d.kind IN ('function', 'method', 'constructor')
  ORDER BY d.id, f.id;
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM changed_files c CROSS JOIN symbols f ON f.file_id = c.id
  JOIN symbols d ON d.fqn = f.fqn AND d.kind = f.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND d.kind IN ('function', 'method', 'constructor')
  ORDER BY d.id, f.id;
)sql";
constexpr const char* MERGE_DECLARATIONS = R"sql(
DELETE FROM merged WHERE decl NOT IN (
  SELECT s.id FROM merged m CROSS JOIN symbols s ON s.id = m.decl
  CROSS JOIN files f ON f.id = s.file_id AND f.language IN ('c', 'cpp'));
INSERT INTO declarations
  SELECT NULL, d.id, m.def, f.file_id, d.file_id, d.fqn, d.name, d.name_folded, d.kind, d.start_line,
    d.end_line, d.signature, d.docstring, d.is_test, d.parent_id, d.parent_fqn, d.bases,
    f.docstring IS NULL AND d.docstring IS NOT NULL AND d.id = (
      SELECT min(o.id) FROM merged n JOIN symbols o ON o.id = n.decl
      WHERE n.def = m.def AND o.docstring IS NOT NULL)
  FROM merged m JOIN symbols d ON d.id = m.decl JOIN symbols f ON f.id = m.def;
UPDATE symbols SET docstring = (
    SELECT d.docstring FROM merged m JOIN symbols d ON d.id = m.decl
    WHERE m.def = symbols.id AND d.docstring IS NOT NULL ORDER BY d.id LIMIT 1)
  WHERE docstring IS NULL AND id IN (SELECT def FROM merged);
UPDATE symbol_text SET docstring = (SELECT docstring FROM symbols WHERE id = symbol_text.rowid)
  WHERE rowid IN (SELECT def FROM merged)
    AND docstring IS NOT (SELECT docstring FROM symbols WHERE id = symbol_text.rowid);
INSERT OR IGNORE INTO relink SELECT e.site_id FROM merged m CROSS JOIN edges e ON e.callee_id = m.decl;
INSERT OR IGNORE INTO reimport SELECT i.id FROM merged m CROSS JOIN imports i ON i.target_symbol_id = m.decl;
DELETE FROM symbol_text WHERE rowid IN (SELECT decl FROM merged);
DELETE FROM name_grams WHERE rowid IN (SELECT decl FROM merged);
DELETE FROM symbols WHERE id IN (SELECT decl FROM merged);
DELETE FROM merged;
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

// How deep a chain of re-exports is followed (`from .query import QuerySet` in a package's
// __init__.py, imported from the package by a third module, counts one).
constexpr int MAX_REEXPORTS = 3;

// The fqns `fqn` can be named by after one re-export: a module that imports it (or the class
// holding it) binds it under its own name. With `from a import X` in package p, `a.X.m` is
// also `p.X.m`; with `import a.b as c` in p, `a.b.f` is also `p.c.f`.
constexpr const char* REEXPORTERS = R"sql(
SELECT f.module || '.' || CASE WHEN i.alias <> '' THEN i.alias ELSE i.name END
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 AND i.name = ?2 AND f.module <> ''
UNION
SELECT f.module || '.' || i.alias
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 || '.' || ?2 AND i.name = '' AND i.alias <> '' AND f.module <> ''
UNION
SELECT f.module || '.' || ?2
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 AND i.name = '*' AND f.module <> '' AND substr(?2, 1, 1) <> '_'
)sql";

// Where `module.name` leads: the module's own import binding `name` first, then, for a public
// name, each module it star-imports (a star import binds every public name of its module).
constexpr const char* REEXPORT_OF = R"sql(
SELECT * FROM (SELECT i.module || CASE WHEN i.name <> '' THEN '.' || i.name ELSE '' END
  FROM files f CROSS JOIN imports i ON i.file_id = f.id WHERE f.module = ?1
  AND (i.alias = ?2 OR (i.alias = '' AND i.name = ?2)) ORDER BY length(f.path), f.path, i.line
  LIMIT 1)
UNION ALL
SELECT * FROM (SELECT i.module || '.' || ?2
  FROM files f CROSS JOIN imports i ON i.file_id = f.id WHERE f.module = ?1 AND i.name = '*'
  AND substr(?2, 1, 1) <> '_' ORDER BY length(f.path), f.path, i.line)
)sql";

// The summary's call and symbol counts live in meta, kept up to date by each batch, so that a
// small update does not count the sites and symbols of the whole index.
constexpr const char* RESOLVED_KEY = "resolved_calls";
constexpr const char* UNRESOLVED_KEY = "unresolved_calls";
constexpr const char* SYMBOLS_KEY = "symbols";

// A symbol as stored before its file is written again: a row equal but for what the new
// extraction changed is updated in place, so the name indexes and text rows stay untouched.
struct OldSymbol {
  std::int64_t id;
  std::string fqn, name, kind;
  std::optional<std::string> signature, docstring;
  std::int64_t start_line, end_line;
  bool is_test;
  std::optional<std::int64_t> parent_id;
  std::string parent_fqn, bases;
  std::int64_t row = 0;  // a merged declaration's row in `declarations`
  std::string type_of, fields;
};

// A file cut short (a copy or a disk that failed midway) still opens and answers from the pages it
// has, so compare its size with the page count its header records.
bool truncated(const std::filesystem::path& file) {
  std::error_code ec;
  // Another process writing (any log file present) may be growing the file right now.
  for (const char* log : {"-wal", "-journal"}) {
    if (std::filesystem::exists(file.string() + log, ec)) return false;
  }
  auto size = std::filesystem::file_size(file, ec);
  if (ec || size < 100) return false;
  unsigned char header[100];
  std::ifstream in(file, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(header), sizeof header)) return false;
  if (std::memcmp(header, "SQLite format 3", 16) != 0) return false;  // SQLite says "not a db"
  auto be32 = [&](int at) {
    return (std::uint32_t{header[at]} << 24) | (std::uint32_t{header[at + 1]} << 16) |
           (std::uint32_t{header[at + 2]} << 8) | std::uint32_t{header[at + 3]};
  };
  std::uint32_t page_size = (std::uint32_t{header[16]} << 8) | header[17];
  if (page_size == 1) page_size = 65536;
  // The page count in the header is only valid when written by the version that last changed it.
  if (be32(24) != be32(92)) return false;
  return size < std::uint64_t{be32(28)} * page_size;
}

// Left beside the index by a reader that met a damaged page.
constexpr const char* DAMAGED = "-damaged";

// Two writers opening one index at the same moment can meet a lock SQLite refuses to wait for
// (the switch to WAL, the first schema): wait and try again rather than fail the run.
void prepare_waiting(Database& db) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (int attempt = 1;; ++attempt) {
    try {
      index::prepare_for_writing(db);
      return;
    } catch (const index::SqliteError& e) {
      if (!e.busy() || std::chrono::steady_clock::now() > deadline) throw;
      if (attempt == 1) spdlog::info("the index is busy: waiting for the other writer");
      std::this_thread::sleep_for(std::chrono::milliseconds(std::min(20 * attempt, 500)));
    }
  }
}

}  // namespace

void discard_index(const std::filesystem::path& repository_root) {
  auto file = index::index_file(repository_root);
  for (const char* suffix : {"", "-wal", "-shm", DAMAGED})
    std::filesystem::remove(file.string() + suffix);
}

void mark_damaged(const std::filesystem::path& repository_root) {
  std::ofstream(index::index_file(repository_root).string() + DAMAGED);
}

bool marked_damaged(const std::filesystem::path& repository_root) {
  std::error_code ec;
  return std::filesystem::exists(index::index_file(repository_root).string() + DAMAGED, ec);
}

struct IndexWriter::Impl {
  std::unique_ptr<Database> owned;
  Database& db;
  bool in_batch = false;
  bool bulk = false;                // the batch fills an empty index
  bool journaled = false;           // the batch runs with a rollback journal instead of the log
  bool components_changed = false;  // a file came, went or changed component or test status
  Statement find_file, insert_file, update_file, rename_module, touch, old_symbols, delete_file,
      insert_symbol, update_symbol, rename_symbol, delete_symbol, insert_text, insert_name_gram,
      delete_text, delete_name_gram, insert_path_gram, delete_path_gram, mark_new_text, insert_site,
      insert_fallback, insert_scope, insert_import, mark_changed, mark_affected, old_bindings,
      public_names, reexport_of, reexporters, symbol_by_fqn, file_language, includers_of,
      reimport_module, mark_include_changed, relink_includers, relink_members, struct_bases;
  // Go packages whose files changed, and the fqns whose members' call sites to link again:
  // a method promoted through an embedded struct may come or go with them.
  std::set<std::string> go_packages;
  std::vector<std::string> go_scopes;
  std::unordered_map<std::string, std::optional<std::int64_t>> reexport_cache;
  // Modules whose files import anything: only they can re-export, so the others are not asked.
  std::unordered_set<std::string> importing_modules;
  std::set<std::string> tree_languages;  // languages of this batch's files with tree components
  std::vector<Statement> clear_contents;
  Statement delete_file_symbols, clear_imports, old_imports, import_line, delete_import,
      mark_reimport, old_declarations, keep_declaration, old_sites, site_line, edge_line,
      mark_relink;
  std::vector<Statement> delete_site;
  Statement file_sites, relinked_resolved;
  // Call counts as stored before the batch (nullopt: count them all at commit) and the batch's
  // changes to them.
  std::optional<std::pair<std::int64_t, std::int64_t>> stored_calls;
  std::int64_t resolved_delta = 0, unresolved_delta = 0;
  std::optional<std::int64_t> stored_symbols;  // as stored before the batch; symbol_delta counts

  explicit Impl(const std::filesystem::path& root) : owned(open(root)), db(*owned) {
    db.exec("PRAGMA temp_store = MEMORY");
    db.exec("PRAGMA cache_size = -65536");
    db.exec(BATCH_TABLES);
    db.exec(COUNT_SYMBOLS);
    find_file = db.prepare("SELECT id, component, is_test, module FROM files WHERE path = ?");
    insert_file = db.prepare(
        "INSERT INTO files(path, stem, base, language, size, mtime_ns, hash, is_test, module, "
        "component, line_count) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    // The path, and what is made of it, stay; the module only where it changed: no index entry
    // of the files moves.
    update_file = db.prepare(
        "UPDATE files SET language = ?, size = ?, mtime_ns = ?, hash = ?, is_test = ?, "
        "component = ?, line_count = ? WHERE id = ?");
    rename_module = db.prepare("UPDATE files SET module = ? WHERE id = ?");
    touch = db.prepare("UPDATE files SET mtime_ns = ?, size = ?, hash = ? WHERE path = ?");
    old_symbols = db.prepare(
        "SELECT id, fqn, name, kind, signature, docstring, start_line, end_line, is_test, "
        "parent_id, parent_fqn, bases, type_of, fields FROM symbols WHERE file_id = ? ORDER BY id");
    delete_file = db.prepare("DELETE FROM files WHERE id = ?");
    insert_symbol = db.prepare(
        "INSERT INTO symbols(id, file_id, fqn, name, name_folded, kind, start_line, end_line, "
        "signature, docstring, is_test, parent_id, parent_fqn, bases, type_of, fields) "
        "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    // No column of the name indexes: only the file's own index entries move with its lines.
    update_symbol = db.prepare(
        "UPDATE symbols SET kind = ?, start_line = ?, end_line = ?, signature = ?, docstring = ?, "
        "is_test = ?, parent_id = ?, parent_fqn = ?, bases = ?, type_of = ?, fields = ? "
        "WHERE id = ?");
    rename_symbol = db.prepare("UPDATE symbols SET name = ?, name_folded = ? WHERE id = ?");
    delete_symbol = db.prepare("DELETE FROM symbols WHERE id = ?");
    insert_text = db.prepare(
        "INSERT INTO symbol_text(rowid, name, fqn, signature, docstring, path) "
        "VALUES(?, ?, ?, ?, ?, ?)");
    insert_name_gram = db.prepare("INSERT INTO name_grams(rowid, name) VALUES(?, ?)");
    delete_text = db.prepare("DELETE FROM symbol_text WHERE rowid = ?");
    delete_name_gram = db.prepare("DELETE FROM name_grams WHERE rowid = ?");
    insert_path_gram = db.prepare("INSERT INTO path_grams(rowid, path) VALUES(?, ?)");
    delete_path_gram = db.prepare("DELETE FROM path_grams WHERE rowid = ?");
    insert_site = db.prepare(
        "INSERT INTO call_sites(file_id, caller_id, line, evidence, target_fqn, receiver, member, "
        "receiver_evidence) VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
    insert_fallback = db.prepare("INSERT OR IGNORE INTO call_fallbacks VALUES(?, ?, ?)");
    insert_scope = db.prepare("INSERT OR IGNORE INTO call_scopes VALUES(?, ?)");
    insert_import =
        db.prepare("INSERT INTO imports(file_id, line, module, name, alias) VALUES(?, ?, ?, ?, ?)");
    mark_changed = db.prepare("INSERT OR IGNORE INTO changed_files VALUES(?)");
    mark_new_text = db.prepare("INSERT OR IGNORE INTO new_text VALUES(?)");
    mark_affected = db.prepare("INSERT OR IGNORE INTO affected VALUES(?, ?, ?)");
    old_bindings = db.prepare(
        "SELECT f.module, i.module, i.name, i.alias FROM imports i JOIN files f "
        "ON f.id = i.file_id WHERE i.file_id = ?");
    public_names = db.prepare(
        "SELECT name FROM symbols WHERE fqn > ?1 || '.' AND fqn < ?1 || '/' AND parent_fqn = ?1 "
        "AND kind <> 'module' AND substr(name, 1, 1) <> '_'");
    reexport_of = db.prepare(REEXPORT_OF);
    reexporters = db.prepare(REEXPORTERS);
    symbol_by_fqn = db.prepare(
        "SELECT id FROM symbols WHERE fqn = ? AND kind <> 'module' "
        "ORDER BY start_line - end_line, id LIMIT 1");
    file_sites = db.prepare("SELECT count(callee_id), count(*) FROM call_sites WHERE file_id = ?");
    relinked_resolved = db.prepare(
        "SELECT count(c.callee_id) FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id");
    file_language = db.prepare("SELECT language, module FROM files WHERE id = ?");
    includers_of = db.prepare(
        "INSERT OR IGNORE INTO include_changed SELECT file_id FROM imports WHERE module = ?");
    reimport_module =
        db.prepare("INSERT OR IGNORE INTO reimport SELECT id FROM imports WHERE module = ?");
    mark_include_changed = db.prepare("INSERT OR IGNORE INTO include_changed VALUES(?)");
    relink_includers = db.prepare(RELINK_INCLUDERS);
    struct_bases =
        db.prepare("SELECT fqn, bases FROM symbols WHERE file_id = ? AND kind = 'struct'");
    relink_members = db.prepare(
        "INSERT OR IGNORE INTO relink SELECT id FROM call_sites "
        "WHERE target_fqn > ?1 || '.' AND target_fqn < ?1 || '/' AND target_fqn <> ''");
    for (const char* sql : {
             "DELETE FROM edges WHERE site_id IN (SELECT id FROM call_sites WHERE file_id = ?)",
             "DELETE FROM call_fallbacks WHERE site_id IN "
             "(SELECT id FROM call_sites WHERE file_id = ?)",
             "DELETE FROM call_scopes WHERE site_id IN (SELECT id FROM call_sites WHERE file_id = "
             "?)",
             "DELETE FROM type_deps WHERE site_id IN (SELECT id FROM call_sites WHERE file_id = ?)",
             "DELETE FROM call_sites WHERE file_id = ?",
         }) {
      clear_contents.push_back(db.prepare(sql));
    }
    delete_file_symbols = db.prepare("DELETE FROM symbols WHERE file_id = ?");
    clear_imports = db.prepare("DELETE FROM imports WHERE file_id = ?");
    old_imports = db.prepare(
        "SELECT id, line, module, name, alias FROM imports WHERE file_id = ? ORDER BY id");
    import_line = db.prepare("UPDATE imports SET line = ? WHERE id = ?");
    delete_import = db.prepare("DELETE FROM imports WHERE id = ?");
    mark_reimport = db.prepare("INSERT OR IGNORE INTO reimport VALUES(?)");
    old_declarations = db.prepare(
        "SELECT id, symbol_id, fqn, name, kind, start_line, end_line, signature, docstring, "
        "is_test, parent_id, parent_fqn, bases FROM declarations WHERE file_id = ? ORDER BY id");
    keep_declaration = db.prepare("INSERT INTO kept_declarations VALUES(?)");
    old_sites = db.prepare(
        "SELECT c.id, c.caller_id, c.line, c.evidence, c.target_fqn, c.callee_id IS NOT NULL, "
        "(SELECT group_concat(b.rank || ':' || b.fqn, ' ') FROM call_fallbacks b "
        "WHERE b.site_id = c.id), (SELECT group_concat(k.module, ' ') FROM call_scopes k "
        "WHERE k.site_id = c.id), c.receiver, c.member, c.receiver_evidence "
        "FROM call_sites c WHERE c.file_id = ? ORDER BY c.id");
    site_line = db.prepare("UPDATE call_sites SET line = ? WHERE id = ?");
    edge_line = db.prepare("UPDATE edges SET line = ? WHERE site_id = ?");
    mark_relink = db.prepare("INSERT OR IGNORE INTO relink VALUES(?)");
    for (const char* sql :
         {"DELETE FROM edges WHERE site_id = ?", "DELETE FROM call_fallbacks WHERE site_id = ?",
          "DELETE FROM call_scopes WHERE site_id = ?", "DELETE FROM type_deps WHERE site_id = ?",
          "DELETE FROM call_sites WHERE id = ?"}) {
      delete_site.push_back(db.prepare(sql));
    }
  }

  // A damaged index is rebuilt from scratch rather than failing every later run.
  static std::unique_ptr<Database> open(const std::filesystem::path& root) {
    std::filesystem::create_directories(root / ".tamsel");
    auto file = index::index_file(root);
    auto connect = [&] {
      auto db = std::make_unique<Database>(file, Database::Mode::write);
      prepare_waiting(*db);
      return db;
    };
    try {
      if (truncated(file)) {
        throw index::SqliteError("the file is shorter than its header says", SQLITE_CORRUPT);
      }
      if (marked_damaged(root)) {
        throw index::SqliteError("a reader met a damaged page", SQLITE_CORRUPT);
      }
      return connect();
    } catch (const index::SqliteError& e) {
      if (!e.unreadable()) throw;
      spdlog::warn("the index {} cannot be read ({}): rebuilding it", file.string(), e.what());
      discard_index(root);
    }
    return connect();
  }

  void ensure_batch() {
    if (!in_batch) begin();
  }

  void begin() {
    if (in_batch) return;
    if (index_empty()) journaled = index::journal_first_build(db);
    db.exec("BEGIN IMMEDIATE");
    in_batch = true;
    db.exec(CLEAR_BATCH_TABLES);
    {
      auto empty = db.prepare("SELECT NOT EXISTS (SELECT 1 FROM files)");
      bulk = empty.step() && empty.integer(0) != 0;
    }
    if (bulk) index::drop_deferrable_indexes(db);
    stored_calls = bulk ? std::nullopt : read_stored_calls();
    stored_symbols = bulk ? std::nullopt : read_stored_symbols();
    db.exec(stored_symbols ? COUNT_SYMBOLS : STOP_COUNTING_SYMBOLS);
    components_changed = false;
    resolved_delta = unresolved_delta = 0;
  }

  std::optional<std::pair<std::int64_t, std::int64_t>> read_stored_calls() {
    auto st = db.prepare(
        "SELECT (SELECT value FROM meta WHERE key = ?1), (SELECT value FROM meta WHERE key = ?2)");
    st.bind(1, RESOLVED_KEY).bind(2, UNRESOLVED_KEY);
    if (!st.step() || st.is_null(0) || st.is_null(1)) return std::nullopt;
    return std::pair{st.integer(0), st.integer(1)};
  }

  std::optional<std::int64_t> read_stored_symbols() {
    auto st = db.prepare("SELECT value FROM meta WHERE key = ?");
    st.bind(1, SYMBOLS_KEY);
    if (!st.step() || st.is_null(0)) return std::nullopt;
    return st.integer(0);
  }

  std::int64_t relinked_resolved_count() {
    relinked_resolved.step();
    auto n = relinked_resolved.integer(0);
    relinked_resolved.reset();
    return n;
  }

  // Brings the stored call counts up to date, counting everything when they were missing.
  void store_calls() {
    std::pair<std::int64_t, std::int64_t> calls;
    if (stored_calls) {
      calls = {stored_calls->first + resolved_delta, stored_calls->second + unresolved_delta};
    } else {
      auto st = db.prepare("SELECT count(callee_id), count(*) FROM call_sites");
      st.step();
      calls = {st.integer(0), st.integer(1) - st.integer(0)};
    }
    auto count =
        db.prepare(stored_symbols ? "SELECT n FROM symbol_delta" : "SELECT count(*) FROM symbols");
    count.step();
    // An edit that moved nothing leaves the page as it is.
    if (stored_calls && stored_symbols && calls == *stored_calls && count.integer(0) == 0) return;
    auto put = db.prepare("INSERT OR REPLACE INTO meta VALUES(?, ?)");
    put.bind(1, RESOLVED_KEY).bind(2, std::to_string(calls.first)).run();
    put.bind(1, UNRESOLVED_KEY).bind(2, std::to_string(calls.second)).run();
    put.bind(1, SYMBOLS_KEY)
        .bind(2, std::to_string(stored_symbols.value_or(0) + count.integer(0)))
        .run();
  }

  void affect(const std::string& fqn) {
    if (bulk) return;  // everything is linked anyway
    auto dot = fqn.rfind('.');
    std::string head = dot == std::string::npos ? "" : fqn.substr(0, dot);
    std::string tail = dot == std::string::npos ? fqn : fqn.substr(dot + 1);
    mark_affected.bind(1, fqn).bind(2, head).bind(3, tail).run();
    // sites that name a class also reach its __init__
    if (tail == "__init__" && !head.empty()) affect(head);
  }

  // An import as it binds a name in a module: (module, imported module, name, alias).
  using Binding = std::tuple<std::string, std::string, std::string, std::string>;

  // The names an import binds in `module`, which other modules may import from it in turn.
  void affect_binding(const Binding& b) {
    const auto& [module, from, name, alias] = b;
    ParsedImport imp{0, from, name, alias};
    if (bulk || module.empty()) return;
    if (imp.name == "*") {
      std::vector<std::string> names;
      public_names.bind(1, imp.module);
      while (public_names.step()) names.push_back(public_names.text(0));
      public_names.reset();
      for (const auto& n : names) affect(module + "." + n);
    } else if (!imp.alias.empty() || !imp.name.empty()) {
      affect(module + "." + (imp.alias.empty() ? imp.name : imp.alias));
    }
  }

  std::optional<std::string> find_file_component;  // of the file file_id_of() last found
  bool find_file_is_test = false;
  std::string find_file_module;

  std::optional<std::int64_t> file_id_of(const std::string& path) {
    find_file.bind(1, path);
    std::optional<std::int64_t> id;
    if (find_file.step()) {
      id = find_file.integer(0);
      find_file_component = find_file.optional_text(1);
      find_file_is_test = find_file.integer(2) != 0;
      find_file_module = find_file.text(3);
    }
    find_file.reset();
    return id;
  }

  // Removes what a file holds (unless `keep_rows`: its imports, sites, symbols and their text
  // rows) and returns its old symbols; `bound` receives the bindings its imports made.
  std::vector<OldSymbol> clear_file(std::int64_t file_id, std::set<Binding>& bound,
                                    bool keep_rows = false) {
    if (!bulk) {
      old_bindings.bind(1, file_id);
      while (old_bindings.step()) {
        bound.emplace(old_bindings.text(0), old_bindings.text(1), old_bindings.text(2),
                      old_bindings.text(3));
      }
      old_bindings.reset();
    }
    std::vector<OldSymbol> old;
    old_symbols.bind(1, file_id);
    while (old_symbols.step()) {
      auto& o = old.emplace_back(
          OldSymbol{old_symbols.integer(0), old_symbols.text(1), old_symbols.text(2),
                    old_symbols.text(3), old_symbols.optional_text(4), old_symbols.optional_text(5),
                    old_symbols.integer(6), old_symbols.integer(7), old_symbols.integer(8) != 0,
                    std::nullopt, old_symbols.text(10), old_symbols.text(11)});
      if (!old_symbols.is_null(9)) o.parent_id = old_symbols.integer(9);
      o.type_of = old_symbols.text(12);
      o.fields = old_symbols.text(13);
    }
    old_symbols.reset();
    if (stored_calls && !keep_rows) {
      file_sites.bind(1, file_id).step();
      resolved_delta -= file_sites.integer(0);
      unresolved_delta -= file_sites.integer(1) - file_sites.integer(0);
      file_sites.reset();
    }
    if (!keep_rows) {
      clear_imports.bind(1, file_id).run();
      for (auto& st : clear_contents) st.bind(1, file_id).run();
      for (const auto& s : old) delete_text_rows(s.id);
      delete_file_symbols.bind(1, file_id).run();
    }
    return old;
  }

  void insert_text_rows(std::int64_t id, const std::string& name, const std::string& fqn,
                        const std::optional<std::string>& signature,
                        const std::optional<std::string>& docstring, const std::string& path) {
    insert_text.bind(1, id)
        .bind(2, index::name_text(name))
        .bind(3, fqn)
        .bind(4, signature)
        .bind(5, docstring)
        .bind(6, path)
        .run();
    insert_name_gram.bind(1, id).bind(2, name).run();
  }

  // An update writes the text rows of its new symbols once the merge has taken back the
  // declarations it re-extracted: those would be written, deleted and merged in again.
  void insert_new_text() {
    auto st = db.prepare(
        "SELECT s.id, s.name, s.fqn, s.signature, s.docstring, f.path FROM new_text n "
        "CROSS JOIN symbols s ON s.id = n.id CROSS JOIN files f ON f.id = s.file_id "
        "WHERE s.kind <> 'module'");
    while (st.step()) {
      insert_text_rows(st.integer(0), st.text(1), st.text(2), st.optional_text(3),
                       st.optional_text(4), st.text(5));
    }
  }

  struct OldSite {
    std::int64_t id, line;
    bool resolved;
  };

  // A receiver site's target, evidence and scopes are what evaluating its receiver found: its
  // key is the receiver as parsed.
  static std::string site_key(std::optional<std::int64_t> caller, const std::string& evidence,
                              const std::string& target, const std::string& fallbacks,
                              const std::string& scopes, const std::string& receiver = {},
                              const std::string& member = {},
                              const std::string& receiver_evidence = {}) {
    std::string key = caller ? std::to_string(*caller) : std::string("-");
    if (!receiver.empty()) {
      for (const auto* part : {&receiver, &member, &receiver_evidence}) {
        key.push_back('\x1e');
        key.append(*part);
      }
      return key;
    }
    for (const auto* part : {&evidence, &target, &fallbacks, &scopes}) {
      key.push_back('\x1f');
      key.append(*part);
    }
    return key;
  }

  void delete_text_rows(std::int64_t symbol_id) {
    delete_text.bind(1, symbol_id).run();
    delete_name_gram.bind(1, symbol_id).run();
  }

  void put_file(const ParsedFile& file, const FileState& state) {
    ensure_batch();
    auto stem = index::path_stem(file.path);
    auto base = std::string(index::last_component(stem));
    auto component = index::component_of(file.path, file.module, file.language);
    if (index::tree_components(file.language)) tree_languages.insert(file.language);
    auto bind_file = [&](Statement& st) {
      st.bind(1, file.path)
          .bind(2, stem)
          .bind(3, base)
          .bind(4, file.language)
          .bind(5, state.size)
          .bind(6, state.mtime_ns)
          .bind(7, state.hash)
          .bind(8, file.is_test)
          .bind(9, file.module)
          .bind(10, component)
          .bind(11, file.line_count);
    };

    std::unordered_map<std::string, std::deque<std::int64_t>> reusable;
    // Symbols that keep their fqn keep their row and id, and their text rows while their text
    // stays: an edit changes few.
    std::unordered_map<std::int64_t, OldSymbol> old_by_id;
    std::set<Binding> bound_before, bound_now;
    auto file_id = file_id_of(file.path);
    bool is_new = !file_id;
    std::map<std::string, std::string> embeds_before;  // Go struct fqn -> bases
    if (file_id && file.language == "go" && !bulk) {
      struct_bases.bind(1, *file_id);
      while (struct_bases.step()) embeds_before[struct_bases.text(0)] = struct_bases.text(1);
      struct_bases.reset();
    }
    // A call site the same but for its line keeps its row, its links and its edges.
    std::unordered_map<std::string, std::deque<OldSite>> kept_sites;
    // So does an import the same but for its line, and its targets.
    std::unordered_map<std::string, std::deque<std::pair<std::int64_t, std::int64_t>>> kept_imports;
    if (file_id) {
      old_sites.bind(1, *file_id);
      while (old_sites.step()) {
        auto key =
            site_key(old_sites.is_null(1) ? std::nullopt : std::optional(old_sites.integer(1)),
                     old_sites.text(3), old_sites.text(4), old_sites.optional_text(6).value_or(""),
                     old_sites.optional_text(7).value_or(""), old_sites.text(8), old_sites.text(9),
                     old_sites.text(10));
        kept_sites[key].push_back(
            {old_sites.integer(0), old_sites.integer(2), old_sites.integer(5) != 0});
      }
      old_sites.reset();
      old_imports.bind(1, *file_id);
      while (old_imports.step()) {
        kept_imports[old_imports.text(2) + '\x1f' + old_imports.text(3) + '\x1f' +
                     old_imports.text(4)]
            .emplace_back(old_imports.integer(0), old_imports.integer(1));
      }
      old_imports.reset();
    }
    if (file_id) {
      components_changed |= find_file_component != component || find_file_is_test != file.is_test;
      for (auto& s : clear_file(*file_id, bound_before, true)) {
        reusable[s.fqn].push_back(s.id);
        old_by_id.emplace(s.id, std::move(s));
      }
      update_file.bind(1, file.language)
          .bind(2, state.size)
          .bind(3, state.mtime_ns)
          .bind(4, state.hash)
          .bind(5, file.is_test)
          .bind(6, component)
          .bind(7, file.line_count)
          .bind(8, *file_id)
          .run();
      if (find_file_module != file.module)
        rename_module.bind(1, file.module).bind(2, *file_id).run();
    } else {
      components_changed = true;
      bind_file(insert_file);
      insert_file.run();
      file_id = db.last_insert_id();
      insert_path_gram.bind(1, *file_id).bind(2, file.path).run();
    }
    mark_changed.bind(1, *file_id).run();
    // An edited file keeps its path: the imports and #includes naming its module find it as
    // before, unless a package came or went above it.
    if (!file.module.empty() && (is_new || find_file_module != file.module)) affect(file.module);

    // A C or C++ declaration merged into its definition and extracted again as it was stays
    // merged: not inserted to be merged again (with the name index entries and the relinking
    // of its name that would cost).
    std::unordered_map<std::string, std::deque<OldSymbol>> merged_before;
    if (!is_new && !bulk && (file.language == "c" || file.language == "cpp")) {
      old_declarations.bind(1, *file_id);
      while (old_declarations.step()) {
        auto& o = old_declarations;
        merged_before[o.text(2)].push_back(
            OldSymbol{o.integer(1), o.text(2), o.text(3), o.text(4), o.optional_text(7),
                      o.optional_text(8), o.integer(5), o.integer(6), o.integer(9) != 0,
                      o.is_null(10) ? std::nullopt : std::optional(o.integer(10)), o.text(11),
                      o.text(12), o.integer(0)});
      }
      old_declarations.reset();
    }

    std::unordered_map<std::string, std::int64_t> ids;  // fqn -> id, first definition wins
    std::optional<std::int64_t> module_id;
    for (const auto& s : file.symbols) {
      std::optional<std::int64_t> id;
      if (auto it = reusable.find(s.fqn); it != reusable.end() && !it->second.empty()) {
        id = it->second.front();
        it->second.pop_front();
      }
      std::optional<std::int64_t> parent;
      if (auto it = ids.find(s.parent_fqn); it != ids.end()) parent = it->second;
      std::string bases;
      for (const auto& b : s.bases) bases += (bases.empty() ? "" : " ") + b;
      bool is_test = s.is_test || file.is_test;
      if (auto it = merged_before.find(s.fqn); !id && it != merged_before.end()) {
        auto& rows = it->second;
        auto same = std::find_if(rows.begin(), rows.end(), [&](const OldSymbol& d) {
          return d.name == s.name && d.kind == s.kind && d.start_line == s.start_line &&
                 d.end_line == s.end_line && d.signature == s.signature &&
                 d.docstring == s.docstring && d.is_test == is_test && d.parent_id == parent &&
                 d.parent_fqn == s.parent_fqn && d.bases == bases;
        });
        if (same != rows.end()) {
          keep_declaration.bind(1, same->row).run();
          ids.emplace(s.fqn, same->id);
          rows.erase(same);
          continue;
        }
      }
      const OldSymbol* old = nullptr;
      if (id) {
        auto it = old_by_id.find(*id);
        old = &it->second;
        // What linking reads of a symbol: a site of this file kept as it was must be linked
        // again where another candidate may now come first. No site links to a module symbol.
        auto fields = types::encode_fields(s.fields);
        // What type evaluation reads of a symbol: receiver sites that consulted it are evaluated
        // again.
        if (old->kind != s.kind ||
            (s.kind != "module" &&
             (old->signature != s.signature ||
              old->end_line - old->start_line != s.end_line - s.start_line)) ||
            old->type_of != s.type_of || old->fields != fields || old->bases != bases) {
          affect(s.fqn);
        }
        if (old->name != s.name) {
          rename_symbol.bind(1, s.name).bind(2, utils::lower(s.name)).bind(3, *id).run();
        }
        if (old->kind != s.kind || old->start_line != s.start_line || old->end_line != s.end_line ||
            old->signature != s.signature || old->docstring != s.docstring ||
            old->is_test != is_test || old->parent_id != parent ||
            old->parent_fqn != s.parent_fqn || old->bases != bases || old->type_of != s.type_of ||
            old->fields != fields) {
          update_symbol.bind(1, s.kind)
              .bind(2, s.start_line)
              .bind(3, s.end_line)
              .bind(4, s.signature)
              .bind(5, s.docstring)
              .bind(6, is_test)
              .bind(7, parent)
              .bind(8, s.parent_fqn)
              .bind(9, bases)
              .bind(10, s.type_of)
              .bind(11, fields)
              .bind(12, *id)
              .run();
        }
      } else {
        insert_symbol.bind(1, std::optional<std::int64_t>{})
            .bind(2, *file_id)
            .bind(3, s.fqn)
            .bind(4, s.name)
            .bind(5, utils::lower(s.name))
            .bind(6, s.kind)
            .bind(7, s.start_line)
            .bind(8, s.end_line)
            .bind(9, s.signature)
            .bind(10, s.docstring)
            .bind(11, is_test)
            .bind(12, parent)
            .bind(13, s.parent_fqn)
            .bind(14, bases)
            .bind(15, s.type_of)
            .bind(16, types::encode_fields(s.fields))
            .run();
        id = db.last_insert_id();
        affect(s.fqn);
      }
      ids.emplace(s.fqn, *id);
      bool same_text = false;
      if (old) {
        same_text = old->kind != "module" && s.kind != "module" && old->name == s.name &&
                    old->signature == s.signature && old->docstring == s.docstring;
        if (!same_text) delete_text_rows(*id);
        old_by_id.erase(*id);
      }
      if (s.kind == "module") {
        if (!module_id) module_id = id;
        continue;
      }
      if (same_text) continue;
      if (bulk) {
        insert_text_rows(*id, s.name, s.fqn, s.signature, s.docstring, file.path);
      } else {
        mark_new_text.bind(1, *id).run();
      }
    }
    for (const auto& [fqn, left] : reusable) {
      if (!left.empty()) affect(fqn);
    }
    for (const auto& [old_id, old] : old_by_id) {
      delete_text_rows(old_id);
      delete_symbol.bind(1, old_id).run();
    }

    for (const auto& call : file.calls) {
      bool typed = call.target.empty() && !call.receiver.empty();
      const std::string& receiver = typed ? call.receiver : std::string();
      std::optional<std::int64_t> caller = module_id;
      if (auto it = ids.find(call.caller_fqn); it != ids.end()) caller = it->second;
      std::string fallbacks;
      for (std::size_t i = 0; i < call.fallbacks.size(); ++i) {
        auto rank = static_cast<std::int64_t>(i) + (i >= call.equally_near ? EQUALLY_NEAR : 1);
        if (i) fallbacks.push_back(' ');
        fallbacks.append(std::to_string(rank)).append(":").append(call.fallbacks[i]);
      }
      if (!kept_sites.empty()) {
        std::set<std::string> modules(call.scope_modules.begin(), call.scope_modules.end());
        std::string scopes;
        for (const auto& m : modules) {
          if (!scopes.empty()) scopes.push_back(' ');
          scopes.append(m);
        }
        auto it = kept_sites.find(site_key(caller, call.evidence, call.target, fallbacks, scopes,
                                           receiver, call.member, call.evidence));
        if (it != kept_sites.end() && !it->second.empty()) {
          auto old = it->second.front();
          it->second.pop_front();
          if (old.line != call.line) {
            site_line.bind(1, call.line).bind(2, old.id).run();
            edge_line.bind(1, call.line).bind(2, old.id).run();
          }
          continue;
        }
      }
      ++unresolved_delta;  // linked at commit
      insert_site.bind(1, *file_id)
          .bind(2, caller)
          .bind(3, call.line)
          .bind(4, call.evidence)
          .bind(5, call.target)
          .bind(6, receiver)
          .bind(7, typed ? call.member : std::string())
          .bind(8, typed ? call.evidence : std::string())
          .run();
      auto site = db.last_insert_id();
      if (!bulk) mark_relink.bind(1, site).run();
      if (typed) continue;  // its scope is what evaluating the receiver finds
      for (std::size_t i = 0; i < call.fallbacks.size(); ++i) {
        auto rank = static_cast<std::int64_t>(i) + (i >= call.equally_near ? EQUALLY_NEAR : 1);
        insert_fallback.bind(1, site).bind(2, rank).bind(3, call.fallbacks[i]).run();
      }
      for (const auto& module : call.scope_modules)
        insert_scope.bind(1, site).bind(2, module).run();
    }
    for (const auto& [key, sites] : kept_sites) {
      for (const auto& old : sites) {
        (old.resolved ? resolved_delta : unresolved_delta) -= 1;
        for (auto& st : delete_site) st.bind(1, old.id).run();
      }
    }
    for (const auto& imp : file.imports) {
      if (!bulk) bound_now.emplace(file.module, imp.module, imp.name, imp.alias);
      if (auto it = kept_imports.find(imp.module + '\x1f' + imp.name + '\x1f' + imp.alias);
          it != kept_imports.end() && !it->second.empty()) {
        auto [id, line] = it->second.front();
        it->second.pop_front();
        if (line != imp.line) import_line.bind(1, imp.line).bind(2, id).run();
        continue;
      }
      insert_import.bind(1, *file_id)
          .bind(2, imp.line)
          .bind(3, imp.module)
          .bind(4, imp.name)
          .bind(5, imp.alias)
          .run();
      if (!bulk) mark_reimport.bind(1, db.last_insert_id()).run();
    }
    for (const auto& [key, imports] : kept_imports) {
      for (const auto& [id, line] : imports) delete_import.bind(1, id).run();
    }
    // Only a binding that came or went changes what other modules reach through this one.
    std::vector<Binding> changed;
    std::set_symmetric_difference(bound_before.begin(), bound_before.end(), bound_now.begin(),
                                  bound_now.end(), std::back_inserter(changed));
    for (const auto& b : changed) affect_binding(b);
    if (bulk) return;
    if (file.language == "c" || file.language == "cpp") {
      if (is_new || !changed.empty()) mark_include_changed.bind(1, *file_id).run();
      if (is_new) include_target_changed(file.path);
    } else if (file.language == "go") {
      go_packages.insert(file.module);
      // a struct whose embeddings changed promotes other methods now
      for (const auto& s : file.symbols) {
        if (s.kind != "struct") continue;
        std::string bases;
        for (const auto& b : s.bases) bases += (bases.empty() ? "" : " ") + b;
        auto before = embeds_before.find(s.fqn);
        if (before == embeds_before.end() ? !bases.empty() : before->second != bases)
          go_scopes.push_back(s.fqn);
        if (before != embeds_before.end()) embeds_before.erase(before);
      }
      for (const auto& [fqn, bases] : embeds_before) {
        if (!bases.empty()) go_scopes.push_back(fqn);
      }
    }
  }

  // A C or C++ file that came or went may be what an #include elsewhere finds now: those
  // includes are resolved again (each dotted tail of the path is a name they may use).
  void include_target_changed(const std::string& path) {
    std::string dots = index::path_stem(path);
    std::replace(dots.begin(), dots.end(), '/', '.');
    for (std::size_t at = 0; at != std::string::npos;) {
      auto tail = dots.substr(at);
      reimport_module.bind(1, tail).run();
      includers_of.bind(1, tail).run();
      at = dots.find('.', at);
      if (at != std::string::npos) ++at;
    }
  }

  void remove_file(const std::string& path) {
    ensure_batch();
    auto file_id = file_id_of(path);
    if (!file_id) return;
    {
      auto st = db.prepare("SELECT language FROM files WHERE id = ?");
      st.bind(1, *file_id);
      if (st.step() && index::tree_components(st.text(0))) tree_languages.insert(st.text(0));
    }
    std::set<Binding> bound;
    std::string language, module;
    file_language.bind(1, *file_id);
    if (file_language.step()) {
      language = file_language.text(0);
      module = file_language.text(1);
    }
    file_language.reset();
    if (!bulk && language == "go") go_packages.insert(module);
    if (!bulk && (language == "c" || language == "cpp")) include_target_changed(path);
    if (!bulk && language == "go") {
      struct_bases.bind(1, *file_id);
      while (struct_bases.step()) {
        if (!struct_bases.text(1).empty()) go_scopes.push_back(struct_bases.text(0));
      }
      struct_bases.reset();
    }
    for (auto& s : clear_file(*file_id, bound)) affect(s.fqn);
    for (const auto& b : bound) affect_binding(b);
    components_changed = true;
    delete_file.bind(1, *file_id).run();
    delete_path_gram.bind(1, *file_id).run();
    db.prepare("INSERT OR IGNORE INTO gone_files VALUES(?)").bind(1, *file_id).run();
  }

  // Declarations whose definition was extracted again or removed come back as symbols (under
  // their old id while it is free) to be merged again or stay; see UNMERGE.
  void unmerge() {
    db.exec(UNMERGE);
    struct Returning {
      std::int64_t row, file_id, start_line, end_line;
      std::string fqn, name, folded, kind, parent_fqn, bases, path;
      std::optional<std::string> signature, docstring;
      bool is_test, taken;
      std::optional<std::int64_t> parent;
      std::int64_t id;
    };
    std::vector<Returning> back;
    {
      auto st = db.prepare(RETURNING_DECLARATIONS);
      while (st.step()) {
        back.push_back(
            {st.integer(0), st.integer(1), st.integer(6), st.integer(7), st.text(2), st.text(3),
             st.text(4), st.text(5), st.text(12), st.text(13), st.text(14), st.optional_text(8),
             st.optional_text(9), st.integer(10) != 0, st.integer(15) != 0,
             st.is_null(11) ? std::nullopt : std::optional(st.integer(11)), st.integer(16)});
      }
    }
    auto forget = db.prepare("DELETE FROM declarations WHERE id = ?");
    auto mark = db.prepare("INSERT OR IGNORE INTO restored VALUES(?)");
    for (const auto& d : back) {
      insert_symbol.bind(1, d.taken ? std::nullopt : std::optional(d.id))
          .bind(2, d.file_id)
          .bind(3, d.fqn)
          .bind(4, d.name)
          .bind(5, d.folded)
          .bind(6, d.kind)
          .bind(7, d.start_line)
          .bind(8, d.end_line)
          .bind(9, d.signature)
          .bind(10, d.docstring)
          .bind(11, d.is_test)
          .bind(12, d.parent)
          .bind(13, d.parent_fqn)
          .bind(14, d.bases)
          .bind(15, "")
          .bind(16, "")
          .run();
      auto id = db.last_insert_id();
      mark_new_text.bind(1, id).run();
      forget.bind(1, d.row).run();
      mark.bind(1, id).run();
      affect(d.fqn);
    }
  }

  void commit() {
    if (!in_batch) return;
    if (!bulk) {
      unmerge();
      affect_reexports();
      affect_promotions();
    }
    db.exec(bulk ? RELINK_ALL : RELINK_CHANGED);
    db.exec(bulk ? MERGE_CANDIDATES_ALL : MERGE_CANDIDATES_CHANGED);
    if (!bulk) db.exec(MERGE_CANDIDATES_RESTORED);
    db.exec(MERGE_DECLARATIONS);
    if (!bulk) {
      db.exec(SYNC_STALE_DOCS);
      insert_new_text();
    }
    // Includes are linked before calls: a C or C++ call sees what its file includes.
    db.exec(LINK_IMPORTS);
    db.exec(LINK_INCLUDES);
    if (!bulk) relink_includers.bind(1, MAX_INCLUDE_DEPTH).run();
    bool c_sites = reach_includes();
    // Linking changes only the sites in relink: their resolved count before and after is the delta.
    types::resolve_receivers(db, bulk);
    auto resolved_before = stored_calls ? relinked_resolved_count() : 0;
    db.exec(LINK_CALLS);
    if (c_sites) db.exec(ONE_DEFINITION);
    db.exec(EQUALLY_NEAR_AND_CONSTRUCTION);
    if (c_sites) db.exec(CONSTRUCTORS);
    link_promoted();
    link_reexports();
    db.exec(INSERT_EDGES);
    if (components_changed || bulk || !tree_languages.empty()) update_dominant_package();
    update_tree_components();
    if (bulk) index::create_deferrable_indexes(db);
    if (stored_calls) {
      auto linked = relinked_resolved_count() - resolved_before;
      resolved_delta += linked;
      unresolved_delta -= linked;
    }
    store_calls();
    db.exec(CLEAR_BATCH_TABLES);
    db.exec("COMMIT");
    in_batch = false;
    end_journal();
    go_packages.clear();
    go_scopes.clear();
  }

  // For each C or C++ file with sites to link: the modules of the files it includes, within
  // MAX_INCLUDE_DEPTH, and its own (a header and its source file share one, or its tail).
  // Whether there was any such file.
  bool reach_includes() {
    std::vector<std::int64_t> origins;
    {
      auto st = db.prepare(
          "SELECT DISTINCT c.file_id FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id "
          "CROSS JOIN files f ON f.id = c.file_id WHERE f.language IN ('c', 'cpp')");
      while (st.step()) origins.push_back(st.integer(0));
    }
    if (origins.empty()) return false;
    auto targets_st = db.prepare(
        "SELECT target_file_id FROM imports WHERE file_id = ? AND target_file_id IS NOT NULL");
    auto module_st = db.prepare("SELECT module FROM files WHERE id = ?");
    auto insert = db.prepare("INSERT OR IGNORE INTO reach VALUES(?, ?)");
    auto insert_file = db.prepare("INSERT OR IGNORE INTO reach_files VALUES(?, ?)");
    std::unordered_map<std::int64_t, std::vector<std::int64_t>> targets;
    std::unordered_map<std::int64_t, std::string> modules;
    auto targets_of = [&](std::int64_t id) -> const std::vector<std::int64_t>& {
      auto [it, fresh] = targets.try_emplace(id);
      if (fresh) {
        targets_st.bind(1, id);
        while (targets_st.step()) it->second.push_back(targets_st.integer(0));
        targets_st.reset();
      }
      return it->second;
    };
    auto module_of = [&](std::int64_t id) -> const std::string& {
      auto [it, fresh] = modules.try_emplace(id);
      if (fresh) {
        module_st.bind(1, id);
        if (module_st.step()) it->second = module_st.text(0);
        module_st.reset();
      }
      return it->second;
    };
    for (auto origin : origins) {
      std::set<std::int64_t> seen{origin};
      std::set<std::string> reached{module_of(origin)};
      std::vector<std::int64_t> level{origin};
      for (int depth = 0; depth < MAX_INCLUDE_DEPTH && !level.empty(); ++depth) {
        std::vector<std::int64_t> next;
        for (auto f : level) {
          for (auto t : targets_of(f)) {
            if (!seen.insert(t).second) continue;
            next.push_back(t);
            reached.insert(module_of(t));
          }
        }
        level = std::move(next);
      }
      // A header's dotted tails too: `gtest/internal/gtest-port.h` pairs with `src/gtest-port.cc`.
      std::set<std::string> tails;
      for (const auto& m : reached) {
        for (auto dot = m.find('.'); dot != std::string::npos; dot = m.find('.', dot + 1))
          tails.insert(m.substr(dot + 1));
      }
      reached.merge(tails);
      for (const auto& m : reached) insert.bind(1, origin).bind(2, m).run();
      for (auto f : seen) {
        if (f != origin) insert_file.bind(1, origin).bind(2, f).run();
      }
    }
    return true;
  }

  // Go: `s.Close()` with s a Server that embeds Base names Server.Close; when no file defines
  // it, Base.Close of the same package is the callee, the nearest embedding first. Two at one
  // depth are ambiguous and make no edge, as they do for the compiler.
  void link_promoted() {
    std::vector<std::pair<std::int64_t, std::string>> open;
    {
      auto st = db.prepare(
          "SELECT c.id, c.target_fqn FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id "
          "CROSS JOIN files f ON f.id = c.file_id WHERE c.callee_id IS NULL "
          "AND c.target_fqn <> '' AND f.language = 'go'");
      while (st.step()) open.emplace_back(st.integer(0), st.text(1));
    }
    if (open.empty()) return;
    auto scopes = db.prepare("SELECT module FROM call_scopes WHERE site_id = ?");
    auto embedding = db.prepare(
        "SELECT s.bases, f.module FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
        "WHERE s.fqn = ? AND s.bases <> ''");
    auto bases_in = db.prepare(
        "SELECT s.bases FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
        "WHERE s.fqn = ? AND f.module = ? AND s.bases <> ''");
    auto method_in = db.prepare(
        "SELECT s.id FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
        "WHERE s.fqn = ? AND f.module = ? AND s.kind <> 'module' "
        "ORDER BY s.start_line - s.end_line, s.id LIMIT 1");
    auto link = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
    // Most open sites name no embedding struct: a full index reads those structs' names once.
    std::unordered_map<std::string, bool> embeds;
    bool all_known = bulk;
    if (bulk) {
      auto st =
          db.prepare("SELECT DISTINCT fqn FROM symbols WHERE bases <> '' AND kind = 'struct'");
      while (st.step()) embeds.emplace(st.text(0), true);
    }
    auto split_bases = [](const std::string& text) {
      std::vector<std::string> out;
      for (std::size_t at = 0; at < text.size();) {
        auto end = text.find(' ', at);
        if (end == std::string::npos) end = text.size();
        if (end > at) out.push_back(text.substr(at, end - at));
        at = end + 1;
      }
      return out;
    };
    for (const auto& [site, target] : open) {
      auto dot = target.rfind('.');
      if (dot == std::string::npos || dot == 0) continue;
      std::string type = target.substr(0, dot), method = target.substr(dot + 1);
      if (auto known = embeds.find(type); known != embeds.end() ? !known->second : all_known)
        continue;
      std::vector<std::string> allowed;
      scopes.bind(1, site);
      while (scopes.step()) allowed.push_back(scopes.text(0));
      scopes.reset();
      std::vector<std::pair<std::string, std::string>> found;  // (bases, package module)
      bool any = false;
      embedding.bind(1, type);
      while (embedding.step()) {
        any = true;
        auto module = embedding.text(1);
        bool in_scope = allowed.empty();
        for (const auto& k : allowed) {
          in_scope = in_scope || k == module ||
                     (!module.empty() && k.size() > module.size() && k.ends_with(module) &&
                      k[k.size() - module.size() - 1] == '.');
        }
        if (in_scope) found.emplace_back(embedding.text(0), module);
      }
      embedding.reset();
      if (!all_known) embeds.emplace(type, any);
      if (found.size() != 1) continue;  // no embedding, or one type name in two packages
      const auto& module = found.front().second;
      std::vector<std::string> level = split_bases(found.front().first);
      std::set<std::string> seen(level.begin(), level.end());
      for (int depth = 0; depth < 3 && !level.empty(); ++depth) {
        std::set<std::int64_t> hits;
        for (const auto& base : level) {
          method_in.bind(1, base + "." + method).bind(2, module);
          if (method_in.step()) hits.insert(method_in.integer(0));
          method_in.reset();
        }
        if (hits.size() == 1) link.bind(1, *hits.begin()).bind(2, site).run();
        if (!hits.empty()) break;
        std::vector<std::string> next;
        for (const auto& base : level) {
          bases_in.bind(1, base).bind(2, module);
          while (bases_in.step()) {
            for (auto& b : split_bases(bases_in.text(0))) {
              if (seen.insert(b).second) next.push_back(b);
            }
          }
          bases_in.reset();
        }
        level = std::move(next);
      }
    }
  }

  // What appeared or vanished in a Go package may be promoted into a struct embedding its
  // type: sites naming the struct's member are linked again, and so are those of the members
  // of structs whose embeddings may have changed.
  void affect_promotions() {
    for (const auto& fqn : go_scopes) relink_members.bind(1, fqn).run();
    if (go_packages.empty()) return;
    std::vector<std::tuple<std::string, std::string>> affected;  // (head, tail)
    {
      auto st = db.prepare("SELECT head, tail FROM affected WHERE head <> ''");
      while (st.step()) affected.emplace_back(st.text(0), st.text(1));
    }
    if (affected.empty()) return;
    auto structs = db.prepare(
        "SELECT s.fqn, s.bases FROM files f CROSS JOIN symbols s ON s.file_id = f.id "
        "WHERE f.module = ? AND s.bases <> ''");
    for (const auto& package : go_packages) {
      std::map<std::string, std::vector<std::string>> embeds;
      structs.bind(1, package);
      while (structs.step()) {
        auto& list = embeds[structs.text(0)];
        std::string text = structs.text(1);
        for (std::size_t at = 0; at < text.size();) {
          auto end = std::min(text.find(' ', at), text.size());
          if (end > at) list.push_back(text.substr(at, end - at));
          at = end + 1;
        }
      }
      structs.reset();
      for (const auto& [type, direct] : embeds) {
        std::set<std::string> all(direct.begin(), direct.end());
        std::vector<std::string> level = direct;
        for (int depth = 1; depth < 3 && !level.empty(); ++depth) {
          std::vector<std::string> next;
          for (const auto& b : level) {
            if (auto e = embeds.find(b); e != embeds.end()) {
              for (const auto& inner : e->second) {
                if (all.insert(inner).second) next.push_back(inner);
              }
            }
          }
          level = std::move(next);
        }
        for (const auto& [head, tail] : affected) {
          if (all.count(head) != 0) affect(type + "." + tail);
        }
      }
    }
  }

  // Splits of an fqn where a re-export may stand: before its last name (a function or class) and
  // before its last two (a class's member). Yields (module, name, rest).
  template <typename F>
  static void each_split(const std::string& fqn, F&& f) {
    auto last = fqn.rfind('.');
    if (last == std::string::npos || last == 0) return;
    auto name_end = fqn.size();
    for (auto dot = last; dot != std::string::npos && dot > 0; dot = fqn.rfind('.', dot - 1)) {
      f(fqn.substr(0, dot), fqn.substr(dot + 1, name_end - dot - 1), fqn.substr(name_end));
      if (name_end != fqn.size()) break;
      name_end = dot;
    }
  }

  // The symbol an fqn names through re-exports, breadth first, at most MAX_REEXPORTS deep.
  std::optional<std::int64_t> through_reexports(const std::string& fqn) {
    if (auto it = reexport_cache.find(fqn); it != reexport_cache.end()) return it->second;
    std::optional<std::int64_t> found;
    std::vector<std::string> todo{fqn};
    std::set<std::string> seen{fqn};
    for (int depth = 0; depth < MAX_REEXPORTS && !found && !todo.empty(); ++depth) {
      std::vector<std::string> next;
      for (const auto& f : todo) {
        each_split(
            f, [&](const std::string& module, const std::string& name, const std::string& rest) {
              if (found || importing_modules.count(module) == 0) return;
              std::vector<std::string> targets;
              reexport_of.bind(1, module).bind(2, name);
              while (reexport_of.step()) targets.push_back(reexport_of.text(0) + rest);
              reexport_of.reset();
              for (const auto& target : targets) {
                if (found || !seen.insert(target).second) continue;
                symbol_by_fqn.bind(1, target);
                if (symbol_by_fqn.step()) found = symbol_by_fqn.integer(0);
                symbol_by_fqn.reset();
                next.push_back(target);
              }
            });
        if (found) break;
      }
      todo = std::move(next);
    }
    reexport_cache.emplace(fqn, found);
    return found;
  }

  // Sites still unlinked whose target (or a fallback) is a name a module imported and so
  // re-exports: linked to the symbol the chain of imports leads to. Sites with scope rows come
  // from languages without re-exports and are left alone.
  void link_reexports() {
    reexport_cache.clear();
    importing_modules.clear();
    {
      auto st = db.prepare(
          "SELECT DISTINCT f.module FROM files f WHERE EXISTS (SELECT 1 FROM imports i "
          "WHERE i.file_id = f.id)");
      while (st.step()) importing_modules.insert(st.text(0));
    }
    std::vector<std::pair<std::int64_t, std::string>> open;
    {
      auto st = db.prepare(
          "SELECT c.id, c.target_fqn FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id "
          "WHERE c.callee_id IS NULL AND c.target_fqn <> '' "
          "AND NOT EXISTS (SELECT 1 FROM call_scopes k WHERE k.site_id = c.id)");
      while (st.step()) open.emplace_back(st.integer(0), st.text(1));
    }
    auto fallbacks = db.prepare("SELECT fqn FROM call_fallbacks WHERE site_id = ? ORDER BY rank");
    auto link = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
    for (const auto& [site, target] : open) {
      auto callee = through_reexports(target);
      if (!callee) {
        std::vector<std::string> names;
        fallbacks.bind(1, site);
        while (fallbacks.step()) names.push_back(fallbacks.text(0));
        fallbacks.reset();
        for (const auto& n : names) {
          if ((callee = through_reexports(n))) break;
        }
      }
      if (callee) link.bind(1, *callee).bind(2, site).run();
    }
  }

  // What appeared or vanished is also named, through re-exports, by the modules importing it:
  // their sites are linked again too.
  void affect_reexports() {
    std::vector<std::string> todo;
    {
      auto st = db.prepare("SELECT fqn FROM affected");
      while (st.step()) todo.push_back(st.text(0));
    }
    std::set<std::string> seen(todo.begin(), todo.end());
    for (int depth = 0; depth < MAX_REEXPORTS && !todo.empty(); ++depth) {
      std::vector<std::string> next;
      for (const auto& f : todo) {
        each_split(
            f, [&](const std::string& module, const std::string& name, const std::string& rest) {
              reexporters.bind(1, module).bind(2, name);
              while (reexporters.step()) {
                auto alias = reexporters.text(0) + rest;
                if (seen.insert(alias).second) next.push_back(alias);
              }
              reexporters.reset();
            });
      }
      for (const auto& a : next) affect(a);
      todo = std::move(next);
    }
  }

  // Which package, if any, holds most production files (see split_component): a Python
  // package, or a C or C++ project's src/<name>/. Go, Java and Rust components come from their
  // folders and package trees instead.
  void update_dominant_package() {
    std::string dominant;
    {
      auto st = db.prepare(
          "SELECT component, count(*), (SELECT count(*) FROM files WHERE is_test = 0 AND "
          "language NOT IN ('go', 'java', 'rust')) FROM files WHERE is_test = 0 AND "
          "language NOT IN ('go', 'java', 'rust') GROUP BY component ORDER BY 2 DESC, 1 LIMIT 1");
      if (st.step() && st.integer(1) >= index::DOMINANT_SHARE * st.real(2)) dominant = st.text(0);
    }
    db.prepare("INSERT OR REPLACE INTO meta VALUES('dominant_package', ?)").bind(1, dominant).run();
  }

  // A file of a tree language is in the package right below its language's package root, which
  // any file added or removed may move: the files of a touched language are placed again.
  void update_tree_components() {
    for (const auto& language : tree_languages) {
      std::vector<std::tuple<std::int64_t, std::string, std::string>> files;
      std::vector<std::string> modules;
      {
        auto st = db.prepare("SELECT id, module, component FROM files WHERE language = ?");
        st.bind(1, language);
        while (st.step()) {
          files.emplace_back(st.integer(0), st.text(1), st.text(2));
          modules.push_back(st.text(1));
        }
      }
      auto root = index::package_root(modules);
      auto set = db.prepare("UPDATE files SET component = ? WHERE id = ?");
      for (const auto& [id, module, component] : files) {
        if (module.empty()) continue;
        auto placed = index::component_below(module, root);
        if (placed != component) set.bind(1, placed).bind(2, id).run();
      }
    }
    tree_languages.clear();
  }

  void rollback() {
    if (!in_batch) return;
    tree_languages.clear();
    in_batch = false;
    db.exec("ROLLBACK");
    end_journal();
  }

  bool index_empty() {
    auto st = db.prepare("SELECT NOT EXISTS (SELECT 1 FROM files)");
    return st.step() && st.integer(0) != 0;
  }

  void end_journal() {
    if (journaled) index::restore_log(db);
    journaled = false;
  }
};

IndexWriter::IndexWriter(const std::filesystem::path& repository_root)
    : impl_(std::make_unique<Impl>(repository_root)) {}

IndexWriter::~IndexWriter() {
  try {
    impl_->rollback();
  } catch (...) {
    // the connection closes anyway, and SQLite discards the open transaction with it
  }
}

std::map<std::string, FileState> IndexWriter::file_states() {
  std::map<std::string, FileState> states;
  auto st = impl_->db.prepare("SELECT path, mtime_ns, size, hash, module FROM files ORDER BY path");
  while (st.step()) {
    states.emplace_hint(states.end(), st.text(0),
                        FileState{st.integer(1), st.integer(2), st.text(3), st.text(4)});
  }
  return states;
}

std::map<std::string, std::string> IndexWriter::skipped() {
  std::map<std::string, std::string> out;
  auto st = impl_->db.prepare("SELECT path, reason FROM skipped");
  while (st.step()) out[st.text(0)] = st.text(1);
  return out;
}

void IndexWriter::begin() {
  impl_->begin();
}

void IndexWriter::put_file(const ParsedFile& file, const FileState& state) {
  impl_->put_file(file, state);
}

void IndexWriter::touch_file(const std::string& path, const FileState& state) {
  impl_->ensure_batch();
  impl_->touch.bind(1, state.mtime_ns).bind(2, state.size).bind(3, state.hash).bind(4, path).run();
}

void IndexWriter::remove_file(const std::string& path) {
  impl_->remove_file(path);
}

void IndexWriter::set_skipped(const std::map<std::string, std::string>& path_to_reason) {
  impl_->ensure_batch();
  if (!impl_->bulk && skipped() == path_to_reason) return;  // the same files skipped as before
  impl_->db.exec("DELETE FROM skipped");
  auto st = impl_->db.prepare("INSERT OR REPLACE INTO skipped VALUES(?, ?)");
  for (const auto& [path, reason] : path_to_reason) st.bind(1, path).bind(2, reason).run();
}

void IndexWriter::commit() {
  impl_->commit();
}

void IndexWriter::rollback() {
  impl_->rollback();
}

index::IndexStats IndexWriter::stats() {
  auto calls = impl_->read_stored_calls();
  auto symbols = impl_->read_stored_symbols();
  if (!calls || !symbols) return index::read_stats(impl_->db);
  index::IndexStats stats;
  auto st = impl_->db.prepare("SELECT count(*) FROM files");
  st.step();
  stats.files = st.integer(0);
  stats.symbols = *symbols;
  stats.calls = calls->first;
  stats.unresolved_calls = calls->second;
  auto skipped = impl_->db.prepare("SELECT reason, count(*) FROM skipped GROUP BY reason");
  while (skipped.step()) stats.skipped[skipped.text(0)] = skipped.integer(1);
  return stats;
}

}  // namespace orvane_tamsel::indexer
