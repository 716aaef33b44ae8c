// Stand-ins for the host's suggestion builders, used only until the real ones are linked in: a
// strong definition elsewhere replaces these weak ones.
#include "orvane_tamsel/tool_handlers/next_steps.h"

namespace orvane_tamsel::tool_handlers {

[[gnu::weak]] Json suggest_paths(Json map, index::Repository& repository, const std::string& target,
                                 const std::string& action) {
  auto near = repository.similar_paths(target, 5);
  map["did_you_mean"] = near;
  map["next_steps"] = Json::array();
  if (!near.empty())
    map["next_steps"].push_back(
        step("file", "The file " + near.front(), Json{{"action", action}, {"path", near.front()}}));
  return map;
}

[[gnu::weak]] Json suggest_symbols(Json map, index::Repository& repository,
                                   const std::string& target, const std::string& action) {
  Json names = Json::array();
  for (const auto& s : repository.similar_symbols(target, 5)) names.push_back(s.fqn);
  map["did_you_mean"] = names;
  map["next_steps"] = Json::array();
  if (!names.empty())
    map["next_steps"].push_back(step("symbol", "The symbol " + names.front().get<std::string>(),
                                     Json{{"action", action}, {"fqn", names.front()}}));
  return map;
}

}  // namespace orvane_tamsel::tool_handlers
