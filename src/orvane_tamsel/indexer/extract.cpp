#include "orvane_tamsel/indexer/extract.h"

#include <stdexcept>

#include "orvane_tamsel/indexer/languages/python.h"

namespace orvane_tamsel::indexer {

std::string module_name(const utils::LanguageSpec& language, std::string_view path,
                        const PackageDirs& packages, std::string_view root_name) {
  if (language.name == "python") return python::module_name(path, packages, root_name);
  throw std::logic_error("no extractor for " + language.name);
}

ParsedFile extract(const utils::LanguageSpec& language, std::string_view path,
                   std::string_view module, std::string_view content) {
  if (language.name == "python") {
    return python::extract(language, path, module, content);
  }
  throw std::logic_error("no extractor for " + language.name);
}

}  // namespace orvane_tamsel::indexer
