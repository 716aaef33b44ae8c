#pragma once
// Brings the index's meaning vectors up to date after a batch of files was written.

#include <filesystem>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::meaning {

// Learns the word vectors when the index has none, when its symbols have doubled or halved since
// they were learned, or when a quarter of them changed, and then gives every symbol its vector;
// otherwise keeps the word vectors and gives only the symbols of `changed_paths` new ones,
// dropping those of symbols gone. Either way a symbol's row is what its own text and the stored
// words give, so an update holds what re-embedding every symbol with those words would. A build
// that cannot learn leaves the index without vectors: the signal is off.
// Learning reads the calling lines of symbols from the files under `root`.
void update_meaning(index::Database& db, const std::filesystem::path& root,
                    const std::vector<std::string>& changed_paths);

}  // namespace orvane_tamsel::indexer::meaning
