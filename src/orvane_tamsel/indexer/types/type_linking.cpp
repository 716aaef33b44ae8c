#include "orvane_tamsel/indexer/types/type_linking.h"

#include "orvane_tamsel/indexer/types/receiver_stage.h"

namespace orvane_tamsel::indexer::types {

void TypeLinking::after_imports(LinkingContext& context) {
  resolve_receivers(context.database(), context.full_build());
}

}  // namespace orvane_tamsel::indexer::types
