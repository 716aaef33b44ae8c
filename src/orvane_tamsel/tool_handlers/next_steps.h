#pragma once
// Next steps: follow-up calls of the host's tools that an answer offers the client.

#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

// {"tool", "description", "arguments"}; arguments in the order given, an empty object when none.
Json step(const std::string& tool, const std::string& description, Json arguments = Json::object());

// The nearest indexed paths to `target` (at most 5, best first) under "did_you_mean", and under
// "next_steps" a step for the best one. `map` is the map to fill; `action` names the file action.
Json suggest_paths(Json map, index::Repository& repository, const std::string& target,
                   const std::string& action);
// The same for symbol names; the step is the `symbol` tool with `action`.
Json suggest_symbols(Json map, index::Repository& repository, const std::string& target,
                     const std::string& action);

}  // namespace orvane_tamsel::tool_handlers
