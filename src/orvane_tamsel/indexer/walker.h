#pragma once
// Finds the files of a repository that the index reads, and why the others were left out.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/indexer/folder_cache.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::indexer {

struct WalkedFile {
  std::string path;  // repository-relative, "/" separators
  const utils::Language* language = nullptr;
  std::int64_t size = 0;
  std::int64_t mtime_ns = 0;
};

struct WalkResult {
  std::vector<WalkedFile> files;               // sorted by path
  std::vector<WalkedFile> pages;               // reference pages (no language), sorted by path
  std::map<std::string, std::string> skipped;  // path -> reason
  PackageDirs packages;
  std::vector<std::string> folders;  // folders entered, repository-relative ("" is the root)
};

// Ignored paths are left out silently, and so are files no registered language reads. Files a
// language would read but cannot be are listed in `skipped` with a short reason: "too large",
// "unreadable", "symlink outside", "broken symlink" (the content checks, "binary" and
// "not utf-8", happen when a file is read). Directory symlinks are never followed, so no loop
// can form: one pointing outside is "symlink outside", one to a folder holding it "symlink loop",
// one to another folder of the repository "symlink inside" (that folder is walked on its own).
// A file symlink to a file inside the repository is read under the link's path too. A folder
// that cannot be listed is "unreadable" under its own path. With a cache, a folder whose stamp
// is unchanged is not listed again (its code files are still stat'ed, as an edit leaves the
// folder as it was; one whose listing holds no file is not even opened), and the cache is
// brought up to date.
WalkResult walk(const std::filesystem::path& root, std::int64_t max_file_size,
                FolderCache* cache = nullptr);

}  // namespace orvane_tamsel::indexer
