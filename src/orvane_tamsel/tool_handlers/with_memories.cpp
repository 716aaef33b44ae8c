#include "orvane_tamsel/tool_handlers/memory.h"

namespace orvane_tamsel::tool_handlers {

Json with_memories(Json answer, const std::string& query, MemoryLookup* lookup) {
  if (lookup == nullptr) return answer;
  auto found = (*lookup)(query);
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
