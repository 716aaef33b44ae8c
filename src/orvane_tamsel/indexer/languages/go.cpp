#include "orvane_tamsel/indexer/languages/go.h"

#include <cctype>

#include "orvane_tamsel/indexer/languages/go/build_variants.h"
#include "orvane_tamsel/indexer/languages/go/rules.h"

namespace orvane_tamsel::indexer::go {

namespace detail {

std::string dotted_path(std::string_view path) {
  std::string out(path);
  std::replace(out.begin(), out.end(), '/', '.');
  return out;
}

std::string package_of_import(std::string_view path) {
  auto slash = path.rfind('/');
  auto last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (last.size() >= 2 && last[0] == 'v' && std::isdigit(static_cast<unsigned char>(last[1])) &&
      slash != std::string_view::npos) {
    return package_of_import(path.substr(0, slash));
  }
  if (last.starts_with("go-")) last.remove_prefix(3);
  auto dot = last.find('.');
  return std::string(last.substr(0, dot));
}

bool is_test_function(std::string_view name) {
  for (std::string_view prefix : {"Test", "Benchmark", "Example", "Fuzz"}) {
    if (name.starts_with(prefix) &&
        (name.size() == prefix.size() ||
         !std::islower(static_cast<unsigned char>(name[prefix.size()])))) {
      return true;
    }
  }
  return false;
}

}  // namespace detail

using detail::Rules;

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    if (!root_name.empty()) return std::string(root_name);
    auto dot = path.rfind('.');
    return std::string(path.substr(0, dot));
  }
  return detail::dotted_path(path.substr(0, slash));
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  auto out = rules.run();
  // The linker reads a file's build constraint from its module symbol (see BuildVariants).
  auto c = build_constraint(content);
  out.builds_elsewhere = builds_elsewhere(path) || (!c.empty() && constraint_excludes(c));
  if (!c.empty() && !out.symbols.empty()) {
    out.symbols.front().fields.emplace_back(BUILD_FIELD, std::move(c));
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::go
