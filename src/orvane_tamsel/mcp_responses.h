#pragma once
// The text the client receives for a value, and the sizes measured on it.

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace orvane_tamsel {

using Json = nlohmann::ordered_json;

// Compact JSON, keys in insertion order, non-ASCII written as it is.
std::string tool_result_text(const Json& value);
// Code points of tool_result_text(value).
std::size_t result_chars(const Json& value);
// The first sentence of the first paragraph, white space collapsed; "" for null or empty.
std::string first_sentence(const std::optional<std::string>& docstring);

}  // namespace orvane_tamsel
