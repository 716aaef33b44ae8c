#include "orvane_tamsel/utils/language_registry.h"

#include <algorithm>

extern "C" const TSLanguage* tree_sitter_python(void);

namespace orvane_tamsel::utils {

const std::vector<LanguageSpec>& languages() {
  static const std::vector<LanguageSpec> table = {
      {"python", {".py", ".pyi"}, {}, tree_sitter_python, "tree-sitter-python"},
  };
  return table;
}

const LanguageSpec* language_for_path(std::string_view path) {
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

}  // namespace orvane_tamsel::utils
