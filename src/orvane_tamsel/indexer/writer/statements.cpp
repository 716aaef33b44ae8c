#include "orvane_tamsel/indexer/writer/statements.h"

#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/indexer/types/receiver_stage.h"

namespace orvane_tamsel::indexer::writer {

// Fallbacks a receiver found (types::RECEIVER_RANK) are not part of a site as parsed.
#define TAMSEL_RECEIVER_RANK "2000000"
static_assert(types::RECEIVER_RANK == 2000000, "TAMSEL_RECEIVER_RANK");

namespace {

// Per-batch bookkeeping lives in temporary tables so that linking runs as a few joins. The
// temporary tables drive each join (CROSS JOIN fixes the order): they are small for a small update.
constexpr const char* BATCH_TABLES = R"sql(
CREATE TEMP TABLE IF NOT EXISTS changed_files(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS affected(fqn TEXT PRIMARY KEY, head TEXT, tail TEXT);
CREATE TEMP TABLE IF NOT EXISTS rebound(fqn TEXT PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS relink(site_id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS reimport(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS gone_files(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS new_text(id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS linked_apart(file_id INTEGER PRIMARY KEY);
CREATE TEMP TABLE IF NOT EXISTS symbol_delta(n INTEGER NOT NULL, p INTEGER NOT NULL);
)sql";

}  // namespace

const std::string& count_symbols_sql() {
  static const std::string sql =
      "CREATE TEMP TRIGGER IF NOT EXISTS symbol_added AFTER INSERT ON symbols BEGIN "
      "UPDATE symbol_delta SET n = n + 1, p = p + " +
      index::production_symbol_sql("new") +
      "; END;\n"
      "CREATE TEMP TRIGGER IF NOT EXISTS symbol_removed AFTER DELETE ON symbols BEGIN "
      "UPDATE symbol_delta SET n = n - 1, p = p - " +
      index::production_symbol_sql("old") +
      "; END;\n"
      "CREATE TEMP TRIGGER IF NOT EXISTS symbol_retyped AFTER UPDATE OF kind, is_test ON symbols "
      "BEGIN UPDATE symbol_delta SET p = p + " +
      index::production_symbol_sql("new") + " - " + index::production_symbol_sql("old") + "; END;";
  return sql;
}
const char* const STOP_COUNTING_SYMBOLS =
    "DROP TRIGGER IF EXISTS symbol_added; DROP TRIGGER IF EXISTS symbol_removed; "
    "DROP TRIGGER IF EXISTS symbol_retyped;";

void Statements::prepare(index::Database& db) {
  db.exec(BATCH_TABLES);
  db.exec(count_symbols_sql());
  db.exec(index::NOTE_GONE_SYMBOLS);
  prepare_file_rows(db);
  prepare_site_rows(db);
}

void Statements::prepare_file_rows(index::Database& db) {
  find_file = db.prepare("SELECT id, component, is_test, module FROM files WHERE path = ?");
  insert_file = db.prepare(
      "INSERT INTO files(path, stem, base, language, size, mtime_ns, hash, is_test, module, "
      "component, line_count, generated, builds_elsewhere) "
      "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  // The path, and what is made of it, stay; the module only where it changed: no index entry
  // of the files moves.
  update_file = db.prepare(
      "UPDATE files SET language = ?, size = ?, mtime_ns = ?, hash = ?, is_test = ?, "
      "component = ?, line_count = ?, generated = ?, builds_elsewhere = ? WHERE id = ?");
  rename_module = db.prepare("UPDATE files SET module = ? WHERE id = ?");
  touch = db.prepare("UPDATE files SET mtime_ns = ?, size = ?, hash = ? WHERE path = ?");
  old_symbols = db.prepare(
      "SELECT id, fqn, name, kind, signature, docstring, start_line, end_line, is_test, "
      "parent_id, parent_fqn, bases, type_of, fields, words FROM symbols WHERE file_id = ? "
      "ORDER BY id");
  delete_file = db.prepare("DELETE FROM files WHERE id = ?");
  insert_symbol = db.prepare(
      "INSERT INTO symbols(id, file_id, fqn, name, name_folded, kind, start_line, end_line, "
      "signature, docstring, is_test, parent_id, parent_fqn, bases, type_of, fields, words) "
      "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  // No column of the name indexes: only the file's own index entries move with its lines.
  update_symbol = db.prepare(
      "UPDATE symbols SET kind = ?, start_line = ?, end_line = ?, signature = ?, docstring = ?, "
      "is_test = ?, parent_id = ?, parent_fqn = ?, bases = ?, type_of = ?, fields = ?, "
      "words = ? WHERE id = ?");
  rename_symbol = db.prepare("UPDATE symbols SET name = ?, name_folded = ? WHERE id = ?");
  delete_symbol = db.prepare("DELETE FROM symbols WHERE id = ?");
  insert_text = db.prepare(
      "INSERT INTO symbol_text(rowid, name, fqn, signature, docstring, path, words, mentions, "
      "context) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)");
  insert_name_gram = db.prepare("INSERT INTO name_grams(rowid, name) VALUES(?, ?)");
  delete_text = db.prepare("DELETE FROM symbol_text WHERE rowid = ?");
  delete_name_gram = db.prepare("DELETE FROM name_grams WHERE rowid = ?");
  insert_path_gram = db.prepare("INSERT INTO path_grams(rowid, path) VALUES(?, ?)");
  delete_path_gram = db.prepare("DELETE FROM path_grams WHERE rowid = ?");
}

void Statements::prepare_site_rows(index::Database& db) {
  insert_site = db.prepare(
      "INSERT INTO call_sites(file_id, caller_id, line, evidence, target_fqn, receiver, member, "
      "receiver_evidence, arguments, template_args, argument_kinds, argument_names) "
      "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  insert_fallback = db.prepare("INSERT OR IGNORE INTO call_fallbacks VALUES(?, ?, ?)");
  insert_scope = db.prepare("INSERT OR IGNORE INTO call_scopes VALUES(?, ?)");
  insert_import =
      db.prepare("INSERT INTO imports(file_id, line, module, name, alias) VALUES(?, ?, ?, ?, ?)");
  mark_changed = db.prepare("INSERT OR IGNORE INTO changed_files VALUES(?)");
  mark_new_text = db.prepare("INSERT OR IGNORE INTO new_text VALUES(?)");
  mark_affected = db.prepare("INSERT OR IGNORE INTO affected VALUES(?, ?, ?)");
  mark_rebound = db.prepare("INSERT OR IGNORE INTO rebound VALUES(?)");
  old_bindings = db.prepare(
      "SELECT f.module, i.module, i.name, i.alias FROM imports i JOIN files f "
      "ON f.id = i.file_id WHERE i.file_id = ?");
  public_names = db.prepare(
      "SELECT name FROM symbols WHERE fqn > ?1 || '.' AND fqn < ?1 || '/' AND parent_fqn = ?1 "
      "AND kind <> 'module' AND substr(name, 1, 1) <> '_'");
  // Sites made at a macro's use for the calls its body makes are no calls of their own.
  file_sites = db.prepare(
      "SELECT count(callee_id), count(*) FROM call_sites WHERE file_id = ? AND evidence <> "
      "'macro'");
  relinked_resolved = db.prepare(
      "SELECT count(c.callee_id) FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id "
      "WHERE c.evidence <> 'macro'");
  file_language = db.prepare("SELECT language, module FROM files WHERE id = ?");
  for (const char* sql : {
           "DELETE FROM edges WHERE site_id IN (SELECT id FROM call_sites WHERE file_id = ?)",
           "DELETE FROM call_fallbacks WHERE site_id IN "
           "(SELECT id FROM call_sites WHERE file_id = ?)",
           "DELETE FROM call_scopes WHERE site_id IN (SELECT id FROM call_sites WHERE file_id = "
           "?)",
           "DELETE FROM type_deps WHERE file_id = ?",
           "DELETE FROM call_sites WHERE file_id = ?",
       }) {
    clear_contents.push_back(db.prepare(sql));
  }
  delete_file_symbols = db.prepare("DELETE FROM symbols WHERE file_id = ?");
  clear_imports = db.prepare("DELETE FROM imports WHERE file_id = ?");
  old_imports =
      db.prepare("SELECT id, line, module, name, alias FROM imports WHERE file_id = ? ORDER BY id");
  import_line = db.prepare("UPDATE imports SET line = ? WHERE id = ?");
  delete_import = db.prepare("DELETE FROM imports WHERE id = ?");
  mark_reimport = db.prepare("INSERT OR IGNORE INTO reimport VALUES(?)");
  old_sites = db.prepare(
      "SELECT c.id, c.caller_id, c.line, c.evidence, c.target_fqn, c.callee_id IS NOT NULL, "
      "(SELECT group_concat(b.rank || ':' || b.fqn, ' ') FROM call_fallbacks b "
      "WHERE b.site_id = c.id AND b.rank < " TAMSEL_RECEIVER_RANK
      "), (SELECT group_concat(k.module, ' ') FROM call_scopes k "
      "WHERE k.site_id = c.id), c.receiver, c.member, c.receiver_evidence, c.arguments, "
      "c.template_args, c.argument_kinds, c.argument_names "
      "FROM call_sites c WHERE c.file_id = ? ORDER BY c.id");
  site_line = db.prepare("UPDATE call_sites SET line = ? WHERE id = ?");
  edge_line = db.prepare("UPDATE edges SET line = ? WHERE site_id = ?");
  mark_relink = db.prepare("INSERT OR IGNORE INTO relink VALUES(?)");
  for (const char* sql :
       {"DELETE FROM edges WHERE site_id = ?", "DELETE FROM call_fallbacks WHERE site_id = ?",
        "DELETE FROM call_scopes WHERE site_id = ?", "DELETE FROM call_sites WHERE id = ?"}) {
    delete_site.push_back(db.prepare(sql));
  }
}

}  // namespace orvane_tamsel::indexer::writer
