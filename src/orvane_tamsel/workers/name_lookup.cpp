#include "orvane_tamsel/workers/name_lookup.h"

#include <vector>

namespace orvane_tamsel::workers {

std::string index_path(std::string_view path, const std::filesystem::path& root) {
  std::string text(path);
  for (auto& c : text) {
    if (c == '\\') c = '/';
  }
  if (text.empty()) return {};
  bool folder = text.back() == '/';
  bool absolute = text.front() == '/';
  std::vector<std::string> parts;
  std::size_t i = 0;
  while (i <= text.size()) {
    auto j = text.find('/', i);
    if (j == std::string::npos) j = text.size();
    std::string part = text.substr(i, j - i);
    if (part == "..") {
      if (parts.empty()) return {};
      parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = j + 1;
  }
  if (absolute) {
    // An absolute path counts only when it lies inside the repository root.
    if (root.empty()) return {};
    std::vector<std::string> root_parts;
    for (const auto& p : root.lexically_normal()) {
      auto s = p.string();
      if (!s.empty() && s != "/") root_parts.push_back(s);
    }
    if (parts.size() < root_parts.size()) return {};
    for (std::size_t k = 0; k < root_parts.size(); ++k) {
      if (parts[k] != root_parts[k]) return {};
    }
    parts.erase(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(root_parts.size()));
  } else if (!root.empty()) {
    // A leading repository folder name written by the client ("repo/src/x.py") is dropped.
    auto name = root.lexically_normal().filename().string();
    if (name.empty()) name = root.lexically_normal().parent_path().filename().string();
    if (parts.size() > 1 && parts.front() == name && !std::filesystem::exists(root / name)) {
      parts.erase(parts.begin());
    }
  }
  std::string out;
  for (const auto& p : parts) {
    if (!out.empty()) out.push_back('/');
    out += p;
  }
  if (folder && !out.empty()) out.push_back('/');
  return out;
}

std::string dotted(std::string_view name) {
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == ':' && i + 1 < name.size() && name[i + 1] == ':') {
      out.push_back('.');
      ++i;
    } else if (name[i] == '#') {
      out.push_back('.');
    } else {
      out.push_back(name[i]);
    }
  }
  return out;
}

std::string guessed_name(std::string_view name) {
  auto d = dotted(name);
  auto at = d.rfind('.');
  return at == std::string::npos ? d : d.substr(at + 1);
}

bool names_through_inline_scopes(std::string_view written, std::string_view fqn) {
  auto split = [](std::string_view s) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0;;) {
      auto dot = s.find('.', at);
      parts.push_back(s.substr(at, dot == std::string_view::npos ? dot : dot - at));
      if (dot == std::string_view::npos) return parts;
      at = dot + 1;
    }
  };
  auto w = split(written), f = split(fqn);
  if (f.size() < 2 || f.size() >= w.size() || f.front() != w.front() || f.back() != w.back())
    return false;
  std::size_t i = 0;
  for (const auto& part : w) {
    if (i < f.size() && part == f[i]) ++i;
  }
  return i == f.size();
}

}  // namespace orvane_tamsel::workers
