#include "orvane_tamsel/index/paths.h"

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

std::string component_of(std::string_view path, std::string_view module) {
  auto dot = module.find('.');
  if (dot != std::string_view::npos && dot > 0) return std::string(module.substr(0, dot));
  std::vector<std::string_view> folders;
  std::size_t start = 0;
  for (auto slash = path.find('/'); slash != std::string_view::npos;
       slash = path.find('/', start)) {
    folders.push_back(path.substr(start, slash - start));
    start = slash + 1;
  }
  std::size_t first = 0;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    if (folders[i] == "src") first = i + 1;
  }
  if (first < folders.size()) return std::string(folders[first]);
  if (!module.empty()) return std::string(module);
  return path_stem(last_component(path));
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
