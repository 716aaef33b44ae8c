#include "orvane_tamsel/indexer/languages/go/build_variants.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <tuple>

namespace orvane_tamsel::indexer::go {

namespace {

constexpr std::array<std::string_view, 17> KNOWN_OS = {
    "aix",   "android", "darwin", "dragonfly", "freebsd", "hurd",    "illumos", "ios", "js",
    "linux", "nacl",    "netbsd", "openbsd",   "plan9",   "solaris", "windows", "zos"};
constexpr std::array<std::string_view, 25> KNOWN_ARCH = {
    "386",     "amd64",   "amd64p32", "arm",    "armbe",    "arm64",     "arm64be",
    "loong64", "mips",    "mipsle",   "mips64", "mips64le", "mips64p32", "mips64p32le",
    "ppc",     "ppc64",   "ppc64le",  "riscv",  "riscv64",  "s390",      "s390x",
    "sparc",   "sparc64", "wasm",     "wasm32"};

// The platform this tamsel was built for, named as Go names it.
#if defined(__APPLE__)
constexpr std::string_view HOST_OS = "darwin";
#elif defined(_WIN32)
constexpr std::string_view HOST_OS = "windows";
#elif defined(__FreeBSD__)
constexpr std::string_view HOST_OS = "freebsd";
#else
constexpr std::string_view HOST_OS = "linux";
#endif
#if defined(__aarch64__)
constexpr std::string_view HOST_ARCH = "arm64";
#elif defined(__i386__)
constexpr std::string_view HOST_ARCH = "386";
#elif defined(__arm__)
constexpr std::string_view HOST_ARCH = "arm";
#else
constexpr std::string_view HOST_ARCH = "amd64";
#endif

template <std::size_t N>
bool known(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool os_matches(std::string_view os) {
  return os == HOST_OS || (os == "linux" && HOST_OS == "android") ||
         (os == "darwin" && HOST_OS == "ios") || (os == "solaris" && HOST_OS == "illumos");
}

}  // namespace

bool builds_elsewhere(std::string_view path) {
  auto name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  name = name.substr(0, name.find('.'));
  auto underscore = name.find('_');
  if (underscore == std::string_view::npos) return false;
  std::vector<std::string_view> parts;  // what follows the first underscore, split at each
  for (auto rest = name.substr(underscore + 1);;) {
    auto next = rest.find('_');
    parts.push_back(rest.substr(0, next));
    if (next == std::string_view::npos) break;
    rest.remove_prefix(next + 1);
  }
  if (parts.back() == "test") parts.pop_back();
  auto n = parts.size();
  if (n >= 2 && known(KNOWN_OS, parts[n - 2]) && known(KNOWN_ARCH, parts[n - 1]))
    return !os_matches(parts[n - 2]) || parts[n - 1] != HOST_ARCH;
  if (n >= 1 && known(KNOWN_OS, parts[n - 1])) return !os_matches(parts[n - 1]);
  if (n >= 1 && known(KNOWN_ARCH, parts[n - 1])) return parts[n - 1] != HOST_ARCH;
  return false;
}

void BuildVariants::after_linking(LinkingContext& ctx) {
  auto& db = ctx.database();
  // Linked sites of the batch whose callee's file builds elsewhere while another symbol of its
  // fqn exists in the same package.
  std::vector<std::tuple<std::int64_t, std::string, std::string>> moved;
  {
    auto st = db.prepare(R"sql(
SELECT c.id, s.fqn, f.module, f.path FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id
  CROSS JOIN symbols s ON s.id = c.callee_id CROSS JOIN files f ON f.id = s.file_id
  WHERE f.language = 'go' AND f.base GLOB '*_*'
    AND EXISTS (SELECT 1 FROM symbols o WHERE o.fqn = s.fqn AND o.id <> s.id))sql");
    while (st.step()) {
      if (builds_elsewhere(st.text(3))) moved.emplace_back(st.integer(0), st.text(1), st.text(2));
    }
  }
  if (moved.empty()) return;
  auto variants = db.prepare(
      "SELECT s.id, f.path FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
      "WHERE s.fqn = ? AND f.module = ? AND s.kind <> 'module' "
      "ORDER BY s.start_line - s.end_line, s.id");
  auto link = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
  for (const auto& [site, fqn, module] : moved) {
    variants.bind(1, fqn).bind(2, module);
    while (variants.step()) {
      if (builds_elsewhere(variants.text(1))) continue;
      link.bind(1, variants.integer(0)).bind(2, site).run();
      break;
    }
    variants.reset();
  }
}

}  // namespace orvane_tamsel::indexer::go
