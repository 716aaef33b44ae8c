#pragma once
// The Repository port over DIR/.tamsel/index.db.

#include <filesystem>
#include <memory>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::index {

// Opens the index of a repository for reading; throws with a message that says what to do when
// there is no index or it cannot be read.
std::unique_ptr<Repository> open_repository(const std::filesystem::path& repository_root);

}  // namespace orvane_tamsel::index
