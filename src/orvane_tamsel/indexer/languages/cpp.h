#pragma once
// C++: namespaces and classes make the fqn (`ns::Cls::m` is `ns.Cls.m`); calls resolve through
// C++ name lookup (class, enclosing namespaces, global), `this`, and declared types of variables.

#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::cpp {

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::cpp
