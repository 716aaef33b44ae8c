// The tests tool: the ranked tests of a file, each with why.

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

Json tests_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto given = arguments["path"].get<std::string>();
  const auto path = checked_path(repository.root(), given);
  if (path.empty() || !repository.get_file_by_path(path)) {
    throw ToolError("the index holds no file '" + echoed(given) + "'",
                    path_suggestions(repository, path.empty() ? given : path));
  }
  auto found = repository.get_tests_for(path);
  Json head = Json::object();
  head["path"] = path;
  head["total_count"] = found.total_count;
  head["tests"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  for (auto& row : test_rows(found)) {
    if (!fit.add("tests", std::move(row))) break;
  }
  return fit.finish();
}

}  // namespace orvane_tamsel::tool_handlers
