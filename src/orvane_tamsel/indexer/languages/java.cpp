#include "orvane_tamsel/indexer/languages/java.h"

#include <algorithm>

#include "orvane_tamsel/indexer/languages/java/rules.h"

namespace orvane_tamsel::indexer::java {

using detail::Rules;

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  auto slash = path.rfind('/');
  std::string dir(1, '/');
  if (slash != std::string_view::npos) dir.append(path.substr(0, slash));
  dir.push_back('/');
  if (auto at = dir.rfind("/java/"); at != std::string::npos) {
    dir.erase(0, std::min(dir.size(), at + 6));
  } else if (dir == "/src" || dir.starts_with("/src/")) {
    dir.erase(0, std::min(dir.size(), std::size_t{5}));
  } else {
    dir.erase(0, 1);
  }
  std::string p = dir.substr(0, dir.empty() ? 0 : dir.size() - 1);
  std::replace(p.begin(), p.end(), '/', '.');
  return p.empty() ? std::string(root_name) : p;
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  return rules.run();
}

}  // namespace orvane_tamsel::indexer::java
