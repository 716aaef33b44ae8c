// tamsel explore: one query answered from the command line, the index brought up to date first.

#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include "orvane_tamsel/cli/commands.h"
#include "orvane_tamsel/index/memory_store.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/explore.h"
#include "orvane_tamsel/tool_registry.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace orvane_tamsel::cli {
namespace {

struct ExploreArgs {
  std::string repo = ".";
  std::string query;
  std::map<std::string, std::string> text;  // parameter name -> value
  long long token_budget = 2000;
};

std::string flag(const std::string& name) {
  std::string out = "--" + name;
  for (auto& c : out)
    if (c == '_') c = '-';
  return out;
}

int run(const ExploreArgs& args) {
  std::filesystem::path root(args.repo);
  if (!std::filesystem::is_directory(root)) {
    std::cerr << "tamsel explore: " << args.repo
              << " is not a directory; pass an existing repository folder with --repo\n";
    return 1;
  }
  try {
    indexer::update_index(root);
  } catch (const std::exception& e) {
    std::cerr << "tamsel explore: the index could not be brought up to date: " << e.what()
              << "\nrun tamsel index --repo " << args.repo << " to see why\n";
    return 1;
  }
  try {
    auto repository = index::open_repository(root);
    workers::HybridRetriever retriever(*repository, workers::load_settings(root),
                                       workers::default_embedder());
    // Only a store that exists: asking must not create one.
    std::unique_ptr<index::MemoryStore> memories;
    if (std::filesystem::exists(root / ".tamsel" / "memories.db"))
      memories = std::make_unique<index::MemoryStore>(root);
    Json answer = tool_handlers::handle_explore(*repository, args.query, args.text.at("scope"),
                                                args.text.at("depth"), args.token_budget,
                                                &retriever, memories.get());
    std::cout << tool_result_text(answer) << "\n" << std::flush;
  } catch (const index::SqliteError& e) {
    if (e.unreadable()) indexer::mark_damaged(root);
    std::cerr << "tamsel explore: " << e.what()
              << (e.unreadable() ? "\nthe index is damaged: the next tamsel index rebuilds it\n"
                                 : "\n");
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "tamsel explore: " << e.what() << "\n";
    return 1;
  }
  return 0;
}

}  // namespace

void add_explore_command(CLI::App& app, Action& action) {
  const ToolDescription* tool = find_tool("explore");
  auto args = std::make_shared<ExploreArgs>();
  auto* cmd = app.add_subcommand("explore", tool->description);
  cmd->add_option("--repo", args->repo, "Repository folder (default: the current directory)");
  // The flags are the tool's own parameters, so the command and the server never disagree.
  for (const auto& param : tool->params) {
    if (param.name == "query") {
      cmd->add_option("query", args->query, param.description)->required();
    } else if (param.type == "integer" && param.name == "token_budget") {
      auto* opt = cmd->add_option(flag(param.name), args->token_budget, param.description);
      if (param.default_value.is_number_integer())
        args->token_budget = param.default_value.get<long long>();
      if (param.minimum && param.maximum) opt->check(CLI::Range(*param.minimum, *param.maximum));
    } else if (param.type == "string") {
      args->text[param.name] =
          param.default_value.is_string() ? param.default_value.get<std::string>() : "";
      auto* opt = cmd->add_option(flag(param.name), args->text[param.name], param.description);
      if (!param.enum_values.empty()) opt->check(CLI::IsMember(param.enum_values));
    }
  }
  cmd->callback([&action, args] { action = [args] { return run(*args); }; });
}

}  // namespace orvane_tamsel::cli
