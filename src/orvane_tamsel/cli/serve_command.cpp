// `tamsel serve`: the MCP server on stdin/stdout for one repository, optionally logging to a file.

#include <filesystem>
#include <iostream>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "orvane_tamsel/cli/commands.h"
#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/server/repository_check.h"
#include "orvane_tamsel/server/stdio_server.h"

namespace orvane_tamsel::cli {

namespace {

struct ServeArgs {
  std::string repo = ".";
  bool log_file = false;
};

int run_serve(const ServeArgs& args) {
  std::error_code ec;
  auto root = std::filesystem::canonical(args.repo, ec);
  if (ec) root = std::filesystem::absolute(args.repo, ec).lexically_normal();
  // The client started us and waits for the protocol: a folder that cannot be served is said
  // here and in the answer to every tool call, rather than by an exit the client cannot explain.
  auto problem = server::repository_problem(root);
  if (!problem.empty()) {
    std::cerr << "tamsel serve: " << problem
              << "; serving anyway: each tool call answers with this error until it is fixed "
                 "(pass --repo DIR)\n";
    if (args.log_file) std::cerr << "tamsel serve: no log file: it would go in that folder\n";
  }
  auto logger = spdlog::default_logger();
  if (args.log_file && problem.empty()) {
    try {
      index::ensure_index_folder(root);
      logger->sinks().push_back(std::make_shared<spdlog::sinks::basic_file_sink_mt>(
          (root / ".tamsel" / "server.log").string()));
    } catch (const std::exception& e) {
      std::cerr << "tamsel serve: cannot write the log file: " << e.what() << "\n";
      return 1;
    }
  }
  logger->set_level(spdlog::level::info);
  logger->flush_on(spdlog::level::info);
  return server::serve_stdio(root);
}

}  // namespace

void add_serve_command(CLI::App& app, Action& action) {
  static ServeArgs args;
  auto* cmd = app.add_subcommand(
      "serve", "The MCP server on standard input and output (logs on standard error)");
  cmd->add_option("repo,--repo", args.repo,
                  "The repository to serve (default: the current folder)");
  cmd->add_flag("--log-file", args.log_file, "Also write the log to DIR/.tamsel/server.log");
  cmd->callback([&action] { action = [] { return run_serve(args); }; });
}

}  // namespace orvane_tamsel::cli
