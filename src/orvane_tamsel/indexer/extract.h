#pragma once
// Turns one source file into symbols, imports and call sites, by its language's extractor.

#include <set>
#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/parsed_file.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::indexer {

// The folders that make packages (for Python: those holding an __init__.py), repository-relative.
using PackageDirs = std::set<std::string, std::less<>>;

// The dotted module of a file; see languages/python.cpp for the source-root rule. `root_name` is
// the repository folder's own name, used when the root itself is a package.
std::string module_name(const utils::Language& language, std::string_view path,
                        const PackageDirs& packages, std::string_view root_name = {});

// Compiles the language's queries (once per process) before its first file needs them.
void prepare_extraction(const utils::Language& language);

// Safe to call from several threads at once.
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer
