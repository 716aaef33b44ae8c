#pragma once
// Python: module names from the package layout, and extraction through tree-sitter queries.

#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::python {

std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::python
