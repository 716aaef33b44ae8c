// The memory tool: saves, lists and deletes the project's memories.

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/memory.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

namespace {

constexpr int MAX_LISTED = 200;

Json memory_row(const index::Memory& m) {
  Json row = Json::object();
  row["id"] = m.id;
  row["title"] = m.title;
  row["text"] = m.text;
  row["tags"] = m.tags;
  row["created"] = m.created;
  return row;
}

Json memory_action(const Json& arguments, index::Memories& store) {
  const auto action = arguments["action"].get<std::string>();
  if (action == "save") {
    auto title = arguments.value("title", "");
    auto text = arguments.value("text", "");
    if (title.empty() || text.empty()) {
      throw ToolError("save needs a title and a text");
    }
    auto tags = arguments.value("tags", std::vector<std::string>{});
    return memory_row(store.save(title, text, tags));
  }
  if (action == "delete") {
    if (!arguments.contains("id")) throw ToolError("delete needs the id of the memory");
    auto id = arguments["id"].get<std::int64_t>();
    if (!store.remove(id)) {
      throw ToolError("no memory has the id " + std::to_string(id),
                      Json{{"hint", "call memory with the action list to see the ids"}});
    }
    return Json{{"deleted", id}};
  }
  auto memories = store.list(MAX_LISTED + 1);
  Json head = Json::object();
  head["trust"] = MEMORIES_TRUST;
  head["memories"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  if (memories.size() > MAX_LISTED) fit.mark_truncated();
  for (std::size_t i = 0; i < memories.size() && i < MAX_LISTED; ++i) {
    if (!fit.add("memories", memory_row(memories[i]))) break;
  }
  return fit.finish();
}

}  // namespace

Json memory_tool(const Json& arguments, ToolContext& context) {
  if (context.memories == nullptr) {
    throw ToolError("project memories are not available in this server");
  }
  try {
    return memory_action(arguments, *context.memories);
  } catch (const index::MemoryUnreadable& e) {
    throw ToolError(e.what(), Json{{"hint", MEMORIES_UNREADABLE_HINT}});
  }
}

}  // namespace orvane_tamsel::tool_handlers
