#pragma once
// Unicode-aware text helpers (white space, case, code points) over UTF-8 strings.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::utils {

bool is_space(char32_t c);
// Removes Unicode white space at both ends.
std::string strip(std::string_view text);
// Splits on runs of Unicode white space; no empty words.
std::vector<std::string> split_whitespace(std::string_view text);
// Full Unicode lower-casing.
std::string lower(std::string_view text);
// Number of code points; invalid bytes count one each.
std::size_t code_points(std::string_view text);
bool is_valid_utf8(std::string_view text);
// The code points of a UTF-8 string (invalid bytes become U+FFFD).
std::u32string decode(std::string_view text);
std::string encode(std::u32string_view text);

}  // namespace orvane_tamsel::utils
