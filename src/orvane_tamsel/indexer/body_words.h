#pragma once
// The words a symbol's own lines hold: the names it calls and reads, its comments and strings.

#include <string_view>
#include <vector>

#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer {

// Fills each symbol's `body` from the lines it holds itself: a line inside a nested symbol
// belongs to the innermost one, so a class does not repeat its methods' words. Modules get none.
void add_body_words(std::vector<ParsedSymbol>& symbols, std::string_view content);

}  // namespace orvane_tamsel::indexer
