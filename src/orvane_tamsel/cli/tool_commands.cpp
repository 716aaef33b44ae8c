// `tamsel explore`, `tamsel symbol`, ...: one command per host tool, made from the registry.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "orvane_tamsel/cli/commands.h"
#include "orvane_tamsel/cli/text_render.h"
#include "orvane_tamsel/cli/tool_command_line.h"
#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/index/memory_store.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/explore.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/tool_registry.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace orvane_tamsel::cli {

namespace {

struct ToolArgs {
  std::string repo = ".";
  bool json = false;
  // What the command line gave, by parameter name; only given values become arguments, so the
  // defaults are the tool's own.
  std::map<std::string, std::string> text;
  std::map<std::string, std::int64_t> integer;
  std::map<std::string, bool> boolean;
  std::map<std::string, std::vector<std::string>> list;
  // Free text given as several words (`tamsel explore how is the total made`), joined by spaces.
  std::map<std::string, std::vector<std::string>> words;
  std::map<std::string, CLI::Option*> options;
};

bool takes_words(const ToolParam& p) {
  return is_positional(p) && p.type == "string" && (p.name == "query" || p.name == "task");
}

Json arguments_of(const ToolDescription& tool, const ToolArgs& args) {
  Json out = Json::object();
  for (const auto& p : tool.params) {
    auto option = args.options.find(p.name);
    if (option == args.options.end() || option->second->count() == 0) continue;
    if (p.type == "integer") {
      out[p.name] = args.integer.at(p.name);
    } else if (p.type == "boolean") {
      out[p.name] = args.boolean.at(p.name);
    } else if (p.type == "array") {
      out[p.name] = args.list.at(p.name);
    } else if (takes_words(p)) {
      std::string text;
      for (const auto& w : args.words.at(p.name)) text += (text.empty() ? "" : " ") + w;
      out[p.name] = text;
    } else {
      out[p.name] = args.text.at(p.name);
    }
  }
  return out;
}

void print(const Json& answer, const ToolArgs& args) {
  print_answer(answer, args.json, args.repo);
}

Json answer_of(const ToolDescription& tool, const Json& arguments,
               const std::filesystem::path& root) {
  auto repository = index::open_repository(root);
  workers::HybridRetriever retriever(*repository, workers::load_settings(root),
                                     index::open_learned_embedder(root),
                                     workers::word_sense_embedder());
  // Only the memory tool creates the store: asking must not.
  std::unique_ptr<index::MemoryStore> memories;
  if (tool.name == "memory" || std::filesystem::exists(root / ".tamsel" / "memories.db")) {
    memories = std::make_unique<index::MemoryStore>(root);
  }
  tool_handlers::ToolContext context{*repository, &retriever, memories.get(), {}};
  context.explore = [&](const Json& a) {
    return tool_handlers::handle_explore(
        *repository, a["query"].get<std::string>(), a["scope"].get<std::string>(),
        a["depth"].get<std::string>(), a["token_budget"].get<long long>(), &retriever,
        memories.get());
  };
  return tool_handlers::call_tool(tool.name, arguments, context);
}

int run(const ToolDescription& tool, const ToolArgs& args) {
  const std::string me = "tamsel " + tool.name + ": ";
  std::error_code missing;
  // Absolute: an absolute path in a query is read against it, as the server reads it.
  auto root = std::filesystem::canonical(args.repo, missing);
  if (missing || !std::filesystem::is_directory(root)) {
    std::cerr << me << args.repo
              << " is not a directory; pass an existing repository folder with --repo\n";
    return 1;
  }
  Json arguments;
  try {
    arguments = tool_handlers::checked_arguments(tool, arguments_of(tool, args));
  } catch (const tool_handlers::InvalidArguments& e) {
    std::cerr << me << e.what() << "\n";
    return 2;
  } catch (const tool_handlers::ToolError& e) {
    print(tool_handlers::error_answer(e), args);
    return 1;
  }
  try {
    index::ensure_index_folder(root);
    indexer::update_index(root);
  } catch (const std::exception& e) {
    std::cerr << me << "the index could not be brought up to date: " << e.what()
              << "\nrun tamsel index --repo " << args.repo << " to see why\n";
    return 1;
  }
  try {
    print(answer_of(tool, arguments, root), args);
  } catch (const tool_handlers::ToolError& e) {
    print(tool_handlers::error_answer(e), args);
    return 1;
  } catch (const index::SqliteError& e) {
    if (e.unreadable()) indexer::mark_damaged(root);
    std::cerr << me << e.what()
              << (e.unreadable() ? "\nthe index is damaged: the next tamsel index rebuilds it\n"
                                 : "\n");
    return 1;
  } catch (const std::exception& e) {
    std::cerr << me << e.what() << "\n";
    return 1;
  }
  return 0;
}

std::string positional_help(const ToolParam& p) {
  if (p.enum_values.empty()) return p.description;
  return p.description + " (default " + p.enum_values.front() + ")";
}

void add_tool_command(CLI::App& app, Action& action, const ToolDescription& tool) {
  auto args = std::make_shared<ToolArgs>();
  auto* cmd = app.add_subcommand(tool.name, tool.description);
  cmd->add_option("--repo", args->repo, "Repository folder (default: the current directory)");
  // A word that is not one of the actions is the next positional: `tamsel symbol FQN` is
  // `tamsel symbol detail FQN`.
  cmd->validate_positionals();
  cmd->add_flag("--json", args->json,
                "Print the answer as the JSON a client receives (the default when the output is "
                "not a terminal)");
  for (const auto& p : tool.params) {
    CLI::Option* opt = nullptr;
    std::string name = is_positional(p) ? p.name : flag_name(p.name);
    if (p.type == "integer") {
      opt = cmd->add_option(name, args->integer[p.name], p.description);
      if (p.minimum || p.maximum) {
        CLI::Validator range =
            CLI::Range(p.minimum.value_or(INT64_MIN), p.maximum.value_or(INT64_MAX));
        if (!p.maximum) range.description("INT >= " + std::to_string(*p.minimum));
        if (!p.minimum) range.description("INT <= " + std::to_string(*p.maximum));
        opt->check(range);
      }
    } else if (p.type == "boolean") {
      opt = cmd->add_flag(name, args->boolean[p.name], p.description);
    } else if (p.type == "array") {
      opt = cmd->add_option(name, args->list[p.name], p.description + " (repeat or separate by ,)")
                ->delimiter(',');
    } else if (takes_words(p)) {
      opt = cmd->add_option(name, args->words[p.name], p.description);
    } else {
      opt = cmd->add_option(name, args->text[p.name],
                            is_positional(p) ? positional_help(p) : p.description);
      if (!p.enum_values.empty()) opt->check(CLI::IsMember(p.enum_values));
    }
    if (p.required) opt->required();
    if (!p.default_value.is_null() && !p.default_value.is_array() && !is_positional(p)) {
      opt->default_str(p.default_value.is_string() ? p.default_value.get<std::string>()
                                                   : p.default_value.dump());
    }
    args->options[p.name] = opt;
  }
  const ToolDescription* described = &tool;
  cmd->callback([&action, args, described] {
    action = [args, described] { return run(*described, *args); };
  });
}

}  // namespace

void print_answer(const nlohmann::ordered_json& answer, bool json, const std::string& repo) {
  if (json || ::isatty(STDOUT_FILENO) != 1) {
    std::cout << tool_result_text(answer) << "\n" << std::flush;
    return;
  }
  TextStyle style;
  style.color = std::getenv("NO_COLOR") == nullptr;
  style.repo = repo;
  std::cout << render_text(answer, style) << std::flush;
}

void add_tool_commands(CLI::App& app, Action& action) {
  for (const auto& tool : TOOLS) add_tool_command(app, action, tool);
}

}  // namespace orvane_tamsel::cli
