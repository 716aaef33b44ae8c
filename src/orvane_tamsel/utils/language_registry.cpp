#include "orvane_tamsel/utils/language_registry.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstddef>
#include <string>

extern "C" const TSLanguage* tree_sitter_python(void);
extern "C" const TSLanguage* tree_sitter_c(void);
extern "C" const TSLanguage* tree_sitter_cpp(void);
extern "C" const TSLanguage* tree_sitter_go(void);
extern "C" const TSLanguage* tree_sitter_javascript(void);
extern "C" const TSLanguage* tree_sitter_typescript(void);
extern "C" const TSLanguage* tree_sitter_tsx(void);
extern "C" const TSLanguage* tree_sitter_java(void);
extern "C" const TSLanguage* tree_sitter_rust(void);

namespace orvane_tamsel::utils {

namespace detail {
// Generated at build time from the .scm files (cmake/embed_queries.cmake).
extern const char* const EMBEDDED_QUERIES[][2];
extern const std::size_t EMBEDDED_QUERY_COUNT;
}  // namespace detail

namespace {

// A language whose symbols and calls its tags and definitions queries give.
Language tagged(std::string name, std::vector<std::string> extensions,
                const TSLanguage* (*grammar)(), std::string package_dir,
                std::vector<std::string> test_file_globs, std::vector<std::string> test_dirs) {
  return {std::move(name),
          std::move(extensions),
          {},
          grammar,
          std::move(package_dir),
          {"tags", "definitions"},
          std::move(test_file_globs),
          std::move(test_dirs),
          {}};
}

Language python_language() {
  return {"python",
          {".py", ".pyi"},
          {},
          tree_sitter_python,
          "tree-sitter-python",
          {"tags", "signatures", "docstrings", "imports", "locals", "instances", "types"},
          {"test_*.py", "*_test.py", "conftest.py"},
          {"tests", "test"},
          {"__init__.py", "__init__.pyi"}};
}

// `.h` is C here; the C extractor hands a header holding C++ syntax to C++.
Language c_language() {
  return tagged("c", {".c", ".h"}, tree_sitter_c, "tree-sitter-c",
                {"test_*.c", "*_test.c", "*_tests.c"}, {"tests", "test"});
}

Language cpp_language() {
  return tagged(
      "cpp", {".cc", ".cpp", ".cxx", ".c++", ".hh", ".hpp", ".hxx", ".h++", ".ipp", ".tcc"},
      tree_sitter_cpp, "tree-sitter-cpp",
      {"*_test.cc", "*_test.cpp", "*_unittest.cc", "*_unittest.cpp", "test_*.cc", "test_*.cpp"},
      {"tests", "test"});
}

Language go_language() {
  auto go = tagged("go", {".go"}, tree_sitter_go, "tree-sitter-go", {"*_test.go"}, {});
  go.folder_is_package = true;
  go.exports_by_case = true;
  return go;
}

Language javascript_language() {
  return tagged("javascript", {".js", ".jsx", ".mjs", ".cjs"}, tree_sitter_javascript,
                "tree-sitter-javascript",
                {"*.test.js", "*.spec.js", "*.test.jsx", "*.spec.jsx", "*.test.mjs", "*.spec.mjs"},
                {"__tests__"});
}

// `.d.ts` ends in `.ts`: declarations index as TypeScript.
Language typescript_language() {
  return tagged("typescript", {".ts", ".mts", ".cts"}, tree_sitter_typescript,
                "tree-sitter-typescript", {"*.test.ts", "*.spec.ts"}, {"__tests__"});
}

Language tsx_language() {
  return tagged("tsx", {".tsx"}, tree_sitter_tsx, "tree-sitter-typescript",
                {"*.test.tsx", "*.spec.tsx"}, {"__tests__"});
}

Language java_language() {
  return tagged("java", {".java"}, tree_sitter_java, "tree-sitter-java",
                {"*Test.java", "*Tests.java", "Test*.java", "*IT.java"}, {"test"});
}

Language rust_language() {
  return tagged("rust", {".rs"}, tree_sitter_rust, "tree-sitter-rust", {}, {"tests", "benches"});
}

}  // namespace

// Python first: the Python tests take languages().front() as Python.
const std::vector<Language>& languages() {
  static const std::vector<Language> table = {
      python_language(),     c_language(),   cpp_language(),  go_language(),  javascript_language(),
      typescript_language(), tsx_language(), java_language(), rust_language()};
  return table;
}

const Language* language_for_path(std::string_view path) {
  auto slash = path.rfind('/');
  auto name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  for (const auto& lang : languages()) {
    if (std::find(lang.file_names.begin(), lang.file_names.end(), name) != lang.file_names.end()) {
      return &lang;
    }
    for (const auto& ext : lang.extensions) {
      if (name.size() > ext.size() && name.substr(name.size() - ext.size()) == ext) return &lang;
    }
  }
  return nullptr;
}

std::optional<std::string> detect_language(std::string_view word) {
  const auto* lang = language_for_path(word);
  if (lang == nullptr) return std::nullopt;
  return lang->name;
}

std::string_view query_source(std::string_view language, std::string_view name) {
  std::string key = std::string(language) + "/" + std::string(name) + ".scm";
  for (std::size_t i = 0; i < detail::EMBEDDED_QUERY_COUNT; ++i) {
    if (key == detail::EMBEDDED_QUERIES[i][0]) return detail::EMBEDDED_QUERIES[i][1];
  }
  return {};
}

bool is_test_path(const Language& language, std::string_view path) {
  std::string p(path);
  auto slash = p.rfind('/');
  std::string name = slash == std::string::npos ? p : p.substr(slash + 1);
  for (const auto& glob : language.test_file_globs) {
    if (fnmatch(glob.c_str(), name.c_str(), 0) == 0) return true;
  }
  std::size_t start = 0;
  while (slash != std::string::npos && start < slash) {
    auto end = p.find('/', start);
    std::string_view dir(p.data() + start, end - start);
    if (std::find(language.test_dirs.begin(), language.test_dirs.end(), dir) !=
        language.test_dirs.end()) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

}  // namespace orvane_tamsel::utils
