#pragma once
// Answers as a person at a terminal reads them: compact text, optionally coloured. The JSON text
// stays what clients receive and what budgets measure; this is only its view.

#include <string>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::cli {

struct TextStyle {
  bool color = false;      // ANSI colours
  std::string repo = ".";  // repeated as --repo in the next steps' commands
};

// Any tool's answer (or an error answer) as text ending in a newline: symbols with file:line and
// signature, callers and tests with their reasons, notes, and the next steps as commands.
std::string render_text(const nlohmann::ordered_json& answer, const TextStyle& style);

}  // namespace orvane_tamsel::cli
