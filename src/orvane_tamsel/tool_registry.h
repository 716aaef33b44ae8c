#pragma once
// The host's tools: names, tiers, descriptions and parameters. The server's tools/list, the CLI's
// flags and the explore tool's largest budget all derive from this one table.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvane_tamsel {

struct ToolParam {
  std::string name;
  std::string type;  // JSON Schema type: string, integer, boolean, array
  std::string description;
  std::optional<std::int64_t> maximum;
  std::optional<std::int64_t> minimum;
  nlohmann::ordered_json default_value;  // null when the parameter has no default
  std::vector<std::string> enum_values;
  bool required = false;
};

struct ToolDescription {
  std::string name;
  int tier = 1;  // 1 is the smallest profile
  std::string description;
  std::vector<ToolParam> params;
  bool read_only = true;
};

namespace detail {
std::vector<ToolDescription> make_tools();
}

// In a stable order. Inline so that it is initialised before any module-load reader.
inline const std::vector<ToolDescription> TOOLS = detail::make_tools();

const ToolDescription* find_tool(const std::string& name);

}  // namespace orvane_tamsel
