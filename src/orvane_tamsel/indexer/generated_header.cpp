#include "orvane_tamsel/indexer/generated_header.h"

#include <array>

namespace orvane_tamsel::indexer {

namespace {

// Further down, the words are part of the code (a generator's own template), not its mark.
constexpr int HEADER_LINES = 40;

std::string_view trimmed(std::string_view line) {
  auto first = line.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

bool comment(std::string_view line) {
  constexpr std::array<std::string_view, 6> OPENERS = {"//", "#", "/*", "*", "--", ";"};
  for (auto opener : OPENERS) {
    if (line.starts_with(opener)) return true;
  }
  return false;
}

}  // namespace

bool generated_header(std::string_view content) {
  for (int n = 0; n < HEADER_LINES && !content.empty(); ++n) {
    auto end = content.find('\n');
    auto line = trimmed(content.substr(0, end));
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    if (line.empty()) continue;
    if (!comment(line)) return false;
    if (line.find("DO NOT EDIT") != std::string_view::npos ||
        line.find("@generated") != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace orvane_tamsel::indexer
