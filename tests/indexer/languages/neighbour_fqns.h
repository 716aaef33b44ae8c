#pragma once
// The fqns of a symbol's evidence-backed callers or callees, as the language tests compare them.

#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace indexer_test {

inline std::set<std::string> neighbour_fqns(orvane_tamsel::index::Repository& index,
                                            const std::string& fqn,
                                            const orvane_tamsel::index::Relation& relation) {
  namespace idx = orvane_tamsel::index;
  auto s = index.get_symbol_by_fqn(fqn);
  if (!s) return {"<missing " + fqn + ">"};
  std::set<std::string> out;
  for (const auto& n : index.evidence_neighbours({*s->id}, idx::TestFilter::include, 50,
                                                 std::vector<idx::Relation>{relation})) {
    out.insert(n.fqn.value_or(""));
  }
  return out;
}

}  // namespace indexer_test
