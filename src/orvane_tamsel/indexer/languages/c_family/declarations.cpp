// C and C++ declarations merged into their definitions, and taken back when either changes.

#include <algorithm>

#include "orvane_tamsel/indexer/languages/c_family/linking.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

// A C or C++ function declared without a body (its signature keeps the ";") and defined under
// the same fqn with the same parameter types (an overload is another function) is one entity: the
// definition stays, with the declaration's doc comment when it has none, so that a method declared
// in its class and defined out of line is listed once. The declaration is kept aside in
// `declarations`, so that an update gives the index a clean build would: UNMERGE takes back what
// changed or gone files gave or received, and the declarations whose definition was extracted again
// or removed return (`restored`) to be merged anew. The MERGE_CANDIDATES_* statements fill `merged`
// (all of the index, or what the update touches); `merged` drives the joins, as the planner would
// otherwise walk every C file's symbols.
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
    AND c_same_parameters(d.signature, f.signature, d.name)
  ORDER BY d.id, f.id;
)sql";
constexpr const char* MERGE_CANDIDATES_ALL = R"sql(
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM symbols d JOIN symbols f ON f.fqn = d.fqn AND f.kind = d.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND c_same_parameters(d.signature, f.signature, d.name)
    AND d.kind IN ('function', 'method', 'constructor')
  ORDER BY d.id, f.id;
)sql";
constexpr const char* MERGE_CANDIDATES_CHANGED = R"sql(
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM changed_files c CROSS JOIN symbols d ON d.file_id = c.id
  JOIN symbols f ON f.fqn = d.fqn AND f.kind = d.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND c_same_parameters(d.signature, f.signature, d.name)
    AND d.kind IN ('function', 'method', 'constructor')
  ORDER BY d.id, f.id;
INSERT OR IGNORE INTO merged
  SELECT d.id, f.id FROM changed_files c CROSS JOIN symbols f ON f.file_id = c.id
  JOIN symbols d ON d.fqn = f.fqn AND d.kind = f.kind
  WHERE d.signature GLOB '*;' AND f.signature NOT GLOB '*;'
    AND c_same_parameters(d.signature, f.signature, d.name)
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

}  // namespace

// A C or C++ declaration merged into its definition and extracted again as it was stays
// merged: not inserted to be merged again (with the name index entries and the relinking
// of its name that would cost).
void Linking::before_put_file(LinkingContext& ctx, const ParsedFile&, std::int64_t file_id) {
  merged_before_.clear();
  if (!ctx.full_build()) read_merged(file_id);
  forget_macros(ctx, file_id);
}

void Linking::read_merged(std::int64_t file_id) {
  auto& o = old_declarations_;
  o.bind(1, file_id);
  while (o.step()) {
    merged_before_[o.text(2)].push_back(
        StoredSymbol{o.integer(1), o.text(2), o.text(3), o.text(4), o.optional_text(7),
                     o.optional_text(8), o.integer(5), o.integer(6), o.integer(9) != 0,
                     o.is_null(10) ? std::nullopt : std::optional(o.integer(10)), o.text(11),
                     o.text(12), o.integer(0)});
  }
  o.reset();
}

std::optional<std::int64_t> Linking::keep_merged(LinkingContext&, const ParsedSymbol& s,
                                                 bool is_test, std::optional<std::int64_t> parent,
                                                 const std::string& bases) {
  auto it = merged_before_.find(s.fqn);
  if (it == merged_before_.end()) return std::nullopt;
  auto& rows = it->second;
  auto same = std::find_if(rows.begin(), rows.end(), [&](const StoredSymbol& d) {
    return d.name == s.name && d.kind == s.kind && d.start_line == s.start_line &&
           d.end_line == s.end_line && d.signature == s.signature && d.docstring == s.docstring &&
           d.is_test == is_test && d.parent_id == parent && d.parent_fqn == s.parent_fqn &&
           d.bases == bases;
  });
  if (same == rows.end()) return std::nullopt;
  keep_declaration_.bind(1, same->row).run();
  auto id = same->id;
  rows.erase(same);
  return id;
}

void Linking::before_relink(LinkingContext& ctx) {
  unmerge(ctx);
}

// Declarations whose definition was extracted again or removed come back as symbols (under
// their old id while it is free) to be merged again or stay; see UNMERGE.
void Linking::unmerge(LinkingContext& ctx) {
  auto& db = ctx.database();
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
    insert_symbol_.bind(1, d.taken ? std::nullopt : std::optional(d.id))
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
        .run();
    auto id = db.last_insert_id();
    mark_new_text_.bind(1, id).run();
    forget.bind(1, d.row).run();
    mark.bind(1, id).run();
    ctx.affect(d.fqn);
  }
}

void Linking::merge(LinkingContext& ctx) {
  auto& db = ctx.database();
  bool bulk = ctx.full_build();
  db.exec(bulk ? MERGE_CANDIDATES_ALL : MERGE_CANDIDATES_CHANGED);
  if (!bulk) db.exec(MERGE_CANDIDATES_RESTORED);
  db.exec(MERGE_DECLARATIONS);
  if (!bulk) db.exec(SYNC_STALE_DOCS);
}

}  // namespace orvane_tamsel::indexer::c_family
