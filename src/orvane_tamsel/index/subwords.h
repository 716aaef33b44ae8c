#pragma once
// Code names split into the words they are made of, for text search.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::index {

// apply_discount, applyDiscount and ApplyDiscount all give {"apply", "discount"}; HTTPServer gives
// {"http", "server"}. Lower-cased; digits stay with the word before them.
std::vector<std::string> subwords(std::string_view name);

// The letter and digit runs of a sub-word that mixes them (sha384: {"sha", "384"}; int2byte:
// {"int", "2", "byte"}); empty for a sub-word of one kind. The text table holds both forms: a
// question says "md5" whole but "SHA-384" apart.
std::vector<std::string> digit_pieces(std::string_view word);

// Appends to sub-words the digit pieces none of them already is.
void add_digit_pieces(std::vector<std::string>& words);

// A path or qualified name with the digit pieces of its words after it: a package named utf8 or
// ed25519 meets a question's pieces as its names do.
std::string with_digit_pieces(std::string_view text);

// What the `name` column of the symbol text table holds: the name as written, then its sub-words,
// then the digit pieces of those that mix letters and digits.
std::string name_text(std::string_view name);

}  // namespace orvane_tamsel::index
