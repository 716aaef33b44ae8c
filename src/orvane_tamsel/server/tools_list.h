#pragma once
// The tools/list answer, generated from the tool registry.

#include <nlohmann/json.hpp>

#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::server {

// {"name", "description", "inputSchema", "annotations"?} of one tool.
nlohmann::ordered_json tool_listing(const ToolDescription& tool);
// {"tools": [...]} in the registry's order.
nlohmann::ordered_json tools_list();

}  // namespace orvane_tamsel::server
