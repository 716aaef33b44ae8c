// The files tool: every indexed file under a folder, one page at a time, with the total.

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

Json files_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto folder = checked_path(repository.root(), arguments["path"].get<std::string>());
  const auto offset = arguments["offset"].get<long long>();
  const auto limit = arguments["limit"].get<long long>();
  // Offsets past the end give an empty page, not an error: the total says why.
  const int page_offset = offset > 1'000'000'000 ? 1'000'000'000 : static_cast<int>(offset);
  auto [paths, total] = repository.paths_page(folder, page_offset, static_cast<int>(limit));
  if (total == 0 && !folder.empty() && repository.get_file_by_path(folder)) {
    // A file rather than a folder: list it alone.
    paths = {folder};
    total = 1;
  }
  Json head = Json::object();
  head["path"] = folder;
  head["total"] = total;
  head["offset"] = offset;
  head["files"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  std::size_t listed = 0;
  for (const auto& p : paths) {
    if (!fit.add("files", p)) break;
    ++listed;
  }
  Json answer = fit.finish();
  auto next = offset + static_cast<long long>(listed);
  if (next < total) answer["next_offset"] = next;
  return answer;
}

}  // namespace orvane_tamsel::tool_handlers
