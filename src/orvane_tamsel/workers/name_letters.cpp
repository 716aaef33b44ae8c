#include "orvane_tamsel/workers/name_letters.h"

#include <algorithm>
#include <cctype>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/workers/term_match.h"

namespace orvane_tamsel::workers {

namespace {

// Shorter words meet names by chance ("is", "of").
constexpr std::size_t MIN_LETTERS = 3;

}  // namespace

double letters_said(std::string_view name, const std::vector<std::string>& terms) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::vector<bool> said(lower.size(), false);
  auto mark = [&](std::size_t at, std::size_t n) {
    std::fill(said.begin() + static_cast<std::ptrdiff_t>(at),
              said.begin() + static_cast<std::ptrdiff_t>(at + n), true);
  };
  for (const auto& t : terms) {
    for (const auto& form : {t, detail::stem(t)}) {
      if (form.size() < MIN_LETTERS) continue;
      for (auto at = lower.find(form); at != std::string::npos; at = lower.find(form, at + 1)) {
        mark(at, form.size());
      }
    }
  }
  // A sub-word shortening a question word: "week" of format_week_header for "weekday".
  std::size_t from = 0;
  for (const auto& piece : index::subwords(name)) {
    auto at = lower.find(piece, from);
    if (at == std::string::npos) continue;
    from = at + piece.size();
    if (piece.size() < MIN_LETTERS) continue;
    if (std::any_of(terms.begin(), terms.end(),
                    [&](const std::string& t) { return t.starts_with(piece); })) {
      mark(at, piece.size());
    }
  }
  std::size_t letters = 0, spelled = 0;
  for (std::size_t i = 0; i < lower.size(); ++i) {
    if (!std::isalpha(static_cast<unsigned char>(lower[i]))) continue;
    ++letters;
    spelled += said[i];
  }
  return letters == 0 ? 0.0 : static_cast<double>(spelled) / static_cast<double>(letters);
}

}  // namespace orvane_tamsel::workers
