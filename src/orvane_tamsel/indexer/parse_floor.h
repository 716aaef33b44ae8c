#pragma once
// The cost floor of indexing: walk and parse every file with tree-sitter, and nothing else.

#include <cstdint>
#include <filesystem>

namespace orvane_tamsel::indexer {

// Returns the number of files parsed; one thread, no queries, nothing written.
std::int64_t parse_only(const std::filesystem::path& repository_root, std::int64_t max_file_size);

}  // namespace orvane_tamsel::indexer
