#pragma once
// What resolving a receiver's type needs to know of the index: the symbols an fqn names.

#include <string>
#include <utility>
#include <vector>

#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer::types {

// One symbol as type resolution sees it.
struct TypeSymbol {
  std::string kind;
  std::string module;  // the module of the file that holds it
  TypeExpr type_of;
  std::vector<std::string> bases;
  std::vector<std::pair<std::string, TypeExpr>> fields;  // ParsedSymbol::fields
  std::string path;                                      // the file that holds it
};

// The symbols of the index by fqn (in any file); the source of facts for TypeResolver.
class TypeFacts {
 public:
  virtual ~TypeFacts() = default;
  // Every symbol (modules aside) whose fqn is `fqn`; empty when none.
  virtual const std::vector<TypeSymbol>& lookup(const std::string& fqn) = 0;
  // The fqn a name without symbols leads to through modules that import and so re-export it
  // (`pkg.Thing` for `from .impl import Thing` in pkg), or "" when none does.
  virtual std::string reexported(const std::string& fqn) {
    (void)fqn;
    return {};
  }
};

}  // namespace orvane_tamsel::indexer::types
