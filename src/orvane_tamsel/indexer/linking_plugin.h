#pragma once
// Language-specific linking: hooks the index writer calls at fixed points of each batch.
//
// The writer stores what every language extracts (files, symbols, call sites, imports) and links
// them by rules that hold for all languages: a site's target fqn, then its fallbacks, within its
// scope modules (see ParsedCall). What only some languages need lives in a plug-in in that
// language's folder (indexer/languages/<name>/) and is listed once in linking_plugins.cpp.
//
// A batch (begin() ... commit() of IndexWriter) is either a full build (the index was empty:
// every site and import is linked at commit) or an update (only what the changed files touch is
// linked again). Hooks run in this order:
//
//   begin_batch                 every plug-in; the writer's batch tables were just emptied
//   before_put_file             plug-ins of the file's language, when the file is already
//                               indexed: its rows are still as last written
//   keep_merged                 ditto, for each extracted symbol with no stored row of its fqn
//   after_put_file              plug-ins of the file's language: rows written, not yet linked
//   before_remove_file          plug-ins of the file's language: its rows are still there
//   --- commit() ---
//   before_relink   (update)    every plug-in: widen what is linked again, through `affect`
//   after_relink                every plug-in: the sites to link are chosen (`relink`); a
//                               plug-in may still merge or remove symbols (and so add sites)
//   after_imports               every plug-in: imports are linked by the common rule
//   link_calls                  every plug-in: link the sites it claims (rows in `linked_apart`)
//   (the common rule links every other site of `relink`; a construction that reached no class
//    is unlinked)
//   after_linking               every plug-in: link sites the rules left open, or refine links
//   end_batch                   every plug-in, before the transaction commits
//
// Batch-level hooks run for every registered plug-in, not only those of the batch's languages:
// an edit in one language can relink sites of another (a name defined in a changed file is named
// by sites elsewhere). Each returns at once when the batch holds nothing for it. Plug-ins run in
// registration order.
//
// What a hook may read and write: any table of the index (index/schema.h) within the open
// transaction, and these temporary tables of the batch, emptied at begin_batch and end_batch:
//   changed_files(id)    files written in this batch (read only)
//   gone_files(id)       files removed in this batch (read only)
//   affected(fqn, head, tail)  names that appeared, vanished or changed: add through `affect`
//   rebound(fqn)         the affected names an import binds anew: add through `rebind`
//   relink(site_id)      sites to link: all with a name or fallbacks on a full build; on an
//                        update those of changed files, those naming `affected` names and
//                        those naming a member of a `rebound` name.
//                        A plug-in may add up to after_imports, later read only
//   reimport(id)         imports to link: may add up to after_relink
//   new_text(id)         symbols whose text rows the writer adds after after_relink (update)
//   linked_apart(file_id)  files whose sites a plug-in links itself in link_calls: add in
//                        after_imports; the common rule leaves their sites alone
// A plug-in that resolves its language's calls by rules of its own claims its files in
// after_imports and sets callee_id in link_calls; one that fills gaps works in after_linking on
// the sites of `relink` whose callee_id is still NULL.
// A plug-in keeps its own temporary tables and per-batch state, emptied in begin_batch or
// end_batch. Edges are made from call_sites.callee_id after after_linking: a hook sets callee_id,
// never edges. The summary's call counts follow the sites of `relink` by themselves.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer {

// Fallback ranks stored from here on mark names equally near (ParsedCall::equally_near).
inline constexpr std::int64_t EQUALLY_NEAR_RANK = 1000000;
// Fallback ranks stored from here on (up to types::RECEIVER_RANK) mark names the call may reach
// as well (ParsedCall::also): each that names a symbol gets an edge of its own.
inline constexpr std::int64_t ALSO_RANK = 1500000;

// What the writer offers a hook besides the database.
class LinkingContext {
 public:
  virtual ~LinkingContext() = default;
  virtual index::Database& database() = 0;
  // The batch fills an empty index: everything is linked anyway, so nothing need be widened.
  virtual bool full_build() const = 0;
  // Sites and imports naming `fqn` are linked again (nothing on a full build).
  virtual void affect(const std::string& fqn) = 0;
  // `fqn` is a name an import binds, which now binds something else (`from . import a as impl`
  // became `... b as impl`): as affect(), and also the sites naming a member through it
  // (`impl.f`, `impl.Cls.m`).
  virtual void rebind(const std::string& fqn) = 0;
};

// A symbol row as stored (or as it would be written).
struct StoredSymbol {
  std::int64_t id;
  std::string fqn, name, kind;
  std::optional<std::string> signature, docstring;
  std::int64_t start_line, end_line;
  bool is_test;
  std::optional<std::int64_t> parent_id;
  std::string parent_fqn, bases;  // bases space-separated
  std::int64_t row = 0;           // a merged declaration's row in `declarations`
  std::string type_of, fields;    // fields as stored: "name\ttype" lines
  std::string words;
};

// A file just written by put_file.
struct WrittenFile {
  const ParsedFile& file;
  std::int64_t id;
  bool is_new;            // not indexed before this batch
  bool bindings_changed;  // its imports bind other names than before
};

class LinkingPlugin {
 public:
  virtual ~LinkingPlugin() = default;
  // The languages (utils::Language::name) whose files' per-file hooks this plug-in receives.
  virtual std::vector<std::string> languages() const = 0;

  virtual void begin_batch(LinkingContext&) {}
  virtual void before_put_file(LinkingContext&, const ParsedFile&, std::int64_t /*file_id*/) {}
  // A symbol about to be written anew (no stored row of its fqn is left to reuse) that this
  // plug-in had merged into another symbol when the file was last written, and that comes back
  // unchanged, may stay merged: return the id it keeps and the writer writes no row for it.
  virtual std::optional<std::int64_t> keep_merged(LinkingContext&, const ParsedSymbol&,
                                                  bool /*is_test*/,
                                                  std::optional<std::int64_t> /*parent_id*/,
                                                  const std::string& /*bases*/) {
    return std::nullopt;
  }
  virtual void after_put_file(LinkingContext&, const WrittenFile&) {}
  virtual void before_remove_file(LinkingContext&, std::int64_t /*file_id*/,
                                  const std::string& /*path*/, const std::string& /*module*/) {}

  virtual void before_relink(LinkingContext&) {}
  virtual void after_relink(LinkingContext&) {}
  virtual void after_imports(LinkingContext&) {}
  virtual void link_calls(LinkingContext&) {}
  virtual void after_linking(LinkingContext&) {}
  virtual void end_batch(LinkingContext&) {}
};

// Every language's plug-in, in the order their hooks run, made for one writer's connection.
std::vector<std::unique_ptr<LinkingPlugin>> make_linking_plugins(index::Database& db);

}  // namespace orvane_tamsel::indexer
