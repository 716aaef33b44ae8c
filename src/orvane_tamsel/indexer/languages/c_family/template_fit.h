#pragma once
// C++ class template specializations: which one the template arguments written at a call fit.

#include <string_view>

namespace orvane_tamsel::indexer::c_family {

// How well `args` (`int&`, as written between the brackets of `DefaultValue<int&>`) fit the
// class whose signature is `signature` (`template <typename T> class DefaultValue<T&>`): -1 when
// they cannot, 0 for a primary template, else the pattern's tokens that are no template
// parameter (the more, the more specialized).
int specialization_fit(std::string_view signature, std::string_view args);

}  // namespace orvane_tamsel::indexer::c_family
