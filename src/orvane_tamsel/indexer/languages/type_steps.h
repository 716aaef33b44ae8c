#pragma once
// Building receiver type expressions step by step, shared by the extractors of typed languages.

#include <cstddef>
#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/parsed_file.h"

namespace orvane_tamsel::indexer {

// Longer receiver expressions are not worth keeping (generated code chains).
inline constexpr std::size_t MAX_TYPE_EXPR = 300;

// How deep the evaluation of one value expression follows its parts.
inline constexpr int MAX_TYPE_DEPTH = 12;

// `suffix` after each alternative of a non-empty `base`: "T:a|T:b" and "/m" give "T:a/m|T:b/m".
inline TypeExpr each_alternative(const TypeExpr& base, std::string_view suffix) {
  TypeExpr out;
  for (std::size_t at = 0;;) {
    auto bar = base.find('|', at);
    out.append(base, at, bar == std::string::npos ? std::string::npos : bar - at).append(suffix);
    if (bar == std::string::npos) return out;
    out.push_back('|');
    at = bar + 1;
  }
}

// `base` then its member `name` ("/name", "/name()" when called); empty when `base` is unknown
// or already too long.
inline TypeExpr type_step(const TypeExpr& base, std::string_view name, bool call) {
  if (base.empty() || base.size() > MAX_TYPE_EXPR) return {};
  return base + "/" + std::string(name) + (call ? "()" : "");
}

}  // namespace orvane_tamsel::indexer
