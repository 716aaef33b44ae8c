#pragma once
// Type facts read from the index's symbols: all at once for a large batch, by fqn for a small one.

#include <string>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/types/type_facts.h"

namespace orvane_tamsel::indexer::types {

// A symbol's fields as the symbols table stores them: "name\ttype" lines.
std::string encode_fields(const std::vector<std::pair<std::string, TypeExpr>>& fields);
std::vector<std::pair<std::string, TypeExpr>> decode_fields(const std::string& text);

class SqlTypeFacts : public TypeFacts {
 public:
  // `preload`: read every symbol now (one scan) rather than each fqn when first asked.
  SqlTypeFacts(index::Database& db, bool preload);
  const std::vector<TypeSymbol>& lookup(const std::string& fqn) override;
  std::string reexported(const std::string& fqn) override;

 private:
  static TypeSymbol row(const index::Statement& st);

  index::Statement by_fqn_, reexport_of_;
  bool complete_ = false;
  std::unordered_map<std::string, std::vector<TypeSymbol>> symbols_;
  std::vector<TypeSymbol> none_;
  std::unordered_map<std::string, std::string> reexports_;
};

}  // namespace orvane_tamsel::indexer::types
