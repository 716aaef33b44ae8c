#include "orvane_tamsel/indexer/languages/python/module_names.h"

namespace orvane_tamsel::indexer::python {

namespace {

std::vector<std::string> split(std::string_view s, char sep) {
  std::vector<std::string> out;
  if (s.empty()) return out;
  std::size_t start = 0;
  while (true) {
    auto end = s.find(sep, start);
    out.emplace_back(s.substr(start, end == std::string_view::npos ? end : end - start));
    if (end == std::string_view::npos) return out;
    start = end + 1;
  }
}

std::string join(const std::vector<std::string>& parts, std::size_t count, char sep) {
  std::string out;
  for (std::size_t i = 0; i < count && i < parts.size(); ++i) {
    if (i > 0) out.push_back(sep);
    out += parts[i];
  }
  return out;
}

std::string_view parent_of(std::string_view dir) {
  auto s = dir.rfind('/');
  return s == std::string_view::npos ? std::string_view() : dir.substr(0, s);
}

}  // namespace

// The source root of a file is the folder above its outermost enclosing package; the module is
// the path below it, dotted. Folders between packages that hold no __init__.py are namespace
// packages (PEP 420) and keep their place: `src/shop/sansio/app.py` with `src/shop/` a package
// gives `shop.sansio.app`. Without a package above, the file's own folder is the root:
// `tests/test_cart.py` gives `test_cart`; a package's __init__.py is the package itself. When
// the repository root is itself a package (a checkout of one package), its folder name leads.
std::string module_from(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name) {
  std::string p(path);
  auto dot = p.rfind('.');
  auto slash = p.rfind('/');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) p.resize(dot);
  slash = p.rfind('/');
  std::string name = slash == std::string::npos ? p : p.substr(slash + 1);
  std::string_view dir =
      slash == std::string::npos ? std::string_view() : std::string_view(p).substr(0, slash);
  // The outermost package folder above the file, the repository root aside.
  std::string_view top;
  for (auto d = dir; !d.empty(); d = parent_of(d)) {
    if (packages.count(d) != 0) top = d;
  }
  std::vector<std::string> parts;
  if (name != "__init__") parts.push_back(name);
  auto d = dir;
  for (; !d.empty() && (packages.count(d) != 0 || (!top.empty() && d.size() > top.size()));
       d = parent_of(d)) {
    auto s = d.rfind('/');
    parts.emplace_back(s == std::string_view::npos ? d : d.substr(s + 1));
  }
  if (d.empty() && packages.count("") != 0 && !root_name.empty()) parts.emplace_back(root_name);
  if (parts.empty()) return name;  // an __init__.py outside any package folder
  std::string out;
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
    if (!out.empty()) out += '.';
    out += *it;
  }
  return out;
}

// The module's leading names belong to the file's innermost folders: `tests/unit/test_a.py` as
// `unit.test_a` makes `tests/unit/conftest.py` the module `unit.conftest`, and every folder
// above the source root holds a plain `conftest`.
std::vector<std::pair<std::string, std::string>> conftest_chain(std::string_view path,
                                                                std::string_view module) {
  auto dirs = split(path, '/');
  bool package = !dirs.empty() && (dirs.back() == "__init__.py" || dirs.back() == "__init__.pyi");
  if (!dirs.empty()) dirs.pop_back();
  auto prefix = split(module, '.');
  if (!package && !prefix.empty()) prefix.pop_back();
  std::vector<std::pair<std::string, std::string>> out;
  for (std::size_t j = dirs.size() + 1; j-- > 0;) {
    std::string file = j > 0 ? join(dirs, j, '/') + "/conftest.py" : "conftest.py";
    if (file == path) continue;
    auto above = dirs.size() - j;  // folders between this one and the file's
    std::string mod =
        prefix.size() > above ? join(prefix, prefix.size() - above, '.') + ".conftest" : "conftest";
    out.emplace_back(std::move(mod), std::move(file));
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::python
