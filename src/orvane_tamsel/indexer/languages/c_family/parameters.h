#pragma once
// The parameter lists of C and C++ signatures as stored, compared to tell overloads apart.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace orvane_tamsel::indexer::c_family {

// One parameter's type as tokens: its name, default value, `struct`/`class` elaborations and
// namespace qualifiers left out, so that `const ns::Point& p = {}` reads as `const Point &`.
using ParameterType = std::vector<std::string>;

// The parameter types of the function `name` in its signature (`(void)` is none); nullopt when
// no `name(...)` can be found in it (an operator, a macro-made header).
std::optional<std::vector<ParameterType>> parameter_types(std::string_view signature,
                                                          std::string_view name);

// Whether two signatures of `name` may be one function: their parameter types agree, or either
// list cannot be read.
bool same_parameters(std::string_view a, std::string_view b, std::string_view name);

// Whether a call passing `arguments` may call the function `name` of that signature: as many as
// it has parameters, fewer when the last have defaults, more when it is variadic (`...` or a
// pack, not a pack inside a parameter's type: `R (*)(Args...)`). True when the
// count (-1) or the list is unknown.
bool fits(std::string_view signature, std::string_view name, std::int64_t arguments);

// How well a call fits the function `name` of that signature: 0 when it does not (fits()), 2 when
// every argument whose kind it shows (ParsedCall::argument_kinds) suits its parameter's type (a
// braced list an initializer_list, a wide string literal a wchar_t or wstring, a narrow one a
// char, an array an array or pointer, an object neither, a null pointer a pointer), 1 otherwise.
int fit_score(std::string_view signature, std::string_view name, std::int64_t arguments,
              std::string_view kinds);

// `same_parameters(a, b, name)`, `fits(signature, name, arguments)` and
// `fit_score(signature, name, arguments, kinds)` as the SQL functions c_same_parameters, c_fits
// and (with four arguments) c_fits on a connection.
void register_parameter_functions(sqlite3* db);

}  // namespace orvane_tamsel::indexer::c_family
