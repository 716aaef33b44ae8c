#pragma once
// Keeps what the repository's reference pages say about its symbols in the index: the pages'
// documented names, the symbol each links to, and that text in the symbols' text search rows.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/reference_docs/code_change.h"
#include "orvane_tamsel/indexer/walker.h"

namespace orvane_tamsel::indexer::reference_docs {

// Whether the index holds any page.
bool has_pages(index::Database& db);

// Whether the walked pages differ from those the index read (added, changed, gone).
bool pages_changed(index::Database& db, const std::vector<WalkedFile>& pages);

struct PagesUpdate {
  // The code files holding symbols whose page text changed (their meaning vectors are out of
  // date).
  std::vector<std::string> changed_files;
  std::int64_t read = 0;         // pages read
  std::int64_t passed_over = 0;  // .txt files whose head holds no Python directive
};

// Reads the pages that changed and links their names; relinks the names the code change may link
// elsewhere (all of them when a star import moved); rewrites the text rows of the symbols whose
// page text changed or whose rows the code batch wrote anew. Runs in a transaction of its own.
PagesUpdate update_reference_docs(index::Database& db, const std::filesystem::path& root,
                                  const std::vector<WalkedFile>& pages, const CodeChange& code);

}  // namespace orvane_tamsel::indexer::reference_docs
