#pragma once
// Project memories: short notes saved by users, attached to answers as untrusted.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

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

inline constexpr const char* MEMORIES_UNREADABLE_HINT =
    "move the memories file aside (an empty store is created in its place) or restore it from a "
    "backup; the index and the answers do not depend on it";

// Gives the memories relevant to a query (at most 3).
class MemoryLookup {
 public:
  virtual ~MemoryLookup() = default;
  virtual std::vector<Memory> operator()(const std::string& query) = 0;
};

inline constexpr const char* MEMORIES_TRUST =
    "untrusted: notes saved by users of this tool, not read from the code";

// Appends "memories" to the answer when the lookup finds any; the answer unchanged otherwise.
// A store that cannot be read is reported under "memories" and never fails the answer.
Json with_memories(Json answer, const std::string& query, MemoryLookup* lookup);

}  // namespace orvane_tamsel::tool_handlers
