#pragma once
// The memory port: short notes saved by users, kept apart from the index so that a rebuild keeps
// them. The tools hold this port; index/memory_store is the SQLite one.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane_tamsel::index {

struct Memory {
  std::int64_t id = 0;
  std::string title;
  std::string text;
  std::vector<std::string> tags;
  std::string created;  // ISO 8601, UTC
};

// The store cannot be read or written; the message says which file and why.
class MemoryUnreadable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Gives the memories relevant to a query (at most 3).
class MemoryLookup {
 public:
  virtual ~MemoryLookup() = default;
  virtual std::vector<Memory> operator()(const std::string& query) = 0;
};

// The whole store as the memory tool uses it. Every call may throw MemoryUnreadable.
class Memories : public MemoryLookup {
 public:
  virtual Memory save(const std::string& title, const std::string& text,
                      const std::vector<std::string>& tags) = 0;
  // Newest first.
  virtual std::vector<Memory> list(int limit) = 0;
  // False when no memory has that id.
  virtual bool remove(std::int64_t id) = 0;
};

}  // namespace orvane_tamsel::index
