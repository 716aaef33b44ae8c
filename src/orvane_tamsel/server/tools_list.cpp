#include "orvane_tamsel/server/tools_list.h"

namespace orvane_tamsel::server {

using Json = nlohmann::ordered_json;

namespace {

Json param_schema(const ToolParam& p) {
  Json s = Json::object();
  s["type"] = p.type;
  if (p.type == "array") s["items"] = Json{{"type", "string"}};
  s["description"] = p.description;
  if (!p.enum_values.empty()) s["enum"] = p.enum_values;
  if (p.minimum) s["minimum"] = *p.minimum;
  if (p.maximum) s["maximum"] = *p.maximum;
  if (!p.default_value.is_null()) s["default"] = p.default_value;
  return s;
}

}  // namespace

Json tool_listing(const ToolDescription& tool) {
  Json properties = Json::object();
  Json required = Json::array();
  for (const auto& p : tool.params) {
    properties[p.name] = param_schema(p);
    if (p.required) required.push_back(p.name);
  }
  Json schema = Json::object();
  schema["type"] = "object";
  schema["properties"] = std::move(properties);
  schema["required"] = std::move(required);
  schema["additionalProperties"] = false;
  Json t = Json::object();
  t["name"] = tool.name;
  t["description"] = tool.description;
  t["inputSchema"] = std::move(schema);
  if (tool.read_only) t["annotations"] = Json{{"readOnlyHint", true}};
  return t;
}

Json tools_list() {
  Json tools = Json::array();
  for (const auto& tool : TOOLS) tools.push_back(tool_listing(tool));
  return Json{{"tools", std::move(tools)}};
}

}  // namespace orvane_tamsel::server
