#pragma once
// The MCP server on standard input and output.

#include <filesystem>

namespace orvane_tamsel::server {

// Serves the repository's tools until end of input or SIGTERM; the exit status (0 then).
int serve_stdio(const std::filesystem::path& root);

}  // namespace orvane_tamsel::server
