#pragma once
// The languages the index reads: file names to grammar, queries and test rules.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct TSLanguage;

namespace orvane_tamsel::utils {

struct Language {
  std::string name;                     // "python"
  std::vector<std::string> extensions;  // ".py", ".pyi"
  std::vector<std::string> file_names;  // exact names, e.g. "SConstruct"
  const TSLanguage* (*grammar)() = nullptr;
  std::string package_dir;  // the npm package holding queries/*.scm, relative to node_modules
  // Query names ("tags", "calls", ...) embedded in the binary as "<language>/<name>.scm".
  std::vector<std::string> queries;
  std::vector<std::string> test_file_globs;  // fnmatch patterns on the file name
  std::vector<std::string> test_dirs;        // a file under such a folder is test code
  std::vector<std::string> package_markers;  // a folder holding one of these is a package
  // A folder is one package: its files share one namespace, so a name is read inside the folder
  // rather than the file, and one name defined in several of its files is one definition.
  bool folder_is_package = false;
  // A name is visible outside its package when it begins with an upper-case letter.
  bool exports_by_case = false;
};

const std::vector<Language>& languages();
// The language of a file of that name (a bare name or a path), or nullopt.
std::optional<std::string> detect_language(std::string_view word);
const Language* language_for_path(std::string_view path);

// The text of an embedded query file, e.g. ("python", "tags"); empty when there is none.
std::string_view query_source(std::string_view language, std::string_view name);
// Whether a repository-relative path is test code by the language's naming rules.
bool is_test_path(const Language& language, std::string_view path);

}  // namespace orvane_tamsel::utils
