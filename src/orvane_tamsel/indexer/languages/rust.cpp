#include "orvane_tamsel/indexer/languages/rust.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/rust/rules.h"

namespace orvane_tamsel::indexer::rust {

using detail::split;

namespace {

std::string crate_name(std::string_view folder) {
  if (folder.empty()) return "crate";
  std::string out(folder);
  std::replace(out.begin(), out.end(), '-', '_');
  return out;
}

struct Layout {
  std::string crate;
  std::vector<std::string> modules;  // below the crate
  bool separate = false;             // tests/, benches/, examples/
};

Layout layout_of(std::string_view path) {
  auto parts = split(path, "/");
  Layout out;
  auto& file = parts.back();
  if (file.ends_with(".rs")) file.resize(file.size() - 3);
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    const auto& p = parts[i];
    if (p == "src" || p == "tests" || p == "benches" || p == "examples") {
      std::string folder = i == 0 ? std::string() : parts[i - 1];
      out.crate = crate_name(folder);
      out.separate = p != "src";
      if (out.separate) out.modules.push_back(p);
      out.modules.insert(out.modules.end(), parts.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                         parts.end());
      break;
    }
  }
  if (out.crate.empty()) {
    out.crate = "crate";
    out.modules = parts;
  }
  if (!out.modules.empty() && (out.modules.back() == "mod" ||
                               (!out.separate && out.modules.size() == 1 &&
                                (out.modules.back() == "lib" || out.modules.back() == "main")))) {
    out.modules.pop_back();
  }
  return out;
}

}  // namespace

using detail::Rules;

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view /*root_name*/) {
  auto layout = layout_of(path);
  std::string out = layout.crate;
  for (const auto& m : layout.modules) out += "." + m;
  return out;
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  auto layout = layout_of(path);
  rules.set_crate(layout.crate, layout.separate);
  return rules.run();
}

}  // namespace orvane_tamsel::indexer::rust
