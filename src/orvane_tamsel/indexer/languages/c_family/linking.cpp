#include "orvane_tamsel/indexer/languages/c_family/linking.h"

#include "orvane_tamsel/indexer/languages/c_family/parameters.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

// `merged` holds the declaration/definition pairs of one merge, `restored` the declarations
// returned to symbols, `stale_docs` definitions whose doc comment came from a declaration
// taken back, `kept_declarations` merged declarations extracted again unchanged; `reach` and
// `reach_files` what each file with sites to link includes, `include_changed` files whose
// #includes changed.
constexpr const char* TABLES = R"sql(
CREATE TEMP TABLE IF NOT EXISTS merged(decl INTEGER PRIMARY KEY, def INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS temp.merged_def ON merged(def);
CREATE TEMP TABLE IF NOT EXISTS restored(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS stale_docs(def INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS kept_declarations(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS reach(origin INTEGER, module TEXT, PRIMARY KEY(origin, module))
  WITHOUT ROWID;
CREATE TEMP TABLE IF NOT EXISTS reach_files(origin INTEGER, file_id INTEGER,
  PRIMARY KEY(origin, file_id)) WITHOUT ROWID;
CREATE TEMP TABLE IF NOT EXISTS include_changed(id INTEGER PRIMARY KEY);
)sql";

constexpr const char* CLEAR_TABLES =
    "DELETE FROM restored; DELETE FROM stale_docs; DELETE FROM kept_declarations; "
    "DELETE FROM reach; DELETE FROM reach_files; DELETE FROM include_changed; "
    "DELETE FROM macro_copies; DELETE FROM macro_dropped;";

}  // namespace

Linking::Linking(index::Database& db) {
  register_parameter_functions(db.handle());
  db.exec(TABLES);
  old_declarations_ = db.prepare(
      "SELECT id, symbol_id, fqn, name, kind, start_line, end_line, signature, docstring, "
      "is_test, parent_id, parent_fqn, bases FROM declarations WHERE file_id = ? ORDER BY id");
  keep_declaration_ = db.prepare("INSERT INTO kept_declarations VALUES(?)");
  insert_symbol_ = db.prepare(
      "INSERT INTO symbols(id, file_id, fqn, name, name_folded, kind, start_line, end_line, "
      "signature, docstring, is_test, parent_id, parent_fqn, bases) "
      "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  mark_new_text_ = db.prepare("INSERT OR IGNORE INTO new_text VALUES(?)");
  prepare_includes(db);
  prepare_macros(db);
  prepare_usings(db);
}

void Linking::begin_batch(LinkingContext& ctx) {
  ctx.database().exec(CLEAR_TABLES);
  merged_before_.clear();
  macros_before_.clear();
  changed_macros_.clear();
  c_sites_ = false;
}

void Linking::end_batch(LinkingContext& ctx) {
  ctx.database().exec(CLEAR_TABLES);
}

void Linking::after_put_file(LinkingContext& ctx, const WrittenFile& written) {
  merged_before_.clear();
  store_macros(ctx, written.file, written.id);
  store_usings(ctx, written.file, written.id);
  if (ctx.full_build()) return;
  if (written.is_new || written.bindings_changed) mark_include_changed_.bind(1, written.id).run();
  if (written.is_new) include_target_changed(written.file.path);
}

void Linking::before_remove_file(LinkingContext& ctx, std::int64_t file_id, const std::string& path,
                                 const std::string&) {
  if (!ctx.full_build()) include_target_changed(path);
  forget_macros(ctx, file_id);
  clear_usings_.bind(1, file_id).run();
  for (const auto& [name, body] : macros_before_) changed_macros_.insert(name);
  macros_before_.clear();
}

void Linking::after_relink(LinkingContext& ctx) {
  merge(ctx);
}

}  // namespace orvane_tamsel::indexer::c_family
