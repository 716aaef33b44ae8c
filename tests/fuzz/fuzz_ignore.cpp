// One .gitignore into the ignore matcher, then paths taken from the same bytes against it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/ignore_rules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvane_tamsel::indexer::IgnoreRules;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  IgnoreRules rules;
  std::size_t start = 0;
  while (start <= text.size()) {
    auto end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    rules.add_line(text.substr(start, end - start), start % 2 == 0 ? "" : "sub/dir");
    start = end + 1;
  }
  // Lines are matched as paths too, so patterns and names built from the same bytes meet.
  start = 0;
  while (start <= text.size()) {
    auto end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    auto line = text.substr(start, end - start);
    (void)rules.ignored(line, false);
    (void)rules.ignored(line, true);
    (void)rules.ignored("sub/dir/" + std::string(line), false);
    start = end + 1;
  }
  for (const char* p : {"a", "sub/dir/x.py", "a/b/c/d/e.py", ".git", "", "/"}) {
    (void)rules.ignored(p, false);
    (void)rules.ignored(p, true);
  }
  return 0;
}
