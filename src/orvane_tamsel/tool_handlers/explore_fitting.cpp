// An explore answer fitted to its budget, and the step that asks again with more.

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::tool_handlers::detail {
namespace {

std::int64_t read_max_budget() {
  if (const auto* tool = find_tool("explore")) {
    for (const auto& p : tool->params)
      if (p.name == "token_budget" && p.maximum) return *p.maximum;
  }
  // Without it no retry step can be bounded: refuse to start.
  std::cerr << "explore: the tool registry has no maximum for explore's token_budget\n";
  throw std::logic_error("explore: the tool registry has no maximum for explore's token_budget");
}

}  // namespace

const std::int64_t MAX_BUDGET = read_max_budget();

Json fitted(const Draft& draft, std::int64_t budget, const Json& retry) {
  Json answer = Json::object();
  answer["query"] = draft.query;
  answer["route"] = draft.route;
  for (const auto& [name, rows] : draft.blocks.items()) answer[name] = Json::array();
  for (const auto& [name, value] : draft.facts.items()) answer[name] = value;
  if (!draft.notes.empty()) answer["notes"] = draft.notes;
  answer["truncated"] = false;
  answer["tokens_used"] = budget;
  Json steps = Json::array();
  for (const auto& s : draft.steps) steps.push_back(s);
  if (!retry.is_null()) steps.push_back(retry);
  answer["next_steps"] = steps;

  BudgetFit fit(std::move(answer), budget, BudgetFit::Commas::every_row);
  for (const auto& [name, rows] : draft.blocks.items()) {
    for (const auto& row : rows)
      if (!fit.add(name, row)) break;
    if (fit.full()) break;
  }
  bool cut = fit.full();
  if (draft.capped) fit.mark_truncated();
  auto& fitted = fit.answer();
  for (const auto& [name, rows] : draft.blocks.items())
    if (fitted[name].empty()) fitted.erase(name);
  if (!retry.is_null() && !cut) fitted["next_steps"].erase(fitted["next_steps"].size() - 1);
  return fit.finish();
}

Json retry(const std::string& query, const std::string& scope, const std::string& depth,
           std::int64_t budget) {
  if (budget >= MAX_BUDGET) return nullptr;
  Json args = Json::object();
  args["query"] = query;
  if (scope != DEFAULT_SCOPE) args["scope"] = scope;
  if (depth != DEFAULT_DEPTH) args["depth"] = depth;
  args["token_budget"] = std::min(budget * 2, MAX_BUDGET);
  return step("explore",
              "The answer was cut to " + std::to_string(budget) + " tokens: ask with more", args);
}

}  // namespace orvane_tamsel::tool_handlers::detail
