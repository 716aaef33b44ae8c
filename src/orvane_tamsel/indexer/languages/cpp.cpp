#include "orvane_tamsel/indexer/languages/cpp.h"

#include "orvane_tamsel/indexer/languages/cpp/rules.h"

namespace orvane_tamsel::indexer::cpp {

using detail::Rules;

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  auto out = rules.run();
  out.language = language.name;
  return out;
}

}  // namespace orvane_tamsel::indexer::cpp
