#pragma once
// What a batch of code files changed that may link a reference page's names elsewhere, so that an
// update relinks only those names instead of every one.

#include <compare>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::reference_docs {

// What linking reads of one symbol (no module links): its size breaks ties between symbols of
// one fqn.
struct SymbolRow {
  std::string path, fqn, name, kind, bases;
  std::int64_t is_test = 0, size = 0;
  auto operator<=>(const SymbolRow&) const = default;
};

// An import as re-exports read it: in its file's module, in file order.
struct ImportRow {
  std::string file_module, module, name, alias;
  std::int64_t order = 0;
  auto operator<=>(const ImportRow&) const = default;
};

struct CodeSnapshot {
  std::set<SymbolRow> symbols;
  std::set<ImportRow> imports;
  std::set<std::string> modules;  // of the files that exist
};

// The symbols and imports of these files as the index holds them now.
CodeSnapshot snapshot(index::Database& db, const std::vector<std::string>& paths);

struct CodeChange {
  // Relink every name: a star import moved, so any public name may lead elsewhere.
  bool everything = false;
  // A name may link elsewhere only when its last part or its class is one of these: the names of
  // the symbols that came, went or changed, the classes deriving from a class whose bases moved,
  // the names imports that came, went or moved bind, and the names imports bind all those as.
  std::set<std::string> names;
  // Modules that came or went: names under them may link nowhere for another reason.
  std::set<std::string> modules;
  // The files written again: their symbols' text rows lost what the pages say.
  std::vector<std::string> files;
};

CodeChange compare(index::Database& db, const CodeSnapshot& before, const CodeSnapshot& after,
                   std::vector<std::string> files);

}  // namespace orvane_tamsel::indexer::reference_docs
