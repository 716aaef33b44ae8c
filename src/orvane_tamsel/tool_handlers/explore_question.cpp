// The question route of explore: the retriever's hits and their neighbours.

#include <set>

#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/utils/query_terms.h"

namespace orvane_tamsel::tool_handlers::detail {

Draft& question(index::Repository& repository, workers::Retriever& retriever, Draft& draft,
                const Depth& depth, const std::string& scope, bool about_tests) {
  auto result = retriever.retrieve(draft.query, depth.hits, about_tests, true);
  std::vector<index::SymbolId> ids;
  for (const auto& hit : result.hits) {
    if (scope == "file" && hit.symbol.path != result.hits.front().symbol.path) continue;
    ids.push_back(hit.symbol.id);
  }
  auto found = repository.symbols_with_paths(ids);
  std::vector<index::SymbolId> kept;
  for (auto id : ids)
    if (found.count(id)) kept.push_back(id);
  Json rows = Json::array();
  for (auto id : kept) rows.push_back(symbol_row(found.at(id).first, found.at(id).second));
  draft.blocks["symbols"] = rows;
  if (auto note = retrieval_note(result)) draft.notes.push_back(*note);
  if (depth.hop_from > 0 && !kept.empty()) {
    try {
      draft.blocks["related"] = related(repository, kept, found, depth, about_tests);
    } catch (const std::exception&) {
      warn_failed("neighbours", draft.query);
      draft.notes.push_back(NEIGHBOURS_FAILED);
    }
  }
  if (!kept.empty()) {
    const std::string& best = found.at(kept.front()).first.fqn;
    draft.steps.push_back(step("symbol", "The definition and docstring of " + best,
                               Json{{"action", "detail"}, {"fqn", best}}));
    draft.steps.push_back(
        step("symbol", "Every caller of " + best, Json{{"action", "callers"}, {"fqn", best}}));
  } else {
    std::string joined;
    for (const auto& term : utils::query_terms(draft.query))
      joined += (joined.empty() ? "" : " ") + term;
    draft.steps.push_back(
        step("search", "Search the text of the code", Json{{"action", "code"}, {"query", joined}}));
  }
  return draft;
}

std::vector<Json> related(
    index::Repository& repository, const std::vector<index::SymbolId>& ids,
    const std::map<index::SymbolId, std::pair<index::Symbol, std::string>>& found,
    const Depth& depth, bool about_tests) {
  std::vector<index::SymbolId> asked(
      ids.begin(), ids.begin() + std::min<std::size_t>(ids.size(), depth.hop_from));
  auto neighbours = repository.evidence_neighbours(
      asked, about_tests ? index::TestFilter::include : index::TestFilter::exclude,
      depth.neighbours);
  std::set<std::optional<index::SymbolId>> shown(ids.begin(), ids.end());
  std::vector<Json> rows;
  for (const auto& n : neighbours) {
    if (!shown.insert(n.id).second) continue;
    Json row = neighbour_row(n);
    row[n.relation == index::CALLER ? "calls" : "called_by"] = found.at(n.of).first.fqn;
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace orvane_tamsel::tool_handlers::detail
