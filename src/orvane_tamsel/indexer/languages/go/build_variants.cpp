#include "orvane_tamsel/indexer/languages/go/build_variants.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_set>

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

bool tag_holds(std::string_view tag) {
  if (known(KNOWN_OS, tag)) return os_matches(tag);
  if (known(KNOWN_ARCH, tag)) return tag == HOST_ARCH;
  if (tag == "unix") return HOST_OS != "windows";
  if (tag.starts_with("go1.")) return true;
  // This toolchain's defaults: the gc compiler, cgo, and (since Go 1.18 on these) register ABI.
  if (tag == "gc" || tag == "cgo") return true;
  if (tag == "goexperiment.regabiargs" || tag == "goexperiment.regabiwrappers") {
    return HOST_ARCH == "amd64" || HOST_ARCH == "arm64";
  }
  return false;
}

// A `//go:build` expression: `||` over `&&` over `!`, parentheses and tags.
class Constraint {
 public:
  explicit Constraint(std::string_view text) : text_(text) {}
  // The expression's value, or nothing when it does not parse.
  std::optional<bool> value() {
    auto v = either(0);
    skip_space();
    if (!v || at_ != text_.size()) return std::nullopt;
    return v;
  }

 private:
  static constexpr int MAX_NESTING = 32;

  void skip_space() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t')) ++at_;
  }
  bool take(std::string_view op) {
    skip_space();
    if (text_.substr(at_, op.size()) != op) return false;
    at_ += op.size();
    return true;
  }
  std::optional<bool> either(int depth) {
    auto v = both(depth);
    while (v && take("||")) {
      auto r = both(depth);
      if (!r) return std::nullopt;
      v = *v || *r;
    }
    return v;
  }
  std::optional<bool> both(int depth) {
    auto v = unary(depth);
    while (v && take("&&")) {
      auto r = unary(depth);
      if (!r) return std::nullopt;
      v = *v && *r;
    }
    return v;
  }
  std::optional<bool> unary(int depth) {
    if (depth > MAX_NESTING) return std::nullopt;
    if (take("!")) {
      auto v = unary(depth + 1);
      return v ? std::optional<bool>(!*v) : std::nullopt;
    }
    if (take("(")) {
      auto v = either(depth + 1);
      return v && take(")") ? v : std::nullopt;
    }
    skip_space();
    auto start = at_;
    while (at_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[at_])) != 0 ||
                                  text_[at_] == '_' || text_[at_] == '.')) {
      ++at_;
    }
    if (at_ == start) return std::nullopt;
    return tag_holds(text_.substr(start, at_ - start));
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

namespace {

// An older `// +build` line as an expression: spaces separate alternatives, commas join tags
// that must all hold (`linux,386 darwin,!cgo`).
std::string plus_build_expression(std::string_view options) {
  std::string expr;
  for (std::size_t at = 0; at < options.size();) {
    auto end = std::min(options.find_first_of(" \t", at), options.size());
    auto option = options.substr(at, end - at);
    at = end + 1;
    if (option.empty()) continue;
    std::string all;
    for (std::size_t t = 0; t <= option.size();) {
      auto comma = std::min(option.find(',', t), option.size());
      all += (all.empty() ? "" : " && ") + std::string(option.substr(t, comma - t));
      t = comma + 1;
    }
    expr += (expr.empty() ? "(" : " || (") + all + ")";
  }
  return expr;
}

}  // namespace

std::string build_constraint(std::string_view content) {
  // Constraints stand among the line comments and blank lines above the package clause. A
  // `//go:build` line decides alone; older files say it in `// +build` lines, all of which hold.
  std::string plus;
  for (std::size_t at = 0; at < content.size();) {
    auto end = std::min(content.find('\n', at), content.size());
    auto line = content.substr(at, end - at);
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back())) != 0) {
      line.remove_suffix(1);
    }
    if (line.starts_with("//go:build ")) return std::string(line.substr(11));
    if (line.starts_with("// +build ")) {
      auto expr = plus_build_expression(line.substr(10));
      if (!expr.empty()) plus += (plus.empty() ? "(" : " && (") + expr + ")";
    }
    if (!line.empty() && !line.starts_with("//")) return plus;
    at = end + 1;
  }
  return plus;
}

bool constraint_excludes(std::string_view expr) {
  auto v = Constraint(expr).value();
  return v && !*v;
}

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

namespace {

// Whether a file, by its name or its `//go:build` expression (kept among its module symbol's
// fields), builds elsewhere.
bool file_builds_elsewhere(const std::string& path, const std::string& fields) {
  if (builds_elsewhere(path)) return true;
  for (std::size_t at = 0; at < fields.size();) {
    auto end = std::min(fields.find('\n', at), fields.size());
    auto row = std::string_view(fields).substr(at, end - at);
    if (row.starts_with(BUILD_FIELD) && row.size() > BUILD_FIELD.size() &&
        row[BUILD_FIELD.size()] == '\t') {
      return constraint_excludes(row.substr(BUILD_FIELD.size() + 1));
    }
    at = end + 1;
  }
  return false;
}

}  // namespace

void BuildVariants::before_put_file(LinkingContext& ctx, const ParsedFile& file,
                                    std::int64_t file_id) {
  if (ctx.full_build() || file.symbols.empty()) return;
  auto st = ctx.database().prepare(
      "SELECT fields FROM symbols WHERE file_id = ? AND kind = 'module' LIMIT 1");
  st.bind(1, file_id);
  std::string before = st.step() ? st.text(0) : std::string();
  std::string now;
  for (const auto& [name, expr] : file.symbols.front().fields) {
    if (name == BUILD_FIELD) now = std::string(BUILD_FIELD) + "\t" + expr;
  }
  if (file_builds_elsewhere(file.path, before) == file_builds_elsewhere(file.path, now)) return;
  for (const auto& s : file.symbols) {
    if (s.kind != "module") ctx.affect(s.fqn);
  }
}

void BuildVariants::after_linking(LinkingContext& ctx) {
  auto& db = ctx.database();
  // Linked sites of the batch whose callee's file builds elsewhere while another symbol of its
  // fqn exists in the same package. The files named for a platform or with a constraint line
  // are few: their ids are gathered first.
  std::unordered_set<std::int64_t> elsewhere;
  {
    auto st = db.prepare(R"sql(
SELECT f.id, f.path, m.fields FROM files f CROSS JOIN symbols m ON m.file_id = f.id
  WHERE f.language = 'go' AND m.kind = 'module' AND (f.base GLOB '*_*' OR m.fields <> ''))sql");
    while (st.step()) {
      if (file_builds_elsewhere(st.text(1), st.text(2))) elsewhere.insert(st.integer(0));
    }
  }
  if (elsewhere.empty()) return;
  db.exec("CREATE TEMP TABLE IF NOT EXISTS go_elsewhere(id INTEGER PRIMARY KEY)");
  db.exec("DELETE FROM go_elsewhere");
  {
    auto put = db.prepare("INSERT INTO go_elsewhere VALUES(?)");
    for (auto id : elsewhere) put.bind(1, id).run();
  }
  std::vector<std::tuple<std::int64_t, std::string, std::string>> moved;
  {
    auto st = db.prepare(R"sql(
SELECT c.id, s.fqn, f.module FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id
  CROSS JOIN symbols s ON s.id = c.callee_id CROSS JOIN files f ON f.id = s.file_id
  WHERE f.id IN go_elsewhere
    AND EXISTS (SELECT 1 FROM symbols o WHERE o.fqn = s.fqn AND o.id <> s.id))sql");
    while (st.step()) moved.emplace_back(st.integer(0), st.text(1), st.text(2));
  }
  db.exec("DELETE FROM go_elsewhere");
  if (moved.empty()) return;
  auto variants = db.prepare(
      "SELECT s.id, f.id FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
      "WHERE s.fqn = ? AND f.module = ? AND s.kind <> 'module' "
      "ORDER BY s.start_line - s.end_line, s.id");
  auto link = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
  for (const auto& [site, fqn, module] : moved) {
    variants.bind(1, fqn).bind(2, module);
    while (variants.step()) {
      if (elsewhere.count(variants.integer(1)) != 0) continue;
      link.bind(1, variants.integer(0)).bind(2, site).run();
      break;
    }
    variants.reset();
  }
}

}  // namespace orvane_tamsel::indexer::go
