#include <iostream>

#include "orvane_tamsel/cli/commands.h"

namespace orvane_tamsel::cli {

void add_index_command(CLI::App& app, Action& action) {
  auto* cmd = app.add_subcommand("index", "not built yet");
  cmd->allow_extras();
  cmd->callback([&action] {
    action = [] {
      std::cerr << "tamsel index: not available in this build\n";
      return 1;
    };
  });
}

}  // namespace orvane_tamsel::cli
