#pragma once
// The explore tool: one free-text query about the code base, answered within a token budget.

#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/tool_handlers/memory.h"
#include "orvane_tamsel/workers/retriever.h"

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

inline const std::string TOOLS = "tools";
inline const std::string TESTS = "tests";
inline const std::string PATH = "path";
inline const std::string IDENTIFIER = "identifier";
inline const std::string QUESTION = "question";

// What a query asks for: the route, and the name or path it names (the query, otherwise).
struct Route {
  const std::string kind;
  const std::string target;
  Route(std::string kind_, std::string target_)
      : kind(std::move(kind_)), target(std::move(target_)) {}
  bool operator==(const Route&) const = default;
};

// The route a query takes, by its shape.
Route route(const std::string& query);

// `retriever` ranks the hits of a question and may be null for callers that ask no question.
Json handle_explore(index::Repository& repository, const std::string& query,
                    const std::string& scope = "module", const std::string& depth = "standard",
                    long long token_budget = 2000, workers::Retriever* retriever = nullptr,
                    index::MemoryLookup* memory_lookup = nullptr);

}  // namespace orvane_tamsel::tool_handlers
