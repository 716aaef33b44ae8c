#include "orvane_tamsel/indexer/languages/javascript.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/javascript/rules.h"

namespace orvane_tamsel::indexer::javascript {

namespace {

constexpr std::array<std::string_view, 8> EXTENSIONS = {".d.ts", ".ts",  ".tsx", ".mts",
                                                        ".cts",  ".jsx", ".mjs", ".cjs"};

std::string strip_extension(std::string_view path) {
  for (auto ext : EXTENSIONS) {
    if (path.ends_with(ext)) return std::string(path.substr(0, path.size() - ext.size()));
  }
  if (path.ends_with(".js")) path.remove_suffix(3);
  return std::string(path);
}

}  // namespace

using detail::Rules;

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  std::string p = strip_extension(path);
  if (p.starts_with("src/")) {
    p.erase(0, 4);
  } else if (auto src = p.find("/src/"); src != std::string::npos) {
    p.erase(0, src + 5);
  }
  if (p == "index") {
    p.clear();
  } else if (p.ends_with("/index")) {
    p.resize(p.size() - 6);
  }
  std::replace(p.begin(), p.end(), '/', '.');
  return p.empty() ? std::string(root_name) : p;
}

// The overload signatures of a function or method and its implementation are one symbol: the
// implementation's lines, the overloads' signatures (the ones callers see) one per line, and the
// first doc comment among them.
void merge_overloads(ParsedFile& file, const std::set<std::size_t>& overloads) {
  std::map<std::pair<std::string, std::string>, std::vector<std::size_t>> groups;
  for (auto i : overloads) groups[{file.symbols[i].fqn, file.symbols[i].kind}];
  if (groups.empty()) return;
  for (std::size_t i = 0; i < file.symbols.size(); ++i) {
    const auto& s = file.symbols[i];
    if (auto it = groups.find({s.fqn, s.kind}); it != groups.end()) it->second.push_back(i);
  }
  std::vector<bool> drop(file.symbols.size(), false);
  for (const auto& [key, members] : groups) {
    if (members.size() < 2) continue;
    auto keeper = members.front();
    for (auto i : members) {
      if (!overloads.contains(i)) {
        keeper = i;
        break;
      }
    }
    std::string signature;
    std::optional<std::string> doc;
    bool is_test = false;
    for (auto i : members) {
      const auto& s = file.symbols[i];
      if (overloads.contains(i) && s.signature) {
        signature += (signature.empty() ? "" : "\n") + *s.signature;
      }
      if (!doc) doc = s.docstring;
      is_test = is_test || s.is_test;
      if (i != keeper) drop[i] = true;
    }
    auto& kept = file.symbols[keeper];
    if (!signature.empty()) kept.signature = signature;
    kept.docstring = doc;
    kept.is_test = is_test;
  }
  std::size_t out = 0;
  for (std::size_t i = 0; i < file.symbols.size(); ++i) {
    if (drop[i]) continue;
    if (out != i) file.symbols[out] = std::move(file.symbols[i]);
    ++out;
  }
  file.symbols.resize(out);
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  auto file = rules.run();
  merge_overloads(file, rules.overloads());
  return file;
}

}  // namespace orvane_tamsel::indexer::javascript
