#include "orvane_tamsel/mcp_responses.h"

#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel {

std::string tool_result_text(const Json& value) {
  // Invalid UTF-8 from a source file must not fail an answer: it is replaced, never dropped.
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::size_t result_chars(const Json& value) {
  return utils::code_points(tool_result_text(value));
}

std::string first_sentence(const std::optional<std::string>& docstring) {
  if (!docstring || docstring->empty()) return {};
  // First paragraph: up to the first blank line.
  std::string paragraph;
  bool seen_text = false;
  for (const auto& line : [&] {
         std::vector<std::string> lines;
         std::string cur;
         for (char c : *docstring) {
           if (c == '\n') {
             lines.push_back(cur);
             cur.clear();
           } else {
             cur.push_back(c);
           }
         }
         lines.push_back(cur);
         return lines;
       }()) {
    auto stripped = utils::strip(line);
    if (stripped.empty()) {
      if (seen_text) break;
      continue;
    }
    seen_text = true;
    if (!paragraph.empty()) paragraph.push_back(' ');
    paragraph += stripped;
  }
  auto words = utils::split_whitespace(paragraph);
  std::string collapsed;
  for (const auto& w : words) {
    if (!collapsed.empty()) collapsed.push_back(' ');
    collapsed += w;
  }
  // A sentence ends at ". ", "! " or "? " (or at the end of the paragraph).
  for (std::size_t i = 0; i + 1 < collapsed.size(); ++i) {
    char c = collapsed[i];
    if ((c == '.' || c == '!' || c == '?') && collapsed[i + 1] == ' ') {
      return collapsed.substr(0, i + 1);
    }
  }
  return collapsed;
}

}  // namespace orvane_tamsel
