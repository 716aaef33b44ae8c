// The registry of language linking plug-ins (see linking_plugin.h).

#include "orvane_tamsel/indexer/languages/c_family/linking.h"
#include "orvane_tamsel/indexer/languages/go/build_variants.h"
#include "orvane_tamsel/indexer/languages/go/promotion.h"
#include "orvane_tamsel/indexer/languages/python/reexports.h"
#include "orvane_tamsel/indexer/linking_plugin.h"
#include "orvane_tamsel/indexer/types/type_linking.h"

namespace orvane_tamsel::indexer {

// The order matters where hooks of two plug-ins read what another wrote: C's declarations taken
// back and Python's re-exports add to `affected`, which Go's promotion reads.
std::vector<std::unique_ptr<LinkingPlugin>> make_linking_plugins(index::Database& db) {
  std::vector<std::unique_ptr<LinkingPlugin>> plugins;
  plugins.push_back(std::make_unique<c_family::Linking>(db));
  plugins.push_back(std::make_unique<python::Reexports>(db));
  plugins.push_back(std::make_unique<go::Promotion>(db));
  // After the promotion: a promoted method may be one of several build variants too.
  plugins.push_back(std::make_unique<go::BuildVariants>());
  // Last: receiver sites are evaluated once the other plug-ins have merged, removed, affected.
  plugins.push_back(std::make_unique<types::TypeLinking>());
  return plugins;
}

}  // namespace orvane_tamsel::indexer
