#pragma once
// Project memories in answers: short notes saved by users, attached as untrusted.

#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/index/memories.h"

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

inline constexpr const char* MEMORIES_UNREADABLE_HINT =
    "move the memories file aside (an empty store is created in its place) or restore it from a "
    "backup; the index and the answers do not depend on it";

inline constexpr const char* MEMORIES_TRUST =
    "untrusted: notes saved by users of this tool, not read from the code";

// Appends "memories" to the answer when the lookup finds any; the answer unchanged otherwise.
// A store that cannot be read is reported under "memories" and never fails the answer.
Json with_memories(Json answer, const std::string& query, index::MemoryLookup* lookup);

}  // namespace orvane_tamsel::tool_handlers
