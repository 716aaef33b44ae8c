#pragma once
// The words of the string literals a Python class or function holds itself: error messages,
// descriptions, template names say in words what undocumented code does.

#include <tree_sitter/api.h>

#include <string_view>
#include <vector>

#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer::python {

// Sets `words` of the classes, functions and methods among `symbols`: the words of the strings
// on their lines but not on a nested one's, docstrings left out.
void add_string_words(TSNode root, std::string_view src, std::vector<ParsedSymbol>& symbols);

}  // namespace orvane_tamsel::indexer::python
