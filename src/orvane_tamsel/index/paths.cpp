#include "orvane_tamsel/index/paths.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <vector>

namespace orvane_tamsel::index {

std::string_view last_component(std::string_view path) {
  auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string path_stem(std::string_view path) {
  auto name = last_component(path);
  auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return std::string(path);
  if (name.substr(0, dot).find_first_not_of('.') == std::string_view::npos) {
    return std::string(path);
  }
  return std::string(path.substr(0, path.size() - (name.size() - dot)));
}

namespace {

std::vector<std::string_view> split_parts(std::string_view text, char sep) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= text.size()) {
    auto end = text.find(sep, start);
    if (end == std::string_view::npos) end = text.size();
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

std::vector<std::string_view> folders_of(std::string_view path) {
  auto parts = split_parts(path, '/');
  parts.pop_back();
  return parts;
}

// Python's rules 2 and 3: the first folder below the last source root, else the file itself.
std::string folder_component(std::string_view path, std::string_view module,
                             std::initializer_list<std::string_view> roots) {
  auto folders = folders_of(path);
  std::size_t first = 0;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    for (auto root : roots) {
      if (folders[i] == root) first = i + 1;
    }
  }
  if (first < folders.size()) return std::string(folders[first]);
  if (!module.empty()) return std::string(module);
  return path_stem(last_component(path));
}

std::string first_part(std::string_view module) {
  return std::string(module.substr(0, module.find('.')));
}

}  // namespace

std::string component_of(std::string_view path, std::string_view module,
                         std::string_view language) {
  if (language == "java" || language == "rust") {
    if (!module.empty()) return first_part(module);
    return folder_component(path, module, {"src"});
  }
  if (language == "go") {
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return folder_component(path, module, {});
    return std::string(path.substr(0, slash));
  }
  bool c_family = language == "c" || language == "cpp";
  if (c_family || language == "javascript" || language == "typescript" || language == "tsx") {
    auto folders = folders_of(path);
    for (std::size_t i = folders.size(); i-- > 1;) {
      if (folders[i] == "src" || (c_family && folders[i] == "include")) {
        return std::string(folders[i - 1]);
      }
    }
    if (c_family) return folder_component(path, module, {"src", "include"});
    // a workspace of a monorepo without source roots: packages/cart/lib/total.js -> cart
    if (folders.size() >= 2 && (folders[0] == "packages" || folders[0] == "apps")) {
      return std::string(folders[1]);
    }
    return folder_component(path, module, {"src"});
  }
  auto dot = module.find('.');
  if (dot != std::string_view::npos && dot > 0) return std::string(module.substr(0, dot));
  return folder_component(path, module, {"src"});
}

bool tree_components(std::string_view language) {
  return language == "java" || language == "rust";
}

std::string package_root(const std::vector<std::string>& modules) {
  std::string root;
  auto need = DOMINANT_SHARE * static_cast<double>(modules.size());
  for (;;) {
    // the files below `root` by the part that follows it
    std::map<std::string_view, std::size_t> below;
    for (const auto& m : modules) {
      std::string_view rest = m;
      if (!root.empty()) {
        if (!rest.starts_with(root) || rest.size() <= root.size() || rest[root.size()] != '.') {
          continue;
        }
        rest.remove_prefix(root.size() + 1);
      }
      if (!rest.empty()) ++below[rest.substr(0, rest.find('.'))];
    }
    auto top = std::max_element(below.begin(), below.end(),
                                [](const auto& a, const auto& b) { return a.second < b.second; });
    if (top == below.end() || static_cast<double>(top->second) < need || top->first.empty()) {
      return root;
    }
    root = root.empty() ? std::string(top->first) : root + "." + std::string(top->first);
  }
}

std::string component_below(std::string_view module, std::string_view root) {
  auto parts = split_parts(module, '.');
  auto root_parts = split_parts(root, '.');
  std::size_t shared = 0;
  while (!root.empty() && shared < parts.size() && shared < root_parts.size() &&
         parts[shared] == root_parts[shared]) {
    ++shared;
  }
  return std::string(shared < parts.size() ? parts[shared] : parts.back());
}

std::string split_component(std::string_view module, std::string_view dominant) {
  if (dominant.empty() || !module.starts_with(dominant) || module.size() <= dominant.size() ||
      module[dominant.size()] != '.') {
    return {};
  }
  auto rest = module.substr(dominant.size() + 1);
  auto dot = rest.find('.');
  if (dot == std::string_view::npos || dot == 0) return {};  // a module of the package itself
  return std::string(module.substr(0, dominant.size() + 1 + dot));
}

}  // namespace orvane_tamsel::index
