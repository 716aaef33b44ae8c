#pragma once
// Finds the symbol a reference page's dotted name documents.

#include <cstdint>
#include <optional>
#include <string>

#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/types/sql_type_facts.h"

namespace orvane_tamsel::indexer::reference_docs {

class DocLinker {
 public:
  explicit DocLinker(index::Database& db);
  // The symbol's id: the exact fqn; else where the package's re-exports lead (`asyncio.Queue`
  // is `asyncio.queues.Queue`); else the one symbol of the same top package whose fqn ends with
  // the documented class and name. nullopt: none, or several.
  std::optional<std::int64_t> link(const std::string& fqn);

 private:
  std::optional<std::int64_t> exact(const std::string& fqn);

  types::SqlTypeFacts facts_;
  index::Statement by_fqn_, by_name_;
};

}  // namespace orvane_tamsel::indexer::reference_docs
