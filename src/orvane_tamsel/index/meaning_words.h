#pragma once
// The words a symbol or a question says, as the meaning vectors know them: code names split into
// sub-words, lower-cased and stemmed, function words dropped. The indexer and the retriever both
// read text through these, so that a question's words meet the index's.

#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane_tamsel::index {

// The symbol kinds the retriever ranks, which are the ones that get a vector.
const std::set<std::string>& retrievable_kinds();

// The words of a text, in order, at most `limit` of them.
std::vector<std::string> meaning_words(std::string_view text,
                                       std::size_t limit = std::numeric_limits<std::size_t>::max());

// What a symbol says of itself.
struct SymbolText {
  std::string name;
  std::string parent_fqn;  // its class (or Go receiver type), empty for a top-level symbol
  std::string docstring;
  std::string signature;
};

// The words learning counts together: the name, the class's name, the docstring's first words
// and the parameters.
std::vector<std::string> context_words(const SymbolText& symbol);

// The words a symbol's vector adds up, each with its weight: the name's count fully, the class's
// name and the docstring's first sentence by half (they say where and why, the name says what).
std::vector<std::pair<std::string, float>> vector_words(const SymbolText& symbol);

}  // namespace orvane_tamsel::index
