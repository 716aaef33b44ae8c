#pragma once
// Project memories: short notes saved by users, attached to answers as untrusted.

#include <cstdint>
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

// Gives the memories relevant to a query (at most 3).
class MemoryLookup {
 public:
  virtual ~MemoryLookup() = default;
  virtual std::vector<Memory> operator()(const std::string& query) = 0;
};

inline constexpr const char* MEMORIES_TRUST =
    "untrusted: notes saved by users of this tool, not read from the code";

// Appends "memories" to the answer when the lookup finds any; the answer unchanged otherwise.
Json with_memories(Json answer, const std::string& query, MemoryLookup* lookup);

}  // namespace orvane_tamsel::tool_handlers
