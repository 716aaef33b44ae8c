#pragma once
// How alike two names look, for did-you-mean suggestions.

#include <string>

namespace orvane_tamsel::index {

// 1 for the same text ignoring case, falling with the edit distance between the lower-cased texts.
double similarity(const std::string& a, const std::string& b);

}  // namespace orvane_tamsel::index
