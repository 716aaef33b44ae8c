#pragma once
// Python module names from the package layout, and the conftest.py files a test module sees.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::python {

// The dotted module of a file: see module_names.cpp for the source-root rule.
std::string module_from(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);

// The conftest.py files whose fixtures a file can request, nearest folder first, as (module,
// path) pairs; the modules follow from the file's own module, the file itself left out.
std::vector<std::pair<std::string, std::string>> conftest_chain(std::string_view path,
                                                                std::string_view module);

}  // namespace orvane_tamsel::indexer::python
