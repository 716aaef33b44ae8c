#pragma once
// The explore tool's parts: routing, the draft and its rows, fitting, components and the routes.

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "orvane_tamsel/tool_handlers/explore.h"

namespace orvane_tamsel::tool_handlers::detail {

// How far an answer of one depth goes.
struct Depth {
  int hits;
  int hop_from;
  int neighbours;
  int listed;
};

inline const std::array<std::pair<std::string, Depth>, 3> DEPTHS = {{
    {"quick", {5, 0, 0, 5}},
    {"standard", {10, 3, 3, 10}},
    {"deep", {20, 5, 5, 25}},
}};
inline const std::string DEFAULT_DEPTH = "standard";
inline const std::string DEFAULT_SCOPE = "module";
inline constexpr int COMPONENTS = 5;
inline constexpr int NAMESAKES = 5;
inline constexpr int NAMESAKE_POOL = 50;
inline const std::vector<index::Relation> CALLERS = {index::CALLER};
// Kinds whose members a test may call instead of the symbol itself: a Go struct, a Rust trait, a
// Java enum hold methods as a class does.
inline const std::set<std::string> MEMBER_HOLDERS = {
    "class", "interface", "struct", "trait", "enum", "union", "record", "object", "type"};
inline const std::string NO_TERMS = "Could not extract meaningful keywords from query";
inline const std::string NO_TERMS_HINT =
    "Try a more specific query like 'authentication middleware' or 'database connection pool'";
inline const std::string COMPONENTS_FAILED =
    "The components of the answer could not be read (see the log)";
inline const std::string NEIGHBOURS_FAILED =
    "The callers and callees of the hits could not be read (see the log)";

// The largest budget a retry step may ask for, from the tool registry.
extern const std::int64_t MAX_BUDGET;

// The profile of a depth name; the standard one for an unknown name.
const Depth& depth_profile(const std::string& name);

// An answer before it is fitted to its budget.
struct Draft {
  std::string query;
  std::string route;
  Json blocks = Json::object();  // block name -> array of rows
  Json facts = Json::object();
  std::vector<std::string> notes;
  std::vector<Json> steps;
  bool capped = false;

  Draft(std::string query_, std::string route_)
      : query(std::move(query_)), route(std::move(route_)) {}
  // The files of the rows, each once, in order.
  std::vector<std::string> files() const;
};

Json symbol_row(const index::Symbol& symbol, const std::string& path);
Json neighbour_row(const index::Neighbour& neighbour);

// Routing.
bool is_path(const std::string& text);
bool is_name(const std::string& text);

// Fitting.
Json fitted(const Draft& draft, std::int64_t budget, const Json& retry);
Json retry(const std::string& query, const std::string& scope, const std::string& depth,
           std::int64_t budget);

std::vector<Json> components(index::Repository& repository, const std::vector<std::string>& files);

// Routes.
Json tool_list(const std::string& query);
Draft& path(index::Repository& repository, Draft& draft, const std::string& target,
            const Depth& depth);
Draft& file_answer(index::Repository& repository, Draft& draft,
                   const std::vector<std::string>& paths, const Depth& depth);
std::vector<std::string> files_named(index::Repository& repository, const std::string& path,
                                     int limit);
std::vector<std::string> module_paths(index::Repository& repository, const std::string& target,
                                      int limit);
std::vector<std::pair<index::Symbol, std::string>> symbols_named(index::Repository& repository,
                                                                 const std::string& target);
Draft& identifier(index::Repository& repository, Draft& draft, const std::string& target,
                  const Depth& depth);
// False when the target names nothing the index holds.
bool tests(index::Repository& repository, Draft& draft, const std::string& target,
           const Depth& depth);
Draft& question(index::Repository& repository, workers::Retriever& retriever, Draft& draft,
                const Depth& depth, const std::string& scope, bool about_tests);
std::vector<Json> related(
    index::Repository& repository, const std::vector<index::SymbolId>& ids,
    const std::map<index::SymbolId, std::pair<index::Symbol, std::string>>& found,
    const Depth& depth, bool about_tests);

// The query as a quoted literal for log lines (single quotes, escapes).
std::string repr(const std::string& text);
// Logs "explore: the <what> of <query> failed" with the current exception's details.
void warn_failed(const std::string& what, const std::string& query);

}  // namespace orvane_tamsel::tool_handlers::detail
