#pragma once
// Whether a file says it was written by a program: a user reads and calls the source that
// program was given, not its output.

#include <string_view>

namespace orvane_tamsel::indexer {

// The file's leading comments (before its first line of code, within its first lines) carry a
// generator's mark: `DO NOT EDIT` (Go's `// Code generated ... DO NOT EDIT.`, protoc, most
// generators) or `@generated`.
bool generated_header(std::string_view content);

}  // namespace orvane_tamsel::indexer
