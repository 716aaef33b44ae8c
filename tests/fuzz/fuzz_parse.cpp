// One source file into the parser and call resolver of every registered language.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/utils/language_registry.h"
#include "orvane_tamsel/utils/unicode.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvane_tamsel;
  std::string_view content(reinterpret_cast<const char*>(data), size);
  // The indexer reads only valid UTF-8 without NUL bytes; anything else is skipped before this.
  if (content.find('\0') != std::string_view::npos || !utils::is_valid_utf8(content)) return 0;
  for (const auto& language : utils::languages()) {
    std::string path = "pkg/sub/fuzzed" +
                       (language.extensions.empty() ? std::string() : language.extensions.front());
    auto module = indexer::module_name(language, path, {"pkg", "pkg/sub"});
    (void)indexer::extract(language, path, module, content);
  }
  return 0;
}
