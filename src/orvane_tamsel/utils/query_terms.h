#pragma once
// The words of a query that a search looks for: stop words dropped, code words kept whole and
// also split into their parts.

#include <string>
#include <vector>

namespace orvane_tamsel::utils {

// The meaningful keywords of a query, lower-cased; code words kept whole and also split.
std::vector<std::string> query_terms(const std::string& query);
// Whether the terms ask about tests ("tests", "pytest", "coverage", ...).
bool is_test_query(const std::vector<std::string>& terms);
// Whether one word is spelled like code (snake_case, camelCase, PascalCase, digits inside, ...).
bool reads_as_code(const std::string& word);

}  // namespace orvane_tamsel::utils
