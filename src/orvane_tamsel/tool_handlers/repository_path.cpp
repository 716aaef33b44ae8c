#include "orvane_tamsel/tool_handlers/repository_path.h"

#include <fstream>
#include <system_error>

#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

namespace fs = std::filesystem;

namespace {

bool inside(const fs::path& base, const fs::path& p) {
  auto rel = p.lexically_relative(base);
  return !rel.empty() && *rel.begin() != "..";
}

fs::path real_root(const fs::path& root) {
  std::error_code ec;
  auto real = fs::canonical(root, ec);
  return ec ? root.lexically_normal() : real;
}

}  // namespace

std::string checked_path(const fs::path& root, const std::string& given) {
  if (given.find('\0') != std::string::npos) {
    throw ToolError("path contains a NUL byte; give a path relative to the repository root");
  }
  std::string text = given;
  for (auto& c : text) {
    if (c == '\\') c = '/';
  }
  auto outside = [&] {
    return ToolError("path '" + echoed(given) +
                     "' is outside the repository; give a path relative to the repository root");
  };
  fs::path path(text);
  fs::path rel;
  if (path.is_absolute()) {
    if (root.empty()) throw outside();
    auto normal = path.lexically_normal();
    auto base = root.lexically_normal();
    if (normal == base || normal == base / "") return {};
    if (inside(base, normal)) {
      rel = normal.lexically_relative(base);
    } else {
      auto real = real_root(root);
      if (normal != real && !inside(real, normal)) throw outside();
      rel = normal.lexically_relative(real);
    }
  } else {
    rel = path.lexically_normal();
  }
  std::string out = rel.generic_string();
  while (!out.empty() && out.back() == '/') out.pop_back();
  if (out == ".") out.clear();
  if (out == ".." || out.starts_with("../")) throw outside();
  if (!root.empty() && !out.empty()) {
    // A symbolic link anywhere on the way may lead out.
    std::error_code ec;
    auto resolved = fs::weakly_canonical(root / out, ec);
    auto base = real_root(root);
    if (!ec && resolved != base && !inside(base, resolved)) {
      throw ToolError("path '" + echoed(given) +
                      "' leads outside the repository through a symbolic link; give a path "
                      "inside it");
    }
  }
  return out;
}

std::vector<std::string> read_lines(const fs::path& root, const std::string& path,
                                    std::int64_t first, std::int64_t last) {
  std::vector<std::string> lines;
  if (root.empty() || first < 1 || last < first) return lines;
  std::string rel;
  try {
    rel = checked_path(root, path);
  } catch (const ToolError&) {
    return lines;
  }
  std::ifstream in(root / rel, std::ios::binary);
  std::string line;
  for (std::int64_t n = 1; n <= last && std::getline(in, line); ++n) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (n >= first) lines.push_back(line);
  }
  return lines;
}

nlohmann::ordered_json path_suggestions(index::Repository& repository, const std::string& path) {
  nlohmann::ordered_json details = nlohmann::ordered_json::object();
  if (auto why = repository.skip_reason(path)) details["not_indexed"] = *why;
  auto similar = repository.similar_paths(path, 5);
  if (!similar.empty()) details["did_you_mean"] = similar;
  details["hint"] = "call files to list the indexed paths";
  return details;
}

}  // namespace orvane_tamsel::tool_handlers
