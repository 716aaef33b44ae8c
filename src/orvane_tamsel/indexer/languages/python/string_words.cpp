#include "orvane_tamsel/indexer/languages/python/string_words.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace orvane_tamsel::indexer::python {

namespace {

// Enough to say what a symbol is about; a long table of messages adds little more.
constexpr std::size_t MAX_WORDS = 100;

bool is_type(TSNode n, std::string_view type) {
  return type == ts_node_type(n);
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The string nodes of the tree with their first line, in source order; a docstring (a string
// standing first in a module, class or function body) is the symbol's own and left out. An
// explicit stack: deeply nested source must not exhaust the thread's.
void collect(TSNode root, std::vector<std::pair<std::int64_t, TSNode>>& strings) {
  std::vector<TSNode> stack{root};
  while (!stack.empty()) {
    TSNode node = stack.back();
    stack.pop_back();
    if (is_type(node, "string")) {
      strings.emplace_back(ts_node_start_point(node).row + 1, node);
      continue;  // an f-string's interpolations are code
    }
    std::uint32_t count = ts_node_named_child_count(node);
    bool body = is_type(node, "block") || is_type(node, "module");
    // Children pushed last to first, so they come off in source order.
    for (std::uint32_t i = count; i-- > 0;) {
      TSNode child = ts_node_named_child(node, i);
      if (body && i == 0 && is_type(child, "expression_statement") &&
          ts_node_named_child_count(child) == 1 &&
          is_type(ts_node_named_child(child, 0), "string")) {
        continue;
      }
      stack.push_back(child);
    }
  }
}

// Appends the words of `text`: runs of two letters or more, each once whatever its case.
void add_words(std::string_view text, std::set<std::string>& seen, std::string& words,
               std::size_t& count) {
  for (std::size_t i = 0; i < text.size() && count < MAX_WORDS;) {
    if (!is_letter(text[i])) {
      i += text[i] == '\\' ? 2 : 1;  // an escape's letter is no word of its own
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && (is_letter(text[end]) || text[end] == '\'')) ++end;
    std::string word(text.substr(i, end - i));
    i = end;
    if (word.size() < 2) continue;
    std::string folded = word;
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (!seen.insert(folded).second) continue;
    words += (words.empty() ? "" : " ") + word;
    ++count;
  }
}

bool holds_words(const ParsedSymbol& s) {
  return s.kind == "class" || s.kind == "function" || s.kind == "method";
}

}  // namespace

void add_string_words(TSNode root, std::string_view src, std::vector<ParsedSymbol>& symbols) {
  std::vector<std::pair<std::int64_t, TSNode>> strings;
  collect(root, strings);
  if (strings.empty()) return;
  // The holders by first line; the innermost holder of a line is the last one opened that has
  // not ended.
  std::vector<std::size_t> holders;
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    if (holds_words(symbols[i])) holders.push_back(i);
  }
  std::stable_sort(holders.begin(), holders.end(), [&](std::size_t a, std::size_t b) {
    return symbols[a].start_line < symbols[b].start_line;
  });
  std::vector<std::set<std::string>> seen(symbols.size());
  std::vector<std::size_t> counts(symbols.size());
  std::vector<std::size_t> open;
  std::size_t next = 0;
  for (const auto& [first_line, node] : strings) {
    const auto line = first_line;  // a lambda may not capture a structured binding (clang 14)
    for (; next < holders.size() && symbols[holders[next]].start_line <= line; ++next) {
      open.push_back(holders[next]);
    }
    std::erase_if(open, [&](std::size_t s) { return symbols[s].end_line < line; });
    if (open.empty()) continue;
    auto s = open.back();
    // The literal's own text: no quotes or prefix, no interpolated code.
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode part = ts_node_named_child(node, i);
      if (!is_type(part, "string_content")) continue;
      auto from = ts_node_start_byte(part);
      add_words(src.substr(from, ts_node_end_byte(part) - from), seen[s], symbols[s].words,
                counts[s]);
    }
  }
}

}  // namespace orvane_tamsel::indexer::python
