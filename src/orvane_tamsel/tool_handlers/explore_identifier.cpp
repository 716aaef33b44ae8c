// The identifier route of explore: a name in code, its definition, callers and callees.

#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/workers/name_lookup.h"

namespace orvane_tamsel::tool_handlers::detail {

std::vector<std::pair<index::Symbol, std::string>> symbols_named(index::Repository& repository,
                                                                 const std::string& target) {
  std::vector<index::Symbol> found;
  auto exact = repository.get_symbol_by_fqn(target);
  if (exact && exact->id) {
    found.push_back(*exact);
  } else {
    std::string name = workers::guessed_name(target);
    if (name.empty()) return {};
    found = repository.search_symbols({name}, true, NAMESAKE_POOL).symbols;
    std::string dotted = workers::dotted(target);
    if (dotted != name) {
      std::string tail = "." + dotted;
      std::vector<index::Symbol> kept, inline_scoped;
      for (auto& s : found) {
        std::string full = "." + s.fqn;
        if (full.size() >= tail.size() &&
            full.compare(full.size() - tail.size(), tail.size(), tail) == 0)
          kept.push_back(std::move(s));
        else if (workers::names_through_inline_scopes(dotted, s.fqn))
          inline_scoped.push_back(std::move(s));
      }
      found = kept.empty() ? std::move(inline_scoped) : std::move(kept);
    }
  }
  if (found.size() > NAMESAKES) found.resize(NAMESAKES);
  auto paths = repository.get_file_paths_batch(found);
  std::vector<std::pair<index::Symbol, std::string>> out;
  for (auto& s : found) {
    auto it = paths.find(s.id.value_or(0));
    std::string p = it == paths.end() ? std::string() : it->second;
    out.emplace_back(std::move(s), std::move(p));
  }
  return out;
}

Draft& identifier(index::Repository& repository, Draft& draft, const std::string& target,
                  const Depth& depth) {
  auto symbols = symbols_named(repository, target);
  if (symbols.empty()) {
    auto modules = module_paths(repository, target, depth.listed);
    if (!modules.empty()) return file_answer(repository, draft, modules, depth);
    Json suggestion = suggest_symbols(Json::object(), repository, target, "detail");
    draft.facts["found"] = false;
    draft.facts["did_you_mean"] = suggestion.value("did_you_mean", Json());
    for (const auto& s : suggestion.value("next_steps", Json::array())) draft.steps.push_back(s);
    return draft;
  }
  const auto& [first, path] = symbols.front();
  auto callers = repository.evidence_neighbours({first.id.value_or(0)}, index::TestFilter::include,
                                                depth.listed + 1, CALLERS);
  Json rows = Json::array();
  for (const auto& [s, p] : symbols) rows.push_back(symbol_row(s, p));
  draft.blocks["symbols"] = rows;
  Json caller_rows = Json::array();
  for (std::size_t i = 0; i < callers.size() && i < static_cast<std::size_t>(depth.listed); ++i)
    caller_rows.push_back(neighbour_row(callers[i]));
  draft.blocks["callers"] = caller_rows;
  draft.capped = callers.size() > static_cast<std::size_t>(depth.listed);
  if (symbols.size() > 1)
    draft.notes.push_back(std::to_string(symbols.size()) + " symbols are named " + first.name +
                          "; the callers are those of " + first.fqn);
  if (draft.capped)
    draft.steps.push_back(step("symbol", "Every caller of " + first.fqn,
                               Json{{"action", "callers"}, {"fqn", first.fqn}}));
  draft.steps.push_back(step("symbol", "Everything that references " + first.fqn,
                             Json{{"action", "references"}, {"fqn", first.fqn}}));
  draft.steps.push_back(
      step("tests", "The tests of " + path, Json{{"action", "for_file"}, {"path", path}}));
  return draft;
}

}  // namespace orvane_tamsel::tool_handlers::detail
