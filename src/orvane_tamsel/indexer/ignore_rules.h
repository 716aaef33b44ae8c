#pragma once
// gitignore-style rules (.gitignore, .git/info/exclude, .tamselignore) scoped to their folders.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer {

struct IgnoreRule {
  std::string base;  // folder of the file that holds the rule, "" for the root
  std::vector<std::string> segments;
  bool negate = false;
  bool dir_only = false;
  bool anchored = false;  // had a slash before its end: matched from base, not at any depth
};

class IgnoreRules {
 public:
  // Reads one ignore file (missing files are fine) whose patterns apply below `base`.
  void add_file(const std::filesystem::path& file, const std::string& base);
  void add_line(std::string_view line, const std::string& base);
  // The last matching rule decides, so deeper and later files override earlier ones.
  bool ignored(std::string_view path, bool is_dir) const;

  std::size_t size() const { return rules_.size(); }
  void truncate(std::size_t n) { rules_.resize(n); }

 private:
  std::vector<IgnoreRule> rules_;
};

}  // namespace orvane_tamsel::indexer
