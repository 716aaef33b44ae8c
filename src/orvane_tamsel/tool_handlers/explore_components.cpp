// The components an explore answer touches, ranked by how many of its files each holds.

#include <algorithm>

#include "orvane_tamsel/tool_handlers/explore_internal.h"

namespace orvane_tamsel::tool_handlers::detail {

std::vector<Json> components(index::Repository& repository, const std::vector<std::string>& files) {
  auto by_file = repository.components_of(files);
  std::map<std::string, std::int64_t> tally;
  for (const auto& f : files) {
    auto it = by_file.find(f);
    if (it != by_file.end()) ++tally[it->second];
  }
  std::vector<std::pair<std::string, std::int64_t>> ranked(tally.begin(), tally.end());
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  if (ranked.size() > COMPONENTS) ranked.resize(COMPONENTS);
  std::vector<Json> rows;
  for (const auto& [name, count] : ranked) {
    Json row = Json::object();
    row["name"] = name;
    row["files"] = count;
    rows.push_back(row);
  }
  return rows;
}

}  // namespace orvane_tamsel::tool_handlers::detail
