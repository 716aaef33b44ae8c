#pragma once
// Finds the symbol a reference page's dotted name documents.

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/types/sql_type_facts.h"

namespace orvane_tamsel::indexer::reference_docs {

class DocLinker {
 public:
  explicit DocLinker(index::Database& db);
  // The symbol's id: the exact fqn; else where the package's re-exports lead (`asyncio.Queue`
  // is `asyncio.queues.Queue`); else the one symbol of the same top package whose fqn ends with
  // the documented class and name; else, for a member of a class found so, the member of the
  // nearest base class that defines it. nullopt: none, or several. `exact_tried`: the caller
  // looked the fqn up already.
  std::optional<std::int64_t> link(const std::string& fqn, bool exact_tried = false);
  // Why a name links nowhere: "no code" when no module it names has a file (a module written in
  // C), "member" when its class is found but neither it nor a base defines the member (set on
  // instances, or written in C), else "none".
  std::string miss(const std::string& fqn);

 private:
  std::optional<std::int64_t> exact(const std::string& fqn);
  std::optional<std::int64_t> direct(const std::string& fqn, bool exact_tried);
  std::optional<std::int64_t> inherited(const std::string& fqn);
  // The class part of a member's name, found by the direct rules; read once per owner.
  std::optional<std::int64_t> owner(const std::string& fqn);
  bool has_module(const std::string& module);
  bool is_class(std::int64_t id);
  // A class's base class fqns; none for a symbol that is no class.
  std::vector<std::string> bases(std::int64_t id);
  struct BaseClass {
    std::string fqn;  // where it is defined; empty: not found
    std::vector<std::string> bases;
  };
  // A base class as written in a class's bases, found directly or through re-exports; read once.
  const BaseClass& base_class(const std::string& fqn);
  // The symbols of a name, read once: pages document `get` or `close` of many classes.
  const std::vector<std::pair<std::int64_t, std::string>>& named(const std::string& name);

  types::SqlTypeFacts facts_;
  index::Statement by_fqn_, by_name_, bases_, module_;
  std::unordered_map<std::string, std::vector<std::pair<std::int64_t, std::string>>> named_;
  std::unordered_map<std::string, std::optional<std::int64_t>> owners_;
  std::unordered_map<std::string, BaseClass> base_classes_;
  std::unordered_map<std::string, bool> modules_;
};

}  // namespace orvane_tamsel::indexer::reference_docs
