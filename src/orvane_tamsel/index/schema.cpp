#include "orvane_tamsel/index/schema.h"

#include <spdlog/spdlog.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvane_tamsel/index/rollback.h"
#include "orvane_tamsel/index/sqlite_meaning.h"

namespace orvane_tamsel::index {

namespace {

// Symbols, files and imports keep stable ids across re-indexing (a re-parsed file keeps its row,
// a symbol keeps its id while its fqn stays in its file), so links by id survive updates.
constexpr const char* SCHEMA = R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;

CREATE TABLE files(
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL UNIQUE,
  stem TEXT NOT NULL,         -- the path without its extension
  base TEXT NOT NULL,         -- the last component of stem
  language TEXT NOT NULL,
  size INTEGER NOT NULL,
  mtime_ns INTEGER NOT NULL,
  hash TEXT NOT NULL,
  is_test INTEGER NOT NULL,
  module TEXT NOT NULL,
  component TEXT,
  line_count INTEGER NOT NULL,
  generated INTEGER NOT NULL,           -- its header says a program wrote it
  builds_elsewhere INTEGER NOT NULL);   -- built only for another platform than this machine's
CREATE INDEX files_base ON files(base);
CREATE INDEX files_module ON files(module);

-- is_test: the symbol is test code, or lies in a test file.
CREATE TABLE symbols(
  id INTEGER PRIMARY KEY,
  file_id INTEGER NOT NULL,
  fqn TEXT NOT NULL,
  name TEXT NOT NULL,
  name_folded TEXT NOT NULL,
  kind TEXT NOT NULL,
  start_line INTEGER NOT NULL,
  end_line INTEGER NOT NULL,
  signature TEXT,
  docstring TEXT,
  is_test INTEGER NOT NULL,
  parent_id INTEGER,
  parent_fqn TEXT NOT NULL,
  bases TEXT NOT NULL,         -- base class fqns separated by blanks
  type_of TEXT NOT NULL DEFAULT '',  -- a type expression: a function's result, a variable's type
  fields TEXT NOT NULL DEFAULT '',  -- typed members that are no symbols: "name\ttype" lines
  words TEXT NOT NULL DEFAULT '');  -- what its own strings say (ParsedSymbol::words)
CREATE INDEX symbols_file ON symbols(file_id, start_line);
CREATE INDEX symbols_fqn ON symbols(fqn);

CREATE TABLE imports(
  id INTEGER PRIMARY KEY,
  file_id INTEGER NOT NULL,
  line INTEGER NOT NULL,
  module TEXT NOT NULL,
  name TEXT NOT NULL,
  alias TEXT NOT NULL,
  target_file_id INTEGER,
  target_symbol_id INTEGER);
CREATE INDEX imports_file ON imports(file_id, line);

-- A call site as the parser resolved it by name; callee_id is the symbol it links to.
CREATE TABLE call_sites(
  id INTEGER PRIMARY KEY,
  file_id INTEGER NOT NULL,
  caller_id INTEGER,
  line INTEGER NOT NULL,
  evidence TEXT NOT NULL,
  target_fqn TEXT NOT NULL,
  callee_id INTEGER,
  -- `x.member()` with x's type as an expression: target_fqn and evidence are what evaluating it
  -- found; receiver_evidence is what the parser said of it, or 'target' when the parser named
  -- the target and the receiver only backs it (what it finds is the last fallback). A site with
  -- neither target nor receiver keeps the member it calls on a value of unknown type.
  receiver TEXT NOT NULL DEFAULT '',
  member TEXT NOT NULL DEFAULT '',
  receiver_evidence TEXT NOT NULL DEFAULT '',
  -- the arguments a C or C++ call passes, -1 when not counted
  arguments INTEGER NOT NULL DEFAULT -1,
  -- C++: the template arguments written on the callee's class (`int&` of
  -- `DefaultValue<int&>::Exists()`), which pick among its specializations.
  template_args TEXT NOT NULL DEFAULT '',
  -- C and C++: a letter per argument whose kind the text shows, which picks among overloads of
  -- one arity: b a braced list, w a wide string literal, s a narrow one, a an array, c an
  -- object of a class template or std type, n a null pointer (a macro body's `nullptr`), ? any
  -- other; '' none.
  argument_kinds TEXT NOT NULL DEFAULT '',
  -- C and C++, at a call whose name is in capitals (a macro's use, by convention): a line per
  -- argument, its name when it is one (`F` of `F(a, b)`, with `(2)`), then a tab and the type of
  -- a local or parameter it names; '' when no argument is a name. The macro's body may paste the
  -- name into a member it calls on another argument.
  argument_names TEXT NOT NULL DEFAULT '');
CREATE INDEX call_sites_file ON call_sites(file_id);
CREATE TABLE call_fallbacks(
  site_id INTEGER NOT NULL,
  rank INTEGER NOT NULL,
  fqn TEXT NOT NULL,
  PRIMARY KEY(site_id, rank)) WITHOUT ROWID;
-- Modules whose files may hold a site's callee; a site without rows may link anywhere.
-- The fqns the type evaluations of a file's receiver sites looked up: they are evaluated again
-- when one changes. Kept by file, as a file's sites share most of them.
CREATE TABLE type_deps(
  file_id INTEGER NOT NULL,
  fqn TEXT NOT NULL,
  PRIMARY KEY(file_id, fqn)) WITHOUT ROWID;
CREATE TABLE call_scopes(
  site_id INTEGER NOT NULL,
  module TEXT NOT NULL,
  PRIMARY KEY(site_id, module)) WITHOUT ROWID;

-- The linked calls: one row per (site, callee); a constructor call also reaches __init__.
CREATE TABLE edges(
  site_id INTEGER NOT NULL,
  caller_id INTEGER NOT NULL,
  callee_id INTEGER NOT NULL,
  file_id INTEGER NOT NULL,
  line INTEGER NOT NULL,
  derived INTEGER NOT NULL DEFAULT 0);  -- 1: the __init__ reached through its class

-- A C or C++ declaration (symbol_id, its id while it was a symbol) merged into its definition
-- (def_id in def_file_id), kept to come back when the definition changes or goes; gave_doc: the
-- definition took its doc comment.
CREATE TABLE declarations(
  id INTEGER PRIMARY KEY,
  symbol_id INTEGER NOT NULL,
  def_id INTEGER NOT NULL,
  def_file_id INTEGER NOT NULL,
  file_id INTEGER NOT NULL,
  fqn TEXT NOT NULL,
  name TEXT NOT NULL,
  name_folded TEXT NOT NULL,
  kind TEXT NOT NULL,
  start_line INTEGER NOT NULL,
  end_line INTEGER NOT NULL,
  signature TEXT,
  docstring TEXT,
  is_test INTEGER NOT NULL,
  parent_id INTEGER,
  parent_fqn TEXT NOT NULL,
  bases TEXT NOT NULL,
  gave_doc INTEGER NOT NULL);
CREATE INDEX declarations_file ON declarations(file_id);
CREATE INDEX declarations_def ON declarations(def_id);
CREATE INDEX declarations_def_file ON declarations(def_file_id);

-- A C or C++ function-like macro of a file: its parameters and the calls its body makes, as
-- written (indexer/languages/c_family/macro_bodies.h).
-- C++ using-directives and -declarations at namespace scope (a header's are seen by the files
-- including it): in `scope`, the names of `target` (name '') or `target.name` are known.
CREATE TABLE usings(
  file_id INTEGER NOT NULL,
  scope TEXT NOT NULL,
  target TEXT NOT NULL,
  name TEXT NOT NULL);
CREATE INDEX usings_file ON usings(file_id);
CREATE TABLE macros(
  file_id INTEGER NOT NULL,
  name TEXT NOT NULL,
  params TEXT NOT NULL,
  calls TEXT NOT NULL);
CREATE INDEX macros_file ON macros(file_id);
CREATE INDEX macros_name ON macros(name);
-- A site made at a macro's use (origin) for a call its body makes, in the use's file.
CREATE TABLE macro_sites(
  site_id INTEGER PRIMARY KEY,
  origin INTEGER NOT NULL,
  file_id INTEGER NOT NULL,
  macro TEXT NOT NULL);
CREATE INDEX macro_sites_origin ON macro_sites(origin);
CREATE INDEX macro_sites_file ON macro_sites(file_id);

CREATE TABLE skipped(path TEXT PRIMARY KEY, reason TEXT NOT NULL) WITHOUT ROWID;

-- Reference pages (*.rst, *.txt) and the Python names they document, with the symbol each was
-- linked to (NULL: none found). doc_text is what a symbol's pages say, as symbol_text.reference
-- holds it. A name's last part and the part before it (its class) say which names a code edit
-- may link elsewhere. miss: why a name links nowhere ('no code': no module it names has a file;
-- 'member': its class is found but neither it nor a base defines the member; 'none').
CREATE TABLE doc_pages(
  path TEXT PRIMARY KEY,
  size INTEGER NOT NULL,
  mtime_ns INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE doc_names(
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,
  fqn TEXT NOT NULL,
  text TEXT NOT NULL,
  symbol_id INTEGER,
  last TEXT NOT NULL,
  owner TEXT NOT NULL,
  miss TEXT);
CREATE INDEX doc_names_path ON doc_names(path);
CREATE INDEX doc_names_last ON doc_names(last);
CREATE INDEX doc_names_owner ON doc_names(owner);
CREATE INDEX doc_names_symbol ON doc_names(symbol_id) WHERE symbol_id IS NOT NULL;
CREATE INDEX doc_names_miss ON doc_names(miss) WHERE miss IS NOT NULL;
CREATE TABLE doc_text(symbol_id INTEGER PRIMARY KEY, text TEXT NOT NULL);

-- Code symbols (no modules) for ranked text search; rowid = symbols.id. reference: what the
-- reference pages say of the symbol (doc_text), weighed near the name: a page describes public
-- API in the words users ask with. words: symbols.words, weighed below the docstring: a message
-- says what code does less squarely than a docstring. mentions: the sentences of the enclosing
-- package's or module's doc and of the type's or class's doc that name the symbol; context: what
-- those docs say first, weighed low: every member of the package reads it.
CREATE VIRTUAL TABLE symbol_text USING fts5(
  name, fqn, signature, docstring, path, reference, words, mentions, context,
  tokenize = 'porter unicode61 remove_diacritics 2');
INSERT INTO symbol_text(symbol_text, rank)
  VALUES('rank', 'bm25(10.0, 4.0, 2.0, 1.0, 2.0, 8.0, 0.5, 1.0, 0.5)');

-- The words the repository writes as separate parts of its names, set by a full build: names
-- written as one run of letters are split into them (and English words) in symbol_text.name.
CREATE TABLE name_words(word TEXT PRIMARY KEY) WITHOUT ROWID;

-- Trigrams for did-you-mean: paths (rowid = files.id) and code symbol names (rowid = symbols.id).
CREATE VIRTUAL TABLE path_grams USING fts5(path, tokenize = 'trigram');
CREATE VIRTUAL TABLE name_grams USING fts5(name, tokenize = 'trigram');
)sql";

// Lookup indexes that a first full build creates after its bulk inserts, which is much faster
// than keeping them up to date row by row.
constexpr std::array<const char*, 14> DEFERRABLE_INDEXES = {
    "CREATE INDEX symbols_name ON symbols(name)",
    "CREATE INDEX symbols_folded ON symbols(name_folded)",
    "CREATE INDEX imports_module ON imports(module, name)",
    "CREATE INDEX imports_target_file ON imports(target_file_id)",
    "CREATE INDEX imports_target_symbol ON imports(target_symbol_id)",
    // Most sites name nothing to look up; the lookups by name say `target_fqn <> ''`.
    "CREATE INDEX call_sites_target ON call_sites(target_fqn) WHERE target_fqn <> ''",
    // Most sites stay unlinked; only the linked ones are looked up by callee.
    "CREATE INDEX call_sites_callee ON call_sites(callee_id) WHERE callee_id IS NOT NULL",
    // The tests route asks which test code calls a name on a receiver it could not type.
    "CREATE INDEX call_sites_unlinked ON call_sites(member) WHERE callee_id IS NULL",
    "CREATE INDEX call_fallbacks_fqn ON call_fallbacks(fqn)",
    "CREATE INDEX type_deps_fqn ON type_deps(fqn)",
    "CREATE INDEX edges_callee ON edges(callee_id, caller_id)",
    "CREATE INDEX edges_caller ON edges(caller_id, callee_id)",
    "CREATE INDEX edges_site ON edges(site_id)",
    "CREATE INDEX edges_file ON edges(file_id)",
};

int pragma_int(Database& db, const char* pragma) {
  auto st = db.prepare(std::string("PRAGMA ") + pragma);
  return st.step() ? static_cast<int>(st.integer(0)) : 0;
}

bool has_tables(Database& db) {
  auto st = db.prepare("SELECT count(*) FROM sqlite_master WHERE type = 'table'");
  return st.step() && st.integer(0) > 0;
}

void drop_everything(Database& db) {
  // Virtual tables first: dropping them drops their shadow tables.
  for (const char* which : {"sql LIKE 'CREATE VIRTUAL%'", "1"}) {
    std::vector<std::string> names;
    auto st = db.prepare(std::string("SELECT name FROM sqlite_master WHERE type = 'table' AND "
                                     "name NOT LIKE 'sqlite_%' AND ") +
                         which);
    while (st.step()) names.push_back(st.text(0));
    for (const auto& name : names) db.exec("DROP TABLE IF EXISTS \"" + name + "\"");
  }
}

void create(Database& db) {
  db.exec(SCHEMA);
  db.exec(MEANING_TABLES);
  create_deferrable_indexes(db);
  db.exec("PRAGMA user_version = " + std::to_string(SCHEMA_VERSION));
  db.exec("INSERT INTO meta VALUES('schema_version', '" + std::to_string(SCHEMA_VERSION) + "')");
  db.exec("INSERT INTO meta VALUES('extractor_version', '" + std::to_string(EXTRACTOR_VERSION) +
          "')");
}

std::string extractor_version_of(Database& db) {
  auto st = db.prepare("SELECT value FROM meta WHERE key = 'extractor_version'");
  return st.step() ? st.text(0) : "none";
}

}  // namespace

void drop_deferrable_indexes(Database& db) {
  for (std::string sql : DEFERRABLE_INDEXES) {
    auto name = sql.substr(13, sql.find(' ', 13) - 13);  // after "CREATE INDEX "
    db.exec("DROP INDEX IF EXISTS " + name);
  }
}

void create_deferrable_indexes(Database& db) {
  for (std::string sql : DEFERRABLE_INDEXES) db.exec("CREATE INDEX IF NOT EXISTS" + sql.substr(12));
}

namespace {

std::string journal_mode(Database& db, const char* mode) {
  auto st = db.prepare(std::string("PRAGMA journal_mode = ") + mode);
  return st.step() ? st.text(0) : "";
}

}  // namespace

bool journal_first_build(Database& db) {
  try {
    return journal_mode(db, "DELETE") == "delete";
  } catch (const SqliteError& e) {
    if (!e.busy()) throw;
    return false;
  }
}

void restore_log(Database& db) {
  try {
    journal_mode(db, "WAL");
  } catch (const SqliteError& e) {
    if (!e.busy()) throw;
  }
}

bool build_unfinished(Database& db) {
  auto st = db.prepare("SELECT 1 FROM meta WHERE key = 'build_unfinished'");
  return st.step();
}

void set_build_unfinished(Database& db, bool unfinished) {
  db.exec(unfinished ? "INSERT OR REPLACE INTO meta VALUES('build_unfinished', '1')"
                     : "DELETE FROM meta WHERE key = 'build_unfinished'");
}

std::filesystem::path index_file(const std::filesystem::path& repository_root) {
  return repository_root / ".tamsel" / "index.db";
}

std::filesystem::path existing_index_file(const std::filesystem::path& repository_root) {
  auto file = index_file(repository_root);
  std::error_code ec;
  if (!std::filesystem::is_regular_file(file, ec)) {
    throw std::runtime_error("no index at " + file.string() + ": run tamsel index first");
  }
  return file;
}

std::vector<std::string> stored_name_words(Database& db) {
  std::vector<std::string> words;
  auto has = db.prepare("SELECT 1 FROM sqlite_master WHERE name = 'name_words'");
  if (!has.step()) return words;
  auto st = db.prepare("SELECT word FROM name_words ORDER BY word");
  while (st.step()) words.push_back(st.text(0));
  return words;
}

int schema_version_of(Database& db) {
  return has_tables(db) ? pragma_int(db, "user_version") : 0;
}

bool prepare_for_writing(Database& db) {
  // Fewer, larger pages to write: a first build spends about a fifth less in its serial end.
  // Only a new file takes it.
  db.exec("PRAGMA page_size = 16384");
  db.exec("PRAGMA journal_mode = WAL");
  db.exec("PRAGMA synchronous = NORMAL");
  db.exec("BEGIN IMMEDIATE");
  try {
    bool rebuilt = false;
    if (has_tables(db)) {
      int version = pragma_int(db, "user_version");
      if (version != SCHEMA_VERSION) {
        spdlog::warn(
            "the index {} has schema version {}, this tamsel writes version {}: rebuilding it",
            db.file().string(), version, SCHEMA_VERSION);
      } else if (auto extractor = extractor_version_of(db);
                 extractor != std::to_string(EXTRACTOR_VERSION)) {
        spdlog::warn(
            "the index {} was extracted by extractor version {}, this tamsel extracts with "
            "version {}: rebuilding it",
            db.file().string(), extractor, EXTRACTOR_VERSION);
      } else {
        // An index of this version was created with every table: nothing to parse or create
        // on the check that every command makes.
        db.exec("COMMIT");
        return false;
      }
      drop_everything(db);
      rebuilt = true;
    }
    create(db);
    db.exec("COMMIT");
    return rebuilt;
  } catch (...) {
    rollback_if_open(db);
    throw;
  }
}

}  // namespace orvane_tamsel::index
