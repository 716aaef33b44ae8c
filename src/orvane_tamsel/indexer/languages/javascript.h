#pragma once
// JavaScript, TypeScript and TSX: fqns are the module path from the source root then classes;
// calls resolve through imports and `require`, `this`, `new` instances and same-file names.

#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::javascript {

// The path from the source root (below the first `src/` folder, else the repository root) without
// its extension, dotted: `src/app/cart.ts` gives `app.cart`; an `index` file is its folder.
std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::javascript
