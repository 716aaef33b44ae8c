#include "orvane_tamsel/indexer/walker.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include "orvane_tamsel/indexer/ignore_rules.h"

namespace orvane_tamsel::indexer {

namespace fs = std::filesystem;

namespace {

const std::set<std::string, std::less<>> NEVER_ENTER = {".git", ".tamsel", "node_modules"};

class Walk {
 public:
  Walk(fs::path root, std::int64_t max_size) : root_(std::move(root)), max_size_(max_size) {
    std::error_code ec;
    real_root_ = fs::canonical(root_, ec);
    if (ec) real_root_ = root_;
  }

  WalkResult run() {
    rules_.add_file(root_ / ".git" / "info" / "exclude", "");
    dir(root_, "");
    std::sort(out_.files.begin(), out_.files.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return std::move(out_);
  }

 private:
  void dir(const fs::path& abs, const std::string& rel) {
    auto mark = rules_.size();
    out_.folders.push_back(rel);
    std::error_code ec;
    fs::directory_iterator it(abs, ec);
    // A folder that cannot be listed is counted, so its files are not silently missing.
    if (ec && !rel.empty()) out_.skipped[rel] = "unreadable";
    std::vector<fs::directory_entry> entries;
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) entries.push_back(*it);
    std::sort(entries.begin(), entries.end());
    // Opened only when listed: most folders have neither, and a failed open per folder shows.
    for (const char* name : {".gitignore", ".tamselignore"}) {
      auto listed = std::find_if(entries.begin(), entries.end(),
                                 [&](const auto& e) { return e.path().filename() == name; });
      if (listed != entries.end()) rules_.add_file(listed->path(), rel);
    }
    for (const auto& e : entries) entry(e, rel);
    rules_.truncate(mark);
  }

  void entry(const fs::directory_entry& e, const std::string& parent) {
    std::string name = e.path().filename().string();
    std::string rel = parent.empty() ? name : parent + "/" + name;
    std::error_code ec;
    // The type the directory listing gave spares a stat per entry; only links are followed.
    bool is_link = e.is_symlink(ec);
    if (ec) return skip_if_code(rel, "unreadable");
    fs::file_status status;
    if (is_link) {
      status = e.status(ec);
    } else {
      status = fs::file_status(e.is_directory(ec)      ? fs::file_type::directory
                               : e.is_regular_file(ec) ? fs::file_type::regular
                                                       : fs::file_type::unknown);
    }
    bool is_dir = !ec && fs::is_directory(status);
    if (is_dir && NEVER_ENTER.count(name) != 0) return;
    if (rules_.ignored(rel, is_dir)) return;
    if (is_link) {
      if (ec || !fs::exists(status)) return skip_if_code(rel, "broken symlink");
      auto target = fs::canonical(e.path(), ec);
      if (ec) return skip_if_code(rel, "broken symlink");
      auto inside =
          std::mismatch(real_root_.begin(), real_root_.end(), target.begin(), target.end());
      if (inside.first != real_root_.end()) {
        if (is_dir || utils::language_for_path(rel) != nullptr)
          out_.skipped[rel] = "symlink outside";
        return;
      }
    }
    if (is_dir) {
      if (!is_link) return dir(e.path(), rel);
      // The target folder is inside the repository and walked under its own path already.
      auto target = fs::canonical(e.path(), ec);
      auto here = parent.empty() ? real_root_ : real_root_ / parent;
      auto up = std::mismatch(target.begin(), target.end(), here.begin(), here.end());
      out_.skipped[rel] = up.first == target.end() ? "symlink loop" : "symlink inside";
      return;
    }
    if (!fs::is_regular_file(status)) return;
    const auto* lang = utils::language_for_path(rel);
    if (lang == nullptr) return;
    struct stat st {};
    if (::stat(e.path().c_str(), &st) != 0) return skip_if_code(rel, "unreadable");
    if (std::find(lang->package_markers.begin(), lang->package_markers.end(), name) !=
        lang->package_markers.end()) {
      out_.packages.insert(parent);
    }
    if (st.st_size > max_size_) {
      out_.skipped[rel] = "too large";
      return;
    }
    out_.files.push_back(
        {rel, lang, static_cast<std::int64_t>(st.st_size),
         static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec});
  }

  // Only files a language would read are worth a reason; the rest is outside the index anyway.
  void skip_if_code(const std::string& rel, const char* reason) {
    if (utils::language_for_path(rel) != nullptr) out_.skipped[rel] = reason;
  }

  fs::path root_, real_root_;
  std::int64_t max_size_;
  IgnoreRules rules_;
  WalkResult out_;
};

}  // namespace

WalkResult walk(const fs::path& root, std::int64_t max_file_size) {
  return Walk(root, max_file_size).run();
}

}  // namespace orvane_tamsel::indexer
