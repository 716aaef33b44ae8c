#pragma once
// The writer's batch tables and the prepared statements every language's files go through.

#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::writer {

// Empties the batch tables (see linking_plugin.h) and restarts the symbol count.
inline constexpr const char* CLEAR_BATCH_TABLES =
    "DELETE FROM changed_files; DELETE FROM affected; DELETE FROM rebound; DELETE FROM relink; "
    "DELETE FROM reimport; "
    "DELETE FROM gone_files; DELETE FROM new_text; DELETE FROM linked_apart; "
    "DELETE FROM symbol_delta; INSERT INTO symbol_delta VALUES(0, 0);";
// An update counts the symbols it adds and removes, and the production symbols among them (a
// full build counts them once at the end).
const std::string& count_symbols_sql();
extern const char* const STOP_COUNTING_SYMBOLS;

// Empty until prepared: a check that finds nothing to write never needs them.
struct Statements {
  // Creates the batch tables on `db` and prepares the statements.
  void prepare(index::Database& db);

  index::Statement find_file, insert_file, update_file, rename_module, touch, old_symbols,
      delete_file, insert_symbol, update_symbol, rename_symbol, delete_symbol, insert_text,
      insert_name_gram, delete_text, delete_name_gram, insert_path_gram, delete_path_gram,
      mark_new_text, insert_site, insert_fallback, insert_scope, insert_import, mark_changed,
      mark_affected, mark_rebound, old_bindings, public_names, file_language, file_sites,
      relinked_resolved;
  std::vector<index::Statement> clear_contents;
  index::Statement delete_file_symbols, clear_imports, old_imports, import_line, delete_import,
      mark_reimport, old_sites, site_line, edge_line, mark_relink;
  std::vector<index::Statement> delete_site;

 private:
  void prepare_file_rows(index::Database& db);
  void prepare_site_rows(index::Database& db);
};

}  // namespace orvane_tamsel::indexer::writer
