#include "orvane_tamsel/indexer/extract.h"

#include <stdexcept>

#include "orvane_tamsel/indexer/generated_header.h"
#include "orvane_tamsel/indexer/languages/c.h"
#include "orvane_tamsel/indexer/languages/cpp.h"
#include "orvane_tamsel/indexer/languages/go.h"
#include "orvane_tamsel/indexer/languages/java.h"
#include "orvane_tamsel/indexer/languages/javascript.h"
#include "orvane_tamsel/indexer/languages/python.h"
#include "orvane_tamsel/indexer/languages/rust.h"

namespace orvane_tamsel::indexer {

namespace {

struct Extractor {
  std::string_view language;
  std::string (*module_name)(std::string_view path, const PackageDirs& packages,
                             std::string_view root_name);
  ParsedFile (*extract)(const utils::Language& language, std::string_view path,
                        std::string_view module, std::string_view content);
};

// One row per language of the registry; C++ shares C's module rule, TypeScript JavaScript's.
constexpr Extractor EXTRACTORS[] = {
    {"python", python::module_name, python::extract},
    {"c", c::module_name, c::extract},
    {"cpp", c::module_name, cpp::extract},
    {"go", go::module_name, go::extract},
    {"javascript", javascript::module_name, javascript::extract},
    {"typescript", javascript::module_name, javascript::extract},
    {"tsx", javascript::module_name, javascript::extract},
    {"java", java::module_name, java::extract},
    {"rust", rust::module_name, rust::extract},
};

const Extractor& extractor_for(const utils::Language& language) {
  for (const auto& e : EXTRACTORS) {
    if (e.language == language.name) return e;
  }
  throw std::logic_error("no extractor for " + language.name);
}

}  // namespace

std::string module_name(const utils::Language& language, std::string_view path,
                        const PackageDirs& packages, std::string_view root_name) {
  return extractor_for(language).module_name(path, packages, root_name);
}

void prepare_extraction(const utils::Language& language) {
  try {
    extract(language, "", "", "");  // an empty file compiles the queries and little else
  } catch (const std::exception&) {
    // the first real file reports what is wrong
  }
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  auto out = extractor_for(language).extract(language, path, module, content);
  out.generated = generated_header(content);
  return out;
}

}  // namespace orvane_tamsel::indexer
