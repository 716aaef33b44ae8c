#pragma once
// What the lines that call a symbol say about it: the names its callers give the result, the
// arguments they pass, a comment just above. Learning reads them as more contexts of the
// symbol's words, so that "url" comes to sit near `reverse` because callers write
// `url = reverse(...)`.

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::meaning {

// Up to `per_symbol` calling lines of each callee (first by file and line), as their words; a
// comment line right above a call joins it. A file that cannot be read gives no lines.
std::map<index::SymbolId, std::vector<std::string>> call_line_words(
    index::Database& db, const std::filesystem::path& root, std::size_t per_symbol = 8);

}  // namespace orvane_tamsel::indexer::meaning
