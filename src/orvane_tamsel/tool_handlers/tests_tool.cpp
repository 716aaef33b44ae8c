// The tests tool: the ranked tests of a file, each with why.

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

Json tests_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto given = arguments["path"].get<std::string>();
  const auto path = checked_path(repository.root(), given);
  if (path.empty() || !repository.get_file_by_path(path)) {
    throw ToolError("the index holds no file '" + given + "'",
                    path_suggestions(repository, path.empty() ? given : path));
  }
  auto found = repository.get_tests_for(path);
  Json head = Json::object();
  head["path"] = path;
  head["total_count"] = found.value("total_count", 0);
  head["tests"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  if (found.contains("tests") && found["tests"].is_array()) {
    for (const auto& t : found["tests"]) {
      if (!fit.add("tests", t)) break;
    }
  }
  return fit.finish();
}

}  // namespace orvane_tamsel::tool_handlers
