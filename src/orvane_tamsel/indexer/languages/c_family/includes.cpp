// C and C++ call linking: what a file's #includes reach, and the sites linked within it.

#include <algorithm>
#include <set>
#include <unordered_map>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/indexer/languages/c_family/linking.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

#define TAMSEL_BODY_FIRST "s.start_line - s.end_line"
// An overload or namesake whose parameters fit the arguments first.
#define TAMSEL_FITS "c_fits(s.signature, s.name, o.arguments, o.argument_kinds) DESC"
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
// (`o` is the site again: an ORDER BY may not name the outer row.)
#define TAMSEL_C_CANDIDATES(where)                                                                \
  "(SELECT s.id FROM call_sites o JOIN symbols s ON s.fqn = call_sites.target_fqn "               \
  "AND s.kind <> 'module' WHERE o.id = call_sites.id AND " where " ORDER BY " TAMSEL_FITS         \
  ", " TAMSEL_BODY_FIRST                                                                          \
  ", s.id LIMIT 1), "                                                                             \
  "(SELECT s.id FROM call_sites o JOIN call_fallbacks b ON b.site_id = o.id "                     \
  "JOIN symbols s ON s.fqn = b.fqn AND s.kind <> 'module' "                                       \
  "WHERE o.id = call_sites.id AND " where " ORDER BY b.rank, " TAMSEL_FITS ", " TAMSEL_BODY_FIRST \
  ", s.id LIMIT 1)"
#define TAMSEL_CALLEE_FQN "(SELECT fqn FROM symbols WHERE id = call_sites.callee_id)"
// Fallback ranks from here on mark names equally near (EQUALLY_NEAR_RANK).
#define TAMSEL_EQUALLY_NEAR "1000000"
#define TAMSEL_CALLEE_FILE "(SELECT file_id FROM symbols WHERE id = call_sites.callee_id)"
#define TAMSEL_FITTING                                                                           \
  "c_fits(s.signature, s.name, call_sites.arguments, call_sites.argument_kinds) >= (SELECT "     \
  "c_fits(signature, name, call_sites.arguments, call_sites.argument_kinds) FROM symbols WHERE " \
  "id = call_sites.callee_id)"
// A nearer tier's name whose parameters cannot take the arguments gives way to a farther one's
// (GetTestSuite(int) in the header, the four-argument one defined in gtest.cc); the last tier,
// which holds the site's own file, takes it when nothing fits.
#define TAMSEL_FITS_AT_ALL " AND c_fits(s.signature, s.name, o.arguments, o.argument_kinds) > 0"
constexpr const char* LINK_CALLS = R"sql(
UPDATE call_sites SET callee_id = coalesce(
    )sql" TAMSEL_C_CANDIDATES("s.file_id = call_sites.file_id" TAMSEL_FITS_AT_ALL) R"sql(,
    )sql" TAMSEL_C_CANDIDATES(TAMSEL_INCLUDED TAMSEL_FITS_AT_ALL) R"sql(,
    )sql" TAMSEL_C_CANDIDATES(TAMSEL_REACHED) R"sql()
  WHERE id IN (SELECT site_id FROM relink) AND )sql" TAMSEL_C_SITE R"sql(
    AND id NOT IN (SELECT site_id FROM macro_copies)
    -- A site with no name and no fallbacks to look up links to nothing: left as it is when unlinked.
    AND (target_fqn <> '' OR callee_id IS NOT NULL
      OR EXISTS (SELECT 1 FROM call_fallbacks b WHERE b.site_id = call_sites.id));
)sql";
constexpr const char* ONE_DEFINITION = R"sql(
-- One definition or no edge: a C or C++ call whose name has bodies in two files of the tier it
-- was found in (included files, or their modules' files) is ambiguous. Declarations of one
-- function do not count twice, nor do bodies whose parameters do not fit the arguments when
-- the callee's do.
UPDATE call_sites SET callee_id = NULL
  WHERE id IN (SELECT site_id FROM relink) AND callee_id IS NOT NULL AND )sql" TAMSEL_C_SITE R"sql(
    AND )sql" TAMSEL_CALLEE_FILE R"sql( <> call_sites.file_id
    AND CASE WHEN EXISTS (SELECT 1 FROM reach_files r WHERE r.origin = call_sites.file_id
                            AND r.file_id = )sql" TAMSEL_CALLEE_FILE R"sql()
      THEN (SELECT count(DISTINCT s.file_id) FROM symbols s
        WHERE s.fqn = )sql" TAMSEL_CALLEE_FQN R"sql( AND s.kind <> 'module'
          AND s.signature NOT GLOB '*;' AND )sql" TAMSEL_FITTING R"sql( AND )sql" TAMSEL_INCLUDED
                                       R"sql()
      ELSE (SELECT count(DISTINCT s.file_id) FROM symbols s
        WHERE s.fqn = )sql" TAMSEL_CALLEE_FQN R"sql( AND s.kind <> 'module'
          AND s.signature NOT GLOB '*;' AND )sql" TAMSEL_FITTING R"sql( AND )sql" TAMSEL_REACHED
                                       R"sql() END > 1;
)sql";
// C has one namespace for functions: a name declared in a file the site includes, with exactly
// one body in the repository's C source files outside a file-local (static) definition, is that
// function, wherever it is (`ts_node_start_point`, declared in the public api.h, defined in
// node.c). A header's body is seen only where it is included, and a name the includes do not
// declare (realloc from <stdlib.h>) is no repository function. Evidence says so. A site linked
// so is relinked as the parser saw it.
#define TAMSEL_C_FILE \
  "EXISTS (SELECT 1 FROM files g WHERE g.id = call_sites.file_id AND g.language = 'c')"
#define TAMSEL_UNIQUE_BODY(what)                                                      \
  "(SELECT " what                                                                     \
  " FROM symbols s JOIN files f ON f.id = s.file_id "                                 \
  "WHERE s.fqn = call_sites.target_fqn AND s.kind = 'function' AND f.language = 'c' " \
  "AND f.path NOT GLOB '*.h' AND s.signature NOT GLOB '*;' "                          \
  "AND NOT (' ' || s.signature) GLOB '*[ *]static *')"
constexpr const char* UNIQUE_NAME_AGAIN = R"sql(
UPDATE call_sites SET evidence = 'include'
  WHERE id IN (SELECT site_id FROM relink) AND evidence = 'unique-name';
)sql";
constexpr const char* UNIQUE_NAME = R"sql(
UPDATE call_sites SET callee_id = )sql" TAMSEL_UNIQUE_BODY("min(s.id)") R"sql(,
    evidence = CASE evidence WHEN 'macro' THEN evidence ELSE 'unique-name' END
  WHERE id IN (SELECT site_id FROM relink) AND callee_id IS NULL AND target_fqn <> ''
    AND id NOT IN (SELECT site_id FROM macro_copies)
    AND )sql" TAMSEL_C_FILE R"sql( AND )sql" TAMSEL_C_SITE R"sql(
    AND EXISTS (SELECT 1 FROM reach_files r CROSS JOIN declarations d ON d.file_id = r.file_id
      WHERE r.origin = call_sites.file_id AND d.fqn = call_sites.target_fqn)
    AND )sql" TAMSEL_UNIQUE_BODY("count(*)") R"sql( = 1;
)sql";
// Only C++ marks fallbacks equally near.
constexpr const char* EQUALLY_NEAR = R"sql(
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
)sql";
// A call that names a class, constructed or not, lands on the
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

static_assert(EQUALLY_NEAR_RANK == 1000000, "TAMSEL_EQUALLY_NEAR");

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

}  // namespace

void Linking::prepare_includes(index::Database& db) {
  includers_of_ = db.prepare(
      "INSERT OR IGNORE INTO include_changed SELECT file_id FROM imports WHERE module = ?");
  reimport_module_ =
      db.prepare("INSERT OR IGNORE INTO reimport SELECT id FROM imports WHERE module = ?");
  mark_include_changed_ = db.prepare("INSERT OR IGNORE INTO include_changed VALUES(?)");
  relink_includers_ = db.prepare(RELINK_INCLUDERS);
}

void Linking::after_imports(LinkingContext& ctx) {
  auto& db = ctx.database();
  // Includes are linked before calls: a C or C++ call sees what its file includes.
  db.exec(LINK_INCLUDES);
  if (!ctx.full_build()) relink_includers_.bind(1, MAX_INCLUDE_DEPTH).run();
  make_macro_sites(ctx);
}

void Linking::link_calls(LinkingContext& ctx) {
  auto& db = ctx.database();
  // Here, not after the imports: a receiver whose type changed joins the sites to link then.
  c_sites_ = reach_includes(db);
  if (!c_sites_) return;
  db.exec(UNIQUE_NAME_AGAIN);
  add_using_fallbacks(db);
  db.exec(LINK_CALLS);
  db.exec(ONE_DEFINITION);
  db.exec(EQUALLY_NEAR);
  db.exec(UNIQUE_NAME);
  link_specializations(db);
  copy_macro_links(db);
}

void Linking::after_linking(LinkingContext& ctx) {
  if (!c_sites_) return;
  ctx.database().exec(CONSTRUCTORS);
  drop_unlinked_macro_sites(ctx);
}

// A C or C++ file that came or went may be what an #include elsewhere finds now: those
// includes are resolved again (each dotted tail of the path is a name they may use).
void Linking::include_target_changed(const std::string& path) {
  std::string dots = index::path_stem(path);
  std::replace(dots.begin(), dots.end(), '/', '.');
  for (std::size_t at = 0; at != std::string::npos;) {
    auto tail = dots.substr(at);
    reimport_module_.bind(1, tail).run();
    includers_of_.bind(1, tail).run();
    at = dots.find('.', at);
    if (at != std::string::npos) ++at;
  }
}

// For each C or C++ file with sites to link: the modules of the files it includes, within
// MAX_INCLUDE_DEPTH, and its own (a header and its source file share one, or its tail).
// Whether there was any such file.
bool Linking::reach_includes(index::Database& db) {
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
  // These sites are linked in link_calls, not by the common rule.
  auto apart = db.prepare("INSERT OR IGNORE INTO linked_apart VALUES(?)");
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
    apart.bind(1, origin).run();
    for (auto f : seen) {
      if (f != origin) insert_file.bind(1, origin).bind(2, f).run();
    }
  }
  return true;
}

}  // namespace orvane_tamsel::indexer::c_family
