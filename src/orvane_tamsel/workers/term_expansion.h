#pragma once
// Words the code base itself pairs with a question's words: a name word that marks the symbols
// whose docstrings use a word ("permissions" -> perm, "logged" -> login), so that a question
// in prose reaches names spelled in the code's own vocabulary.

#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::workers::detail {

// Name words to search beside `terms`, at most a few per term, none of them a form of a term.
std::vector<std::string> expansions(index::Repository& repository,
                                    const std::vector<std::string>& terms);

}  // namespace orvane_tamsel::workers::detail
