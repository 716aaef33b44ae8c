// Project memories attached to an answer, as untrusted.

#include "orvane_tamsel/tool_handlers/memory.h"

namespace orvane_tamsel::tool_handlers {

Json with_memories(Json answer, const std::string& query, index::MemoryLookup* lookup) {
  if (lookup == nullptr) return answer;
  std::vector<index::Memory> found;
  try {
    found = (*lookup)(query);
  } catch (const std::exception& e) {
    Json problem = Json::object();
    problem["trust"] = MEMORIES_TRUST;
    problem["error"] = e.what();
    problem["hint"] = MEMORIES_UNREADABLE_HINT;
    answer["memories"] = std::move(problem);
    return answer;
  }
  if (found.empty()) return answer;
  Json items = Json::array();
  for (const auto& m : found) {
    Json item = Json::object();
    item["id"] = m.id;
    item["title"] = m.title;
    item["text"] = m.text;
    items.push_back(std::move(item));
  }
  Json memories = Json::object();
  memories["trust"] = MEMORIES_TRUST;
  memories["items"] = std::move(items);
  answer["memories"] = std::move(memories);
  return answer;
}

}  // namespace orvane_tamsel::tool_handlers
