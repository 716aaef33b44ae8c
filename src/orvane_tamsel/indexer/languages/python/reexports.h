#pragma once
// Python linking: names that modules re-export through their imports.

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "orvane_tamsel/indexer/linking_plugin.h"

namespace orvane_tamsel::indexer::python {

// `from .query import QuerySet` in a package's __init__.py makes `pkg.QuerySet` a name of
// `pkg.query.QuerySet`: a site left unlinked whose target (or a fallback) is such a name is
// linked to the symbol the chain of imports leads to. Sites with scope rows come from
// languages without re-exports and are left alone, so this serves any language whose sites
// carry none.
class Reexports final : public LinkingPlugin {
 public:
  explicit Reexports(index::Database& db);
  std::vector<std::string> languages() const override { return {"python"}; }

  void before_relink(LinkingContext& ctx) override;
  void after_linking(LinkingContext& ctx) override;

 private:
  std::optional<std::int64_t> through_reexports(const std::string& fqn);

  index::Statement reexport_of_, reexporters_, symbol_by_fqn_;
  std::unordered_map<std::string, std::optional<std::int64_t>> cache_;
  // Modules whose files import anything: only they can re-export, so the others are not asked.
  std::unordered_set<std::string> importing_modules_;
};

}  // namespace orvane_tamsel::indexer::python
