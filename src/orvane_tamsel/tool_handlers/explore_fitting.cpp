#include <algorithm>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "orvane_tamsel/mcp_responses.h"
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

std::int64_t ceil_div(std::int64_t a, std::int64_t b) {
  return (a + b - 1) / b;
}

}  // namespace

const std::int64_t MAX_BUDGET = read_max_budget();

std::int64_t chars(const Json& value) {
  return static_cast<std::int64_t>(result_chars(value));
}

std::int64_t measured_tokens(Json& answer) {
  answer["tokens_used"] = 0;
  for (int pass = 0; pass < 3; ++pass)
    answer["tokens_used"] = ceil_div(chars(answer), CHARS_PER_TOKEN);
  return answer["tokens_used"].get<std::int64_t>();
}

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

  constexpr auto most = std::numeric_limits<std::int64_t>::max() / CHARS_PER_TOKEN;
  std::int64_t room =
      (budget > most ? std::numeric_limits<std::int64_t>::max() : budget * CHARS_PER_TOKEN) -
      chars(answer);
  bool cut = false;
  for (const auto& [name, rows] : draft.blocks.items()) {
    for (const auto& row : rows) {
      std::int64_t size = chars(row) + 1;
      if (size > room) {
        cut = true;
        break;
      }
      answer[name].push_back(row);
      room -= size;
    }
    if (cut) break;
  }
  for (const auto& [name, rows] : draft.blocks.items())
    if (answer[name].empty()) answer.erase(name);
  if (!retry.is_null() && !cut) answer["next_steps"].erase(answer["next_steps"].size() - 1);
  answer["truncated"] = cut || draft.capped;
  measured_tokens(answer);
  return answer;
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
