#pragma once
// How a host tool's parameters appear on the command line, derived from the tool registry so that
// `tamsel TOOL ...` and the server's tool take the same arguments: an action with a choice and
// the required text come as positionals, everything else as --flags.

#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::cli {

// Whether the parameter is given by position (`tamsel symbol callers FQN`) rather than a flag.
bool is_positional(const ToolParam& param);

// --token-budget for token_budget.
std::string flag_name(const std::string& param_name);

// A word quoted for a POSIX shell only when it needs it.
std::string shell_word(const std::string& word);

// The command that runs a tool with these arguments, e.g. a next step of an answer:
// `tamsel symbol callers shop.cart.Cart.total`. A required argument the step leaves out appears
// as its name in capitals. `repo` is added as --repo unless it is "." or empty.
std::string tool_command(const std::string& tool, const nlohmann::ordered_json& arguments,
                         const std::string& repo = ".");

}  // namespace orvane_tamsel::cli
