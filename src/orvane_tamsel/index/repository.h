#pragma once
// The code index as the tools read it: files, symbols, evidence-backed calls, tests, components.

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::index {

using Json = nlohmann::ordered_json;
using SymbolId = std::int64_t;
using FileId = std::int64_t;

struct FileRecord {
  std::optional<FileId> id;
  std::string path;
  std::string language;
  std::int64_t size = 0;
  std::int64_t line_count = 0;
  bool is_test = false;
  std::string module;  // dotted module path, e.g. "shop.cart"
};

struct Symbol {
  std::optional<SymbolId> id;
  std::string fqn;
  std::string name;
  std::string kind;
  FileId file_id = 0;
  std::int64_t start_line = 0;
  std::int64_t end_line = 0;
  std::optional<std::string> signature;
  std::optional<std::string> docstring;
  bool is_test = false;
};

// How a neighbour relates to the symbol it was reached from: "caller" or "callee".
using Relation = std::string;
inline const Relation CALLER = "caller";
inline const Relation CALLEE = "callee";

// A caller or callee of an asked symbol. Fields are optional because a record may hold nulls.
struct Neighbour {
  std::optional<SymbolId> id;
  std::optional<std::string> fqn;
  std::optional<std::string> name;
  std::optional<std::string> kind;
  std::optional<std::string> path;
  std::optional<std::int64_t> line;  // the neighbour's own definition line
  Relation relation;
  SymbolId of = 0;  // the asked id it was reached from
  bool is_test = false;
  std::int64_t call_sites = 0;  // evidence count behind the edge
};

enum class TestFilter { include, exclude, only };

struct SymbolSearch {
  std::vector<Symbol> symbols;
  std::int64_t total = 0;
  bool more = false;
};

// One call site: who calls whom, where, and on what evidence.
struct CallSite {
  Neighbour other;  // the caller (for relation "caller") or the callee
  std::string site_path;
  std::int64_t site_line = 0;
  std::string evidence;  // e.g. "import", "same-file", "self", "module-attribute"
};

struct ImportRecord {
  std::string path;  // the importing file
  std::int64_t line = 0;
  std::string module;  // the module named by the statement
  std::string name;    // the imported name, empty for `import module`
  std::string alias;
  std::optional<std::string> target_path;  // the indexed file it resolves to
  std::optional<SymbolId> target_symbol;   // the indexed symbol it binds, when one
};

// Who imports a symbol by name: how many files, and whether a package's own file (`__init__.py`)
// is one of them, which offers it as the package's API.
struct Importers {
  std::int64_t files = 0;
  bool by_package = false;
};

// What a symbol's file says of its distance from the code a user calls (files.generated,
// files.builds_elsewhere).
struct FileOrigin {
  bool generated = false;
  bool builds_elsewhere = false;
};

struct ScoredSymbol {
  SymbolId id = 0;
  double score = 0;  // larger is better
};

// A symbol that says some of the searched terms, with each term's share of its BM25 score.
struct TermShares {
  SymbolId id = 0;
  std::vector<double> shares;  // in the order the terms were given
};

struct FileLink {
  std::string path;
  std::int64_t symbols = 0;  // distinct symbols involved
  std::int64_t call_sites = 0;
};

struct IndexStats {
  std::int64_t files = 0;
  std::int64_t symbols = 0;
  std::int64_t calls = 0;
  std::int64_t unresolved_calls = 0;
  std::map<std::string, std::int64_t> skipped;            // reason -> count
  std::int64_t documented = 0;                            // names the reference pages document
  std::int64_t documented_linked = 0;                     // ... that were linked to a symbol
  std::map<std::string, std::int64_t> documented_missed;  // why the others were not -> count
};

// How many names of the called symbols TestEvidence lists.
inline constexpr int TEST_EVIDENCE_NAMES = 4;

// Why a test file is listed for a file: the evidence its reason is written from.
struct TestEvidence {
  std::string path;  // the test file
  // The file's symbols its tests call directly: how many, the first TEST_EVIDENCE_NAMES by fqn
  // (named inside the file's module: "Cart.total" for shop.cart.Cart.total), and the call sites.
  std::int64_t symbols_called = 0;
  std::vector<std::string> called;
  std::int64_t call_sites = 0;
  // Calls through a test helper that calls the file: the sites, and the helper's fqn when known.
  std::int64_t helper_sites = 0;
  std::optional<std::string> helper;
  // Calls of production code that calls the file (reach_hops 1) or calls such code (2, 3): the
  // sites, the functions called, and the fqn of the nearest and most called of them.
  std::int64_t reach_sites = 0;
  std::int64_t reach_functions = 0;
  std::int64_t reach_hops = 0;
  std::optional<std::string> through;
  // Calls the index could not link (the receiver's type unknown) of a name that only the file
  // defines: the sites, and the first such name.
  std::int64_t name_sites = 0;
  std::optional<std::string> called_by_name;
  std::optional<std::string> imports;      // the module it imports the file as
  std::optional<std::string> named_after;  // the file name its own name follows
};

struct TestsOfFile {
  std::vector<TestEvidence> tests;  // best first, at most a bounded number
  std::int64_t total_count = 0;     // all of them
};

// A read found the index damaged (not a database, or a bad page): no answer can be made from it
// until it is rebuilt. Every read of the port may throw it; the message says what was met.
class IndexDamaged {
 public:
  virtual ~IndexDamaged() = default;
  virtual const char* what() const noexcept = 0;
};

class Repository {
 public:
  virtual ~Repository() = default;

  // --- What the explore tool reads. Every list is bounded by its limit in SQL. ---
  virtual std::optional<FileRecord> get_file_by_path(const std::string& path) = 0;
  // Paths under a folder ("" is the whole repository) in path order, and the true total.
  virtual std::pair<std::vector<std::string>, std::int64_t> paths_under(const std::string& folder,
                                                                        int limit) = 0;
  // Paths whose text without extension equals the stem or ends with "/" + stem; shortest first,
  // then path order.
  virtual std::vector<std::string> paths_with_stem(const std::string& stem, int limit) = 0;
  virtual std::vector<Symbol> get_symbols_by_file(FileId file_id) = 0;
  virtual std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) = 0;
  // Code symbols (never modules) by name; production code before test code. exact_match: the name
  // as written; otherwise the name in any case or a name starting with it in any case (closest
  // first). Within that: classes, functions, methods, variables, other kinds; shorter fqn first.
  virtual SymbolSearch search_symbols(const std::vector<std::string>& names, bool exact_match,
                                      int limit) = 0;
  virtual std::map<SymbolId, std::string> get_file_paths_batch(
      const std::vector<Symbol>& symbols) = 0;
  virtual std::map<SymbolId, std::pair<Symbol, std::string>> symbols_with_paths(
      const std::vector<SymbolId>& ids) = 0;
  // Callers and callees; `limit` counts records in total over all asked ids. Order: production
  // before test, more call sites first, then path and line. `of` is always an asked id.
  virtual std::vector<Neighbour> evidence_neighbours(
      const std::vector<SymbolId>& ids, TestFilter tests, int limit,
      const std::optional<std::vector<Relation>>& relations = std::nullopt) = 0;
  // The test files of a file, best first: ranked by the distinct symbols of the file their code
  // calls, the call sites, calls through a test helper, an import of the file, a name like
  // test_<name>.py. None for a test file or an unreached one.
  virtual TestsOfFile get_tests_for(const std::string& path) = 0;
  // The top-level package of a file, else its first folder under the source root ("src" or the
  // repository root), else (a file at the root) its own module; a package holding most of the
  // repository is split into its subpackages (django.db, django.contrib, ...).
  virtual std::map<std::string, std::string> components_of(
      const std::vector<std::string>& paths) = 0;

  // --- Host reads for the retriever, the suggestions and the other tools. ---
  virtual std::filesystem::path root() const = 0;
  // BM25 over the symbol text table; `match` is an FTS5 MATCH expression. Larger scores are better.
  // The table holds code symbols (no modules) in the columns, weighted 10, 4, 2, 1, 2:
  //   name       the name as written, then its sub-words ("applyDiscount apply discount")
  //   fqn        the fully qualified name ("shop.cart.Cart.total")
  //   signature  the definition's header
  //   docstring  the docstring
  //   path       the path of the symbol's file
  // Tokens are lower-cased Unicode words ("_" and "." separate them) with Porter stemming, so
  // `name:discount`, `"apply discount"` and `fqn:"shop cart"` all match applyDiscount in shop.cart.
  virtual std::vector<ScoredSymbol> search_text(const std::string& match, int limit,
                                                bool include_tests) = 0;
  // Every symbol that says any of the terms (each a quoted phrase), in no order. The shares of a
  // subset of the terms, summed in the terms' order, are the score search_text gives the symbol
  // for those terms alone ("a" OR "b", or "a" AND "b"): one search ranks every subset.
  virtual std::vector<TermShares> term_shares(const std::vector<std::string>& terms,
                                              bool include_tests) = 0;
  // Evidence-backed callers per symbol.
  virtual std::map<SymbolId, std::int64_t> caller_counts(const std::vector<SymbolId>& ids) = 0;
  // Files importing each symbol by name; ids nobody imports are left out.
  virtual std::map<SymbolId, Importers> importers(const std::vector<SymbolId>& ids) = 0;
  // The origin of each symbol's file; ids whose file is neither generated nor built elsewhere are
  // left out.
  virtual std::map<SymbolId, FileOrigin> file_origins(const std::vector<SymbolId>& ids) = 0;
  // The names of the production symbols that match, best first (search_text without the rows).
  virtual std::vector<std::string> names_matching_text(const std::string& match, int limit) = 0;
  // How many symbols have each word in their name (matched as the text table matches it), and how
  // many symbols there are: how specific a name word is.
  virtual std::pair<std::map<std::string, std::int64_t>, std::int64_t> name_word_counts(
      const std::vector<std::string>& words) = 0;
  // Candidate paths / names that look like the text (trigram or prefix), bounded.
  virtual std::vector<std::string> similar_paths(const std::string& text, int limit) = 0;
  // Why the walk left a file out of the index ("not utf-8", "too large"); nothing for other paths.
  virtual std::optional<std::string> skip_reason(const std::string& path) = 0;
  virtual std::vector<Symbol> similar_symbols(const std::string& name, int limit) = 0;
  // Every call site of a symbol in one relation ("caller": who calls it; "callee": what it calls).
  virtual std::vector<CallSite> call_sites(SymbolId id, const Relation& relation, int limit) = 0;
  virtual std::vector<ImportRecord> imports_of_file(const std::string& path, int limit) = 0;
  // Imports (in any file) that resolve to this file or to a symbol of it.
  virtual std::vector<ImportRecord> importers_of_file(const std::string& path, int limit) = 0;
  virtual std::vector<ImportRecord> importers_of_symbol(SymbolId id, int limit) = 0;
  // Files whose symbols this file calls ("callee") or that call this file's symbols ("caller").
  virtual std::vector<FileLink> linked_files(const std::string& path, const Relation& relation,
                                             int limit) = 0;
  virtual std::pair<std::vector<std::string>, std::int64_t> paths_page(const std::string& folder,
                                                                       int offset, int limit) = 0;
  virtual IndexStats stats() = 0;
};

}  // namespace orvane_tamsel::index
