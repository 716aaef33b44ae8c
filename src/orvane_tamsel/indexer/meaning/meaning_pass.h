#pragma once
// Brings the index's meaning vectors up to date after a batch of files was written.

#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::meaning {

// Learns the word vectors when the index has none, or when its symbols have doubled or halved
// since they were learned, and then gives every symbol its vector; otherwise keeps the word
// vectors and gives only the symbols of `changed_paths` new ones, dropping those of symbols
// gone. A build that cannot learn leaves the index without vectors: the signal is off.
void update_meaning(index::Database& db, const std::vector<std::string>& changed_paths);

}  // namespace orvane_tamsel::indexer::meaning
