#pragma once
// Code names split into the words they are made of, for text search.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::index {

// apply_discount, applyDiscount and ApplyDiscount all give {"apply", "discount"}; HTTPServer gives
// {"http", "server"}. Lower-cased; digits stay with the word before them.
std::vector<std::string> subwords(std::string_view name);

// What the `name` column of the symbol text table holds: the name as written, then its sub-words.
std::string name_text(std::string_view name);

}  // namespace orvane_tamsel::index
