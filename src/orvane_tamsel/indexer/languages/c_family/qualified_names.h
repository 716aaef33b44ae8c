#pragma once
// A qualified C++ name as written (`::a::B<int>::template c`) split into its names.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer::c_family {

// `a::B<int>::c` as its names, template arguments dropped.
inline std::vector<std::string> split_qualified(std::string_view s) {
  std::vector<std::string> parts;
  std::string cur;
  int depth = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == '<') ++depth;
    if (c == '>' && depth > 0) {
      --depth;
      continue;
    }
    if (depth > 0) continue;
    if (c == ' ' || c == '\n' || c == '\t') {
      if (cur == "template") cur.clear();  // `::template Invoke<T>` names Invoke
      continue;
    }
    if (c == ':' && i + 1 < s.size() && s[i + 1] == ':') {
      if (!cur.empty()) parts.push_back(cur);  // a leading `::` names the global scope
      cur.clear();
      ++i;
      continue;
    }
    cur.push_back(c);
  }
  if (!cur.empty()) parts.push_back(cur);
  return parts;
}

}  // namespace orvane_tamsel::indexer::c_family
