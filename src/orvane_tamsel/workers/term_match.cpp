#include "orvane_tamsel/workers/term_match.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/index/word_stem.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::workers::detail {

namespace {

constexpr std::size_t MIN_PREFIX = 4;
constexpr std::size_t MIN_OWNER_WORD = 3;

}  // namespace

std::string stem(std::string_view word) {
  return index::stem(word);
}

std::vector<std::string> fqn_stems(std::string_view fqn) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start <= fqn.size()) {
    auto dot = fqn.find('.', start);
    if (dot == std::string_view::npos) dot = fqn.size();
    for (const auto& w : index::subwords(fqn.substr(start, dot - start))) out.push_back(stem(w));
    start = dot + 1;
  }
  return out;
}

std::vector<std::string> text_stems(std::string_view text) {
  std::vector<std::string> out;
  std::string word;
  auto flush = [&] {
    if (!word.empty()) out.push_back(stem(word));
    word.clear();
  };
  for (unsigned char c : text) {
    if (std::isalnum(c)) {
      word.push_back(static_cast<char>(std::tolower(c)));
    } else {
      flush();
    }
  }
  flush();
  return out;
}

bool meets(const std::string& term, const std::vector<std::string>& stems) {
  for (const auto& s : stems) {
    if (s == term) return true;
    const auto& shorter = s.size() < term.size() ? s : term;
    const auto& longer = s.size() < term.size() ? term : s;
    if (shorter.size() >= MIN_PREFIX && longer.compare(0, shorter.size(), shorter) == 0) {
      return true;
    }
  }
  return false;
}

namespace {

// What follows the longest tail of a dotted module path that begins the fqn (a src/ layout drops
// "src"), if one does.
std::optional<std::string> after_tail(const std::string& fqn, const std::string& module_path) {
  for (std::size_t from = 0; from < module_path.size();) {
    auto module = module_path.substr(from);
    if (fqn.size() > module.size() && fqn.compare(0, module.size(), module) == 0 &&
        fqn[module.size()] == '.') {
      return fqn.substr(module.size() + 1);
    }
    auto dot = module_path.find('.', from);
    if (dot == std::string::npos) break;
    from = dot + 1;
  }
  return std::nullopt;
}

}  // namespace

std::string inside_module(const std::string& fqn, const std::string& path) {
  const auto* language = utils::language_for_path(path);
  std::string stem(path);
  auto slash = stem.rfind('/');
  auto dot = stem.rfind('.');
  static const std::vector<std::string> none;
  const auto& markers = language ? language->package_markers : none;
  if (slash != std::string::npos &&
      std::find(markers.begin(), markers.end(), stem.substr(slash + 1)) != markers.end()) {
    stem.resize(slash);  // a package's marker file (__init__.py) stands for its folder
  } else if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    stem.resize(dot);
  }
  std::replace(stem.begin(), stem.end(), '/', '.');
  if (auto inner = after_tail(fqn, stem)) return *inner;
  // A package that is its folder: http.Client.Do in net/http/client.go.
  auto folder = stem.rfind('.');
  if (folder != std::string::npos && language && language->folder_is_package) {
    if (auto inner = after_tail(fqn, stem.substr(0, folder))) return *inner;
  }
  return fqn;
}

bool inside_name(const std::string& term, std::string_view lower_name) {
  return term.size() >= MIN_PREFIX && lower_name.find(term) != std::string_view::npos;
}

double owner_named(std::string_view inner, const std::vector<std::string>& terms) {
  auto last = inner.rfind('.');
  if (last == std::string_view::npos) return 0;
  auto owner = inner.substr(0, last);
  owner = owner.substr(owner.rfind('.') == std::string_view::npos ? 0 : owner.rfind('.') + 1);
  int words = 0, named = 0;
  for (const auto& w : index::subwords(owner)) {
    if (w.size() < MIN_OWNER_WORD) continue;
    ++words;
    // The same word (log, logs) is no shortening: the name inputs count it already.
    named += std::any_of(terms.begin(), terms.end(), [&](const std::string& t) {
      return t.starts_with(w) && stem(t) != stem(w);
    });
  }
  return words ? static_cast<double>(named) / words : 0;
}

}  // namespace orvane_tamsel::workers::detail
