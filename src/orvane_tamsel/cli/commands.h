#pragma once
// The subcommands of `tamsel`; each registers its flags and sets the action to run.

#include <functional>

#include <CLI/CLI.hpp>

namespace orvane_tamsel::cli {

// The action returns the process exit status: 0 success, 1 failure (message on stderr).
using Action = std::function<int()>;

void add_index_command(CLI::App& app, Action& action);
void add_explore_command(CLI::App& app, Action& action);
void add_serve_command(CLI::App& app, Action& action);

}  // namespace orvane_tamsel::cli
