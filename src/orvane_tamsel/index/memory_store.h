#pragma once
// Project memories in DIR/.tamsel/memories.db, apart from the index so that a rebuild keeps them.

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "orvane_tamsel/index/memories.h"

namespace orvane_tamsel::index {

class Database;

class MemoryStore : public Memories {
 public:
  // Opens (creating when missing) the store of the repository at `repository_root`. A damaged
  // store does not throw here: each use then throws MemoryUnreadable.
  explicit MemoryStore(const std::filesystem::path& repository_root);
  ~MemoryStore() override;

  // The memories whose title, text or tags match the query's words; at most 3, best first.
  std::vector<Memory> operator()(const std::string& query) override;

  Memory save(const std::string& title, const std::string& text,
              const std::vector<std::string>& tags) override;
  std::vector<Memory> list(int limit) override;
  bool remove(std::int64_t id) override;

 private:
  // Runs `use` on the open store; SQLite's errors become MemoryUnreadable naming the file.
  template <typename Use>
  auto guarded(Use&& use);

  std::mutex mutex_;
  std::filesystem::path file_;
  std::string problem_;  // why the store could not be opened
  std::unique_ptr<Database> db_;
};

}  // namespace orvane_tamsel::index
