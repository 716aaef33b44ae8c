// The tests route of explore: the tests of a file, or the test code calling a symbol.

#include <algorithm>

#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/workers/name_lookup.h"

namespace orvane_tamsel::tool_handlers::detail {
namespace {

Draft& tests_of_file(index::Repository& repository, Draft& draft, const std::string& path,
                     const Depth& depth) {
  auto found = repository.get_tests_for(path);
  draft.blocks["files"] = Json::array({path});
  Json rows = Json::array();
  for (std::size_t i = 0; i < found.tests.size() && i < static_cast<std::size_t>(depth.listed);
       ++i) {
    Json row = Json::object();
    row["file"] = found.tests[i].path;
    auto reason = test_reason(found.tests[i]);
    if (!reason.empty()) row["reason"] = reason;
    rows.push_back(row);
  }
  draft.blocks["tests"] = rows;
  draft.capped = found.total_count > depth.listed;
  draft.steps.push_back(step("tests", "Every test of " + path + ", ranked, with why",
                             Json{{"action", "for_file"}, {"path", path}}));
  return draft;
}

Draft& tests_of_symbol(index::Repository& repository, Draft& draft, const index::Symbol& symbol,
                       const std::string& path, const Depth& depth) {
  std::vector<index::SymbolId> ids = {symbol.id.value_or(0)};
  if (MEMBER_HOLDERS.count(symbol.kind)) {
    std::string prefix = symbol.fqn + ".";
    for (const auto& member : repository.get_symbols_by_file(symbol.file_id))
      if (member.fqn.rfind(prefix, 0) == 0) ids.push_back(member.id.value_or(0));
  }
  // One record per id, the later one winning, at the place of the id's first record. A test
  // calling the symbol twice has two records: read on until one more distinct test than listed
  // is seen, or there are no more, so that the answer says truly whether it is complete.
  std::vector<index::Neighbour> distinct;
  for (int limit = depth.listed + 1;; limit *= 2) {
    auto callers = repository.evidence_neighbours(ids, index::TestFilter::only, limit, CALLERS);
    const bool all_read = static_cast<int>(callers.size()) < limit;
    distinct.clear();
    for (auto& c : callers) {
      auto same = std::find_if(distinct.begin(), distinct.end(),
                               [&](const auto& d) { return d.id == c.id; });
      if (same == distinct.end())
        distinct.push_back(std::move(c));
      else
        *same = std::move(c);
    }
    if (all_read || distinct.size() > static_cast<std::size_t>(depth.listed)) break;
  }
  std::stable_sort(distinct.begin(), distinct.end(), [](const auto& a, const auto& b) {
    return std::pair(a.path.value_or(""), a.line.value_or(0)) <
           std::pair(b.path.value_or(""), b.line.value_or(0));
  });
  draft.blocks["symbols"] = Json::array({symbol_row(symbol, path)});
  Json rows = Json::array();
  for (std::size_t i = 0; i < distinct.size() && i < static_cast<std::size_t>(depth.listed); ++i)
    rows.push_back(neighbour_row(distinct[i]));
  draft.blocks["tests"] = rows;
  draft.capped = distinct.size() > static_cast<std::size_t>(depth.listed);
  draft.steps.push_back(step("tests", "The test files of " + path + ", ranked",
                             Json{{"action", "for_file"}, {"path", path}}));
  return draft;
}

}  // namespace

bool tests(index::Repository& repository, Draft& draft, const std::string& target,
           const Depth& depth) {
  if (is_path(target)) {
    auto named =
        files_named(repository, workers::index_path(target, repository.root()), depth.listed);
    if (named.empty()) return false;
    tests_of_file(repository, draft, named.front(), depth);
    return true;
  }
  auto symbols = symbols_named(repository, target);
  if (!symbols.empty()) {
    tests_of_symbol(repository, draft, symbols.front().first, symbols.front().second, depth);
    return true;
  }
  auto modules = module_paths(repository, target, depth.listed);
  if (modules.empty()) return false;
  tests_of_file(repository, draft, modules.front(), depth);
  return true;
}

}  // namespace orvane_tamsel::tool_handlers::detail
