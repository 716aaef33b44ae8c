// The tools route of explore: the list of the host's tools.

#include <algorithm>

#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::tool_handlers::detail {

Json tool_list(const std::string& query) {
  std::map<int, std::vector<std::string>> grouped;
  for (const auto& tool : orvane_tamsel::TOOLS) grouped[tool.tier].push_back(tool.name);
  Json tiers = Json::object();
  for (auto& [tier, names] : grouped) {
    std::sort(names.begin(), names.end());
    tiers[std::to_string(tier)] = names;
  }
  Json answer = Json::object();
  answer["query"] = query;
  answer["route"] = TOOLS;
  answer["total_tools"] = orvane_tamsel::TOOLS.size();
  answer["tiers"] = tiers;
  answer["next_steps"] =
      Json::array({step("explore", "Ask about the code: a question, a name in code or a path"),
                   step("context", "A context pack for a coding task", Json{{"action", "task"}})});
  return answer;
}

}  // namespace orvane_tamsel::tool_handlers::detail
