#pragma once
// The languages the index reads: file names to grammar, queries and test rules.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct TSLanguage;

namespace orvane_tamsel::utils {

struct LanguageSpec {
  std::string name;                     // "python"
  std::vector<std::string> extensions;  // ".py", ".pyi"
  std::vector<std::string> file_names;  // exact names, e.g. "SConstruct"
  const TSLanguage* (*grammar)() = nullptr;
  std::string package_dir;  // the npm package holding queries/*.scm, relative to node_modules
};

const std::vector<LanguageSpec>& languages();
// The language of a file of that name (a bare name or a path), or nullopt.
std::optional<std::string> detect_language(std::string_view word);
const LanguageSpec* language_for_path(std::string_view path);

}  // namespace orvane_tamsel::utils
