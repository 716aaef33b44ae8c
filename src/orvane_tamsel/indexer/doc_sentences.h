#pragma once
// The sentences of a package's, module's or type's documentation that its members are searched
// with: what the enclosing doc says of a member is often what a question asks in its words.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer {

// The doc's sentences, each on one line: a sentence ends at `.`, `?` or `!` before a space and
// a word not in lower case, or at the end, or at a blank line; a long one is cut to its first
// words.
std::vector<std::string> doc_sentences(std::string_view doc);

// The first sentence ("" when there is none).
std::string first_sentence(std::string_view doc);

// The sentences that name `name` as a whole identifier (letters, digits and `_` on neither
// side), joined by spaces.
std::string sentences_naming(std::string_view doc, std::string_view name);

}  // namespace orvane_tamsel::indexer
