#pragma once
// The subcommands of `tamsel`; each registers its flags and sets the action to run.

#include <functional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace orvane_tamsel::cli {

// The action returns the process exit status: 0 success, 1 failure (message on stderr).
using Action = std::function<int()>;

// Prints an answer: the client's JSON text when `json` is set or standard output is not a
// terminal (byte for byte what the server sends), otherwise the text for people.
void print_answer(const nlohmann::ordered_json& answer, bool json, const std::string& repo);

void add_index_command(CLI::App& app, Action& action);
// One command per host tool (explore, symbol, file, ...), from the tool registry.
void add_tool_commands(CLI::App& app, Action& action);
void add_status_command(CLI::App& app, Action& action);
void add_serve_command(CLI::App& app, Action& action);

}  // namespace orvane_tamsel::cli
