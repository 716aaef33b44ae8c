#pragma once
// Paths that clients give to the tools, checked to stay inside the repository.

#include <filesystem>
#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::tool_handlers {

// The path as the index writes it ("" for the root, no trailing "/"). Throws ToolError for a path
// outside the repository: "..", an absolute path elsewhere, a symbolic link that leaves it, or a
// NUL byte.
std::string checked_path(const std::filesystem::path& root, const std::string& path);

// Lines first..last (1-based, inclusive) of an indexed file; empty when it cannot be read or
// leaves the repository.
std::vector<std::string> read_lines(const std::filesystem::path& root, const std::string& path,
                                    std::int64_t first, std::int64_t last);

// A "did_you_mean" detail for a path the index does not hold, or an empty object.
nlohmann::ordered_json path_suggestions(index::Repository& repository, const std::string& path);

}  // namespace orvane_tamsel::tool_handlers
