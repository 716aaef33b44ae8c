#pragma once
// Java: `package.Class.method` fqns; calls resolve through `this`, typed variables and fields,
// imports (static ones too), the own class and the own package.

#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::java {

// The file's folder below the source root (`src/main/java/`, `src/test/java/`, else `src/` or the
// repository root), dotted: the package by the layout convention.
std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::java
