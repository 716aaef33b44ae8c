#pragma once
// The folder a repository's index lives in, DIR/.tamsel, kept out of the repository's version
// control.

#include <filesystem>

namespace orvane_tamsel::index {

// DIR/.tamsel
std::filesystem::path index_folder(const std::filesystem::path& repository_root);

// Creates DIR/.tamsel when missing and gives it a .gitignore of "*" when it has none, so that
// git never lists the index as new files. Returns the folder; throws on a file system error.
std::filesystem::path ensure_index_folder(const std::filesystem::path& repository_root);

}  // namespace orvane_tamsel::index
