#pragma once
// The embedder learned from the repository at index time, over DIR/.tamsel/index.db.

#include <filesystem>
#include <memory>

#include "orvane_tamsel/index/embedder.h"

namespace orvane_tamsel::index {

// Opens the index's meaning vectors for reading; nothing is read until a question asks. Throws
// as open_repository does when there is no index.
std::shared_ptr<Embedder> open_learned_embedder(const std::filesystem::path& repository_root);

}  // namespace orvane_tamsel::index
