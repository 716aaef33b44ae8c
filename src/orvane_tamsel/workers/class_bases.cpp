#include "orvane_tamsel/workers/class_bases.h"

#include <cctype>

namespace orvane_tamsel::workers {

std::vector<std::string_view> class_bases(std::string_view signature) {
  std::vector<std::string_view> bases;
  if (!signature.starts_with("class ")) return bases;
  auto open = signature.find('(');
  auto close = signature.find(')', open);
  if (open == std::string_view::npos || close == std::string_view::npos) return bases;
  auto list = signature.substr(open + 1, close - open - 1);
  while (!list.empty()) {
    auto comma = list.find(',');
    auto base = list.substr(0, comma);
    list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    if (base.find('=') != std::string_view::npos) continue;  // metaclass=...
    base = base.substr(0, base.find('['));                   // Generic[T]
    while (!base.empty() && std::isspace(static_cast<unsigned char>(base.back()))) {
      base.remove_suffix(1);
    }
    while (!base.empty() && std::isspace(static_cast<unsigned char>(base.front()))) {
      base.remove_prefix(1);
    }
    if (auto dot = base.rfind('.'); dot != std::string_view::npos) base = base.substr(dot + 1);
    if (!base.empty()) bases.push_back(base);
  }
  return bases;
}

}  // namespace orvane_tamsel::workers
