#pragma once
// Folder listings kept from one walk to the next, so that an unchanged folder is not read again.

#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvane_tamsel::indexer {

struct FolderEntry {
  enum Type : char { directory = 'd', file = 'f', symlink = 'l' };
  std::string name;
  Type type = file;
};

// What identifies a folder's contents: adding, removing or renaming an entry changes its change
// time, and replacing the folder changes its inode.
struct FolderStamp {
  std::int64_t device = 0, inode = 0, ctime_ns = 0, mtime_ns = 0;
  bool operator==(const FolderStamp&) const = default;
};

class FolderCache {
 public:
  // A folder changed less than `margin_ns` before the walk began is not kept: a change in the
  // same tick of the file system's clock would leave its stamp as it was.
  explicit FolderCache(std::int64_t margin_ns = 2'000'000'000);

  // A missing or unreadable file gives an empty cache.
  void load(const std::filesystem::path& file);
  // Writes what the last walk kept (a new file moved into place); false when it could not.
  bool save(const std::filesystem::path& file) const;

  // Called by the walk: `began_ns` is the wall clock when it started.
  void start_walk(std::int64_t began_ns);
  const std::vector<FolderEntry>* find(const std::string& rel, const FolderStamp& stamp);
  // The listing the last walk kept for the folder, whatever its stamp now (nullptr: none): what
  // the walk needs in order to stamp it can depend on what it holds.
  const std::vector<FolderEntry>* peek(const std::string& rel) const;
  void keep(const std::string& rel, const FolderStamp& stamp, std::vector<FolderEntry> entries);
  // True when the last walk listed a folder anew or no longer reached one: worth saving.
  bool changed() const { return changed_ || !loaded_.empty(); }

 private:
  struct Folder {
    FolderStamp stamp;
    std::vector<FolderEntry> entries;
  };
  std::int64_t margin_ns_;
  std::int64_t trusted_before_ns_ = 0;
  std::unordered_map<std::string, Folder> loaded_, kept_;
  bool changed_ = false;
};

}  // namespace orvane_tamsel::indexer
