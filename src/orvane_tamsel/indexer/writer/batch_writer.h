#pragma once
// The state of an IndexWriter: its connection, statements, plug-ins and the open batch.

#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "orvane_tamsel/index/name_split.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/linking_plugin.h"
#include "orvane_tamsel/indexer/writer/context_rows.h"
#include "orvane_tamsel/indexer/writer/statements.h"

namespace orvane_tamsel::indexer::writer {

// Opens the index for writing, rebuilding it when it is damaged.
std::unique_ptr<index::Database> open_for_writing(const std::filesystem::path& root);

// An import as it binds a name in a module: (module, imported module, name, alias).
using Binding = std::tuple<std::string, std::string, std::string, std::string>;

// What makes two call sites of a file the same but for their line.
std::string site_key(std::optional<std::int64_t> caller, const std::string& evidence,
                     const std::string& target, const std::string& fallbacks,
                     const std::string& scopes, const std::string& receiver = {},
                     const std::string& member = {}, const std::string& receiver_evidence = {},
                     std::int64_t arguments = -1, const std::string& template_args = {},
                     const std::string& argument_kinds = {},
                     const std::string& argument_names = {});

struct OldSite {
  std::int64_t id, line;
  bool resolved;
};

// What put_file knows of the file it writes, passed from stage to stage.
struct FileWrite {
  const ParsedFile& file;
  const std::vector<LinkingPlugin*>& plugins;  // of the file's language
  std::int64_t id = 0;
  bool is_new = false;
  // Symbols that keep their fqn keep their row and id, and their text rows while their text
  // stays: an edit changes few.
  std::unordered_map<std::string, std::deque<std::int64_t>> reusable;
  std::unordered_map<std::int64_t, StoredSymbol> old_by_id;
  std::set<Binding> bound_before, bound_now;
  // A call site the same but for its line keeps its row, its links and its edges.
  std::unordered_map<std::string, std::deque<OldSite>> kept_sites;
  // So does an import the same but for its line, and its targets.
  std::unordered_map<std::string, std::deque<std::pair<std::int64_t, std::int64_t>>> kept_imports;
  std::unordered_map<std::string, std::int64_t> ids;  // fqn -> id, first definition wins
  std::optional<std::int64_t> module_id;
};

struct Connection {
  std::unique_ptr<index::Database> owned;
  index::Database& db;
  explicit Connection(const std::filesystem::path& root)
      : owned(open_for_writing(root)), db(*owned) {}
};

struct BatchWriter : Connection, Statements, LinkingContext {
  explicit BatchWriter(const std::filesystem::path& root);

  bool prepared = false;  // the batch tables, statements and plug-ins, set up by the first batch
  bool in_batch = false;
  bool bulk = false;                // the batch fills an empty index
  bool journaled = false;           // the batch runs with a rollback journal instead of the log
  bool components_changed = false;  // a file came, went or changed component or test status
  std::vector<std::unique_ptr<LinkingPlugin>> plugins;
  std::unordered_map<std::string, std::vector<LinkingPlugin*>> plugins_of;  // by language
  std::set<std::string> tree_languages;  // languages of this batch's files with tree components
  // Call counts as stored before the batch (nullopt: count them all at commit) and the batch's
  // changes to them.
  std::optional<std::pair<std::int64_t, std::int64_t>> stored_calls;
  std::int64_t resolved_delta = 0, unresolved_delta = 0;
  // The symbol counts as stored before the batch (both known: symbol_delta counts the changes).
  std::optional<std::int64_t> stored_symbols, stored_production;
  std::optional<std::string> find_file_component;  // of the file file_id_of() last found
  bool find_file_is_test = false;
  std::string find_file_module;

  // LinkingContext
  index::Database& database() override { return db; }
  bool full_build() const override { return bulk; }
  void affect(const std::string& fqn) override;
  void rebind(const std::string& fqn) override;
  const std::vector<LinkingPlugin*>& plugins_for(const std::string& language) const;

  // Sets up what a batch writes with, outside any transaction (a rollback would take the batch
  // tables with it).
  void prepare();

  // commit.cpp: the batch and its commit
  void ensure_batch() {
    if (!in_batch) begin();
  }
  void begin();
  void commit();
  // A first build commits the files written so far, unlinked, and goes on: an interruption keeps
  // them for the next build to resume from. An update stays one transaction (false).
  bool checkpoint();
  void rollback();
  void link();
  std::optional<std::pair<std::int64_t, std::int64_t>> read_stored_calls();
  std::optional<std::int64_t> read_stored_symbols();
  std::int64_t relinked_resolved_count();
  void store_calls();
  bool index_empty();
  void end_journal();

  // file_rows.cpp: files, and what their imports bind
  void affect_binding(const Binding& b);
  std::optional<std::int64_t> file_id_of(const std::string& path);
  std::vector<StoredSymbol> clear_file(std::int64_t file_id, std::set<Binding>& bound,
                                       bool keep_rows = false);
  void put_file(const ParsedFile& file, const FileState& state);
  void read_kept_rows(FileWrite& w);
  void write_file_row(FileWrite& w, const FileState& state, std::optional<std::int64_t> file_id);
  void remove_file(const std::string& path);

  // symbol_rows.cpp: symbols and their text rows
  void write_symbols(FileWrite& w);
  std::optional<std::int64_t> kept_merged(FileWrite& w, const ParsedSymbol& s, bool is_test,
                                          std::optional<std::int64_t> parent,
                                          const std::string& bases);
  void update_symbol_row(const StoredSymbol& old, const ParsedSymbol& s, bool is_test,
                         std::optional<std::int64_t> parent, const std::string& bases);
  std::int64_t insert_symbol_row(std::int64_t file_id, const ParsedSymbol& s, bool is_test,
                                 std::optional<std::int64_t> parent, const std::string& bases);
  void insert_text_rows(std::int64_t id, const std::string& name, const std::string& fqn,
                        const std::optional<std::string>& signature,
                        const std::optional<std::string>& docstring, const std::string& path,
                        const std::string& words, const DocContext& context);
  void insert_text_from(index::Statement& st);
  void insert_new_text();
  void insert_all_text();

  // context_rows.cpp: text rows that read a docstring another symbol holds. A doc changed in
  // a Python file rewrites that file's rows; in Go, the package's rows, or a type's methods'
  // (module, type fqn; "" for the whole package).
  std::set<std::int64_t> context_files;
  std::set<std::pair<std::string, std::string>> context_scopes;
  void context_changed(const std::string& language, std::int64_t file_id, const std::string& module,
                       const std::string& kind, const std::string& fqn);
  void refresh_context();
  const index::NameSplitter& name_splitter();
  std::unique_ptr<index::EnglishWords> dictionary;  // in memory for a first build's text rows
  std::unique_ptr<index::NameSplitter> splitter;    // read from name_words when first needed
  void delete_text_rows(std::int64_t symbol_id);

  // site_rows.cpp: call sites and imports
  void write_sites(FileWrite& w);
  void write_imports(FileWrite& w);

  // components.cpp
  void update_dominant_package();
  void update_tree_components();
};

}  // namespace orvane_tamsel::indexer::writer
