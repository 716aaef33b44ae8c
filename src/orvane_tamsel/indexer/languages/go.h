#pragma once
// Go: `package.Type.Method` fqns; calls resolve within the package (its folder), through imports
// and through a method's receiver.

#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::go {

// The file's folder, dotted (`net/http/server.go` gives `net.http`); at the root, the repository's
// name. An import path names the same module, maybe behind a host and module prefix.
std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::go
