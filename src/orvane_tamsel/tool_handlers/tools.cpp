#include "orvane_tamsel/tool_handlers/tools.h"

#include <cmath>
#include <limits>

namespace orvane_tamsel::tool_handlers {

namespace {

std::string names_of(const ToolDescription& tool) {
  std::string out;
  for (const auto& p : tool.params) out += (out.empty() ? "" : ", ") + p.name;
  return out;
}

std::string joined(const std::vector<std::string>& values) {
  std::string out;
  for (const auto& v : values) out += (out.empty() ? "" : ", ") + v;
  return out;
}

Json checked_value(const ToolDescription& tool, const ToolParam& p, const Json& value) {
  auto wrong = [&](const std::string& what) {
    return InvalidArguments("argument '" + p.name + "' of tool '" + tool.name + "' must be " +
                            what + ", not " + value.type_name());
  };
  if (p.type == "string") {
    if (!value.is_string()) throw wrong("a string");
    const auto& s = value.get_ref<const std::string&>();
    if (s.size() > MAX_TEXT_ARGUMENT) {
      throw ToolError("argument '" + p.name + "' is " + std::to_string(s.size()) +
                      " bytes long; shorten it to at most " + std::to_string(MAX_TEXT_ARGUMENT));
    }
    if (!p.enum_values.empty()) {
      bool known = false;
      for (const auto& e : p.enum_values) known = known || e == s;
      if (!known) {
        throw ToolError("argument '" + p.name + "' must be one of " + joined(p.enum_values) +
                        ", not '" + s + "'");
      }
    }
    return value;
  }
  if (p.type == "integer") {
    long long n = 0;
    if (value.is_number_integer()) {
      if (value.is_number_unsigned() &&
          value.get<unsigned long long>() >
              static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
        n = std::numeric_limits<long long>::max();
      } else {
        n = value.get<long long>();
      }
    } else if (value.is_number_float()) {
      double d = value.get<double>();
      if (!std::isfinite(d) || d != std::floor(d)) throw wrong("a whole number");
      n = d > 9e18
              ? std::numeric_limits<long long>::max()
              : (d < -9e18 ? std::numeric_limits<long long>::min() : static_cast<long long>(d));
    } else {
      throw wrong("an integer");
    }
    if ((p.minimum && n < *p.minimum) || (p.maximum && n > *p.maximum)) {
      std::string range = p.minimum && p.maximum ? "between " + std::to_string(*p.minimum) +
                                                       " and " + std::to_string(*p.maximum)
                          : p.minimum ? "at least " + std::to_string(*p.minimum)
                                      : "at most " + std::to_string(*p.maximum);
      throw ToolError("argument '" + p.name + "' must be " + range + ", not " + std::to_string(n));
    }
    return Json(n);
  }
  if (p.type == "boolean") {
    if (!value.is_boolean()) throw wrong("true or false");
    return value;
  }
  if (p.type == "array") {
    if (!value.is_array()) throw wrong("an array of strings");
    for (const auto& item : value) {
      if (!item.is_string()) throw wrong("an array of strings");
    }
    return value;
  }
  return value;
}

}  // namespace

Json checked_arguments(const ToolDescription& tool, const Json& arguments) {
  if (!arguments.is_null() && !arguments.is_object()) {
    throw InvalidArguments("the arguments of tool '" + tool.name + "' must be an object, not " +
                           arguments.type_name());
  }
  if (arguments.is_object()) {
    for (const auto& [key, value] : arguments.items()) {
      bool known = false;
      for (const auto& p : tool.params) known = known || p.name == key;
      if (!known) {
        throw InvalidArguments("tool '" + tool.name + "' has no argument '" + key +
                               "'; it takes: " + names_of(tool));
      }
    }
  }
  Json out = Json::object();
  for (const auto& p : tool.params) {
    const Json* given = nullptr;
    if (arguments.is_object()) {
      auto it = arguments.find(p.name);
      if (it != arguments.end() && !it->is_null()) given = &*it;
    }
    if (given == nullptr) {
      if (p.required) {
        throw InvalidArguments("tool '" + tool.name + "' needs the argument '" + p.name + "' (" +
                               p.description + ")");
      }
      if (!p.default_value.is_null()) out[p.name] = p.default_value;
      continue;
    }
    out[p.name] = checked_value(tool, p, *given);
  }
  return out;
}

Json call_tool(const std::string& name, const Json& arguments, ToolContext& context) {
  if (name == "explore") {
    if (!context.explore) throw ToolError("explore is not available in this server");
    return context.explore(arguments);
  }
  if (name == "context") return context_tool(arguments, context);
  if (name == "symbol") return symbol_tool(arguments, context);
  if (name == "file") return file_tool(arguments, context);
  if (name == "files") return files_tool(arguments, context);
  if (name == "tests") return tests_tool(arguments, context);
  if (name == "search") return search_tool(arguments, context);
  if (name == "memory") return memory_tool(arguments, context);
  throw InvalidArguments("no tool named '" + name + "'");
}

Json error_answer(const ToolError& error) {
  Json answer = Json::object();
  answer["error"] = error.what();
  if (error.details.is_object()) {
    for (const auto& [key, value] : error.details.items()) answer[key] = value;
  }
  return answer;
}

}  // namespace orvane_tamsel::tool_handlers
