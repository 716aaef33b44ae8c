#pragma once
// The linking plug-in that gives receiver call sites of every language their target by
// evaluating their receiver's type (see receiver_stage.h).

#include <string>
#include <vector>

#include "orvane_tamsel/indexer/linking_plugin.h"

namespace orvane_tamsel::indexer::types {

class TypeLinking : public LinkingPlugin {
 public:
  std::vector<std::string> languages() const override { return {}; }
  // The latest point where `relink` may grow, with every merge and import link done: the
  // receiver sites get their targets and join `relink`, to be linked by the common rule.
  void after_imports(LinkingContext& context) override;
};

}  // namespace orvane_tamsel::indexer::types
