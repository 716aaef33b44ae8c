#include "orvane_tamsel/cli/tool_command_line.h"

#include <algorithm>
#include <cctype>

namespace orvane_tamsel::cli {

bool is_positional(const ToolParam& param) {
  if (param.name == "action") return param.enum_values.size() > 1;
  return param.type == "string" && param.enum_values.empty() &&
         (param.required || param.name == "path");
}

std::string flag_name(const std::string& param_name) {
  std::string out = "--" + param_name;
  std::replace(out.begin(), out.end(), '_', '-');
  return out;
}

std::string shell_word(const std::string& word) {
  bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '.' || c == '/' || c == '_' || c == '-' || c == ':' ||
           c == ',' || c == '=' || c == '+' || c == '@' || c >= 0x80;
  });
  if (plain && word.front() != '-') return word;
  std::string out = "'";
  for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

namespace {

std::string value_text(const nlohmann::ordered_json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// Appends a space and the word (by appends: `" " + word` trips a GCC 12 false warning).
void add(std::string& out, const std::string& word) {
  out += ' ';
  out += word;
}

std::string placeholder(const std::string& name) {
  std::string out = name;
  for (auto& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

}  // namespace

std::string tool_command(const std::string& tool, const nlohmann::ordered_json& arguments,
                         const std::string& repo) {
  std::string out = "tamsel " + tool;
  const ToolDescription* description = find_tool(tool);
  if (description == nullptr) {
    add(out, shell_word(arguments.dump()));
    return out;
  }
  auto given = [&](const std::string& name) -> const nlohmann::ordered_json* {
    if (!arguments.is_object()) return nullptr;
    auto it = arguments.find(name);
    return it == arguments.end() || it->is_null() ? nullptr : &*it;
  };
  std::string flags;
  for (const auto& p : description->params) {
    const auto* value = given(p.name);
    if (is_positional(p)) {
      if (value != nullptr) {
        add(out, shell_word(value_text(*value)));
      } else if (p.required) {
        add(out, placeholder(p.name));
      }
      continue;
    }
    // A flag at its default says nothing: the command stays short.
    if (value == nullptr || *value == p.default_value) continue;
    if (p.type == "boolean") {
      if (value->is_boolean() && value->get<bool>()) add(flags, flag_name(p.name));
    } else if (p.type == "array" && value->is_array()) {
      for (const auto& item : *value) {
        add(flags, flag_name(p.name));
        add(flags, shell_word(value_text(item)));
      }
    } else {
      add(flags, flag_name(p.name));
      add(flags, shell_word(value_text(*value)));
    }
  }
  if (!repo.empty() && repo != ".") {
    add(flags, "--repo");
    add(flags, shell_word(repo));
  }
  return out + flags;
}

}  // namespace orvane_tamsel::cli
