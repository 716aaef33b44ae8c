#include "orvane_tamsel/indexer/meaning/call_lines.h"

#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

#include "orvane_tamsel/index/meaning_words.h"

namespace orvane_tamsel::indexer::meaning {

namespace {

// A symbol called from hundreds of places says what it is in its first few: more lines only
// repeat the common words.
constexpr std::size_t WORDS_PER_SYMBOL = 30;

std::vector<std::string> lines_of(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(std::move(line));
  return lines;
}

bool is_comment(std::string_view line) {
  auto start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) return false;
  line.remove_prefix(start);
  return line.starts_with("#") || line.starts_with("//");
}

}  // namespace

std::map<index::SymbolId, std::vector<std::string>> call_line_words(
    index::Database& db, const std::filesystem::path& root, std::size_t per_symbol) {
  // The lines wanted, by file, so that each file is read once.
  std::map<std::int64_t, std::vector<std::pair<index::SymbolId, std::int64_t>>> wanted;
  {
    auto st = db.prepare(
        "SELECT callee_id, file_id, line FROM edges "
        "ORDER BY callee_id, file_id, line");
    index::SymbolId current = -1;
    std::size_t taken = 0;
    while (st.step()) {
      auto callee = st.integer(0);
      if (callee != current) current = callee, taken = 0;
      if (taken++ < per_symbol) wanted[st.integer(1)].emplace_back(callee, st.integer(2));
    }
  }
  std::map<index::SymbolId, std::vector<std::string>> words;
  auto path = db.prepare("SELECT path FROM files WHERE id = ?");
  for (const auto& [file, sites] : wanted) {
    path.bind(1, file);
    auto lines = path.step() ? lines_of(root / path.text(0)) : std::vector<std::string>{};
    path.reset();
    for (const auto& [callee, line] : sites) {
      if (line < 1 || static_cast<std::size_t>(line) > lines.size()) continue;
      std::string text = lines[static_cast<std::size_t>(line) - 1];
      if (line > 1 && is_comment(lines[static_cast<std::size_t>(line) - 2])) {
        text += ' ' + lines[static_cast<std::size_t>(line) - 2];
      }
      auto& out = words[callee];
      if (out.size() >= WORDS_PER_SYMBOL) continue;
      for (auto& w : index::meaning_words(text, WORDS_PER_SYMBOL - out.size())) {
        out.push_back(std::move(w));
      }
    }
  }
  return words;
}

}  // namespace orvane_tamsel::indexer::meaning
