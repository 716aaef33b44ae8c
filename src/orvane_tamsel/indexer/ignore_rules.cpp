#include "orvane_tamsel/indexer/ignore_rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <fstream>

namespace orvane_tamsel::indexer {

namespace {

std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start <= text.size()) {
    auto end = text.find('/', start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) out.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

// Pattern segments against path segments; `**` spans any number of folders. One pass per
// pattern segment over which path prefixes it can reach: trying every split of every `**`
// instead takes exponential time on patterns with many of them.
bool match(const std::vector<std::string>& pat, const std::vector<std::string>& path) {
  std::vector<char> reach(path.size() + 1, 0), next(path.size() + 1);
  reach[0] = 1;
  for (const auto& segment : pat) {
    std::fill(next.begin(), next.end(), 0);
    if (segment == "**") {
      char any = 0;
      for (std::size_t j = 0; j <= path.size(); ++j)
        next[j] = any = static_cast<char>(any | reach[j]);
    } else {
      for (std::size_t j = 0; j < path.size(); ++j) {
        if (reach[j] && fnmatch(segment.c_str(), path[j].c_str(), FNM_PATHNAME) == 0)
          next[j + 1] = 1;
      }
    }
    reach.swap(next);
  }
  return reach[path.size()] != 0;
}

}  // namespace

void IgnoreRules::add_file(const std::filesystem::path& file, const std::string& base) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) add_line(line, base);
}

void IgnoreRules::add_line(std::string_view line, const std::string& base) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  while (!line.empty() && line.back() == ' ' &&
         !(line.size() > 1 && line[line.size() - 2] == '\\')) {
    line.remove_suffix(1);
  }
  if (line.empty() || line.front() == '#') return;
  IgnoreRule rule;
  rule.base = base;
  if (line.front() == '!') {
    rule.negate = true;
    line.remove_prefix(1);
  } else if (line.front() == '\\') {
    line.remove_prefix(1);
  }
  if (!line.empty() && line.back() == '/') {
    rule.dir_only = true;
    line.remove_suffix(1);
  }
  if (line.empty()) return;
  rule.anchored = line.find('/') != std::string_view::npos;
  rule.segments = split(line);
  if (rule.segments.empty()) return;
  rules_.push_back(std::move(rule));
}

bool IgnoreRules::ignored(std::string_view path, bool is_dir) const {
  std::vector<std::string> parts;
  bool decided = false, result = false;
  for (auto it = rules_.rbegin(); it != rules_.rend() && !decided; ++it) {
    const auto& r = *it;
    if (r.dir_only && !is_dir) continue;
    std::string_view rel = path;
    if (!r.base.empty()) {
      if (path.size() <= r.base.size() || !path.starts_with(r.base) || path[r.base.size()] != '/') {
        continue;
      }
      rel = path.substr(r.base.size() + 1);
    }
    bool hit;
    if (r.anchored) {
      hit = match(r.segments, split(rel));
    } else {
      auto slash = rel.rfind('/');
      std::string name(slash == std::string_view::npos ? rel : rel.substr(slash + 1));
      hit = fnmatch(r.segments[0].c_str(), name.c_str(), FNM_PATHNAME) == 0;
    }
    if (hit) {
      decided = true;
      result = !r.negate;
    }
  }
  return result;
}

}  // namespace orvane_tamsel::indexer
