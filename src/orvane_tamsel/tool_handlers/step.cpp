// One next step: a tool call the client may make, with why.

#include "orvane_tamsel/tool_handlers/next_steps.h"

namespace orvane_tamsel::tool_handlers {

Json step(const std::string& tool, const std::string& description, Json arguments) {
  Json s = Json::object();
  s["tool"] = tool;
  s["description"] = description;
  s["arguments"] = arguments.is_object() ? std::move(arguments) : Json::object();
  return s;
}

}  // namespace orvane_tamsel::tool_handlers
