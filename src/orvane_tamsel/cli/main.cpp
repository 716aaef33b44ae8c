// tamsel: index a repository, call its tools from the shell, or serve them over MCP stdio.

#include <exception>
#include <iostream>

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include "orvane_tamsel/cli/commands.h"

int main(int argc, char** argv) {
  // Logs go to stderr only: stdout carries answers.
  spdlog::set_default_logger(spdlog::stderr_color_mt("tamsel"));
  spdlog::set_level(spdlog::level::warn);

  CLI::App app{"tamsel: a code-repository index for coding assistants"};
  app.set_version_flag("--version", TAMSEL_VERSION);
  app.require_subcommand(1);
  orvane_tamsel::cli::Action action;
  orvane_tamsel::cli::add_index_command(app, action);
  orvane_tamsel::cli::add_tool_commands(app, action);
  orvane_tamsel::cli::add_status_command(app, action);
  orvane_tamsel::cli::add_serve_command(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e, std::cerr, std::cerr);
    return 2;
  }
  try {
    return action ? action() : 2;
  } catch (const std::exception& e) {
    std::cerr << "tamsel: " << e.what() << "\n";
    return 1;
  }
}
