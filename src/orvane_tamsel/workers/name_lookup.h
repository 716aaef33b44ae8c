#pragma once
// How names and paths that a client wrote map to the forms the index stores.

#include <filesystem>
#include <string>
#include <string_view>

namespace orvane_tamsel::workers {

// The path as the index writes it: relative to `root`, "/" separators, "./" and duplicate slashes
// removed, a trailing "/" kept for folders; "" for paths outside the repository.
std::string index_path(std::string_view path, const std::filesystem::path& root = {});
// "a::b", "a#b" and "a.b" all give "a.b".
std::string dotted(std::string_view name);
// The simple name a possibly qualified name ends with; "" when there is none.
std::string guessed_name(std::string_view name);
// Whether the dotted `fqn` is what the dotted `written` names with some of its inner namespaces
// left out, as the index leaves out inline ones (`std.__cxx11.basic_string` for
// `std.basic_string`): the same outermost and last names, the fqn's names in order among them.
bool names_through_inline_scopes(std::string_view written, std::string_view fqn);

}  // namespace orvane_tamsel::workers
