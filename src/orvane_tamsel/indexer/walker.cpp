#include "orvane_tamsel/indexer/walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "orvane_tamsel/indexer/ignore_rules.h"
#include "orvane_tamsel/indexer/reference_docs/rest_directives.h"

namespace orvane_tamsel::indexer {

namespace fs = std::filesystem;

namespace {

const std::set<std::string, std::less<>> NEVER_ENTER = {".git", ".tamsel", "node_modules"};

std::int64_t ns(const struct timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

FolderStamp stamp_of(const struct stat& st) {
  return {static_cast<std::int64_t>(st.st_dev), static_cast<std::int64_t>(st.st_ino),
          ns(st.st_ctim), ns(st.st_mtim)};
}

// A folder reached by a longer path from its nearest opened ancestor is opened itself.
constexpr std::size_t MAX_REACH = 1024;

bool is_ignore_file(std::string_view name) {
  return name == ".gitignore" || name == ".tamselignore";
}

class Walk {
 public:
  Walk(fs::path root, std::int64_t max_size, FolderCache* cache)
      : root_(std::move(root)), max_size_(max_size), cache_(cache) {
    std::error_code ec;
    real_root_ = fs::canonical(root_, ec);
    if (ec) real_root_ = root_;
  }

  WalkResult run() {
    if (cache_ != nullptr) {
      struct timespec now {};
      ::clock_gettime(CLOCK_REALTIME, &now);
      cache_->start_walk(ns(now));
    }
    rules_.add_file(root_ / ".git" / "info" / "exclude", "");
    dir(root_.string(), "", AT_FDCWD, root_.string());
    for (auto* files : {&out_.files, &out_.pages}) {
      std::sort(files->begin(), files->end(),
                [](const auto& a, const auto& b) { return a.path < b.path; });
    }
    return std::move(out_);
  }

 private:
  // The entries the walk may act on (folders, links, code and ignore files), sorted by name; the
  // type comes from the listing, so most entries cost no stat. nullopt when it cannot be listed.
  std::optional<std::vector<FolderEntry>> list(const std::string& abs) {
    guessed_ = false;
    DIR* d = ::opendir(abs.c_str());
    if (d == nullptr) return std::nullopt;
    std::vector<FolderEntry> entries;
    while (auto* e = ::readdir(d)) {
      std::string_view name = e->d_name;
      if (name == "." || name == "..") continue;
      unsigned char type = e->d_type;
      if (type == DT_UNKNOWN) {
        struct stat st {};
        if (::fstatat(::dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
          type = DT_REG;  // the per-file stat below reports it
          guessed_ = true;
        } else {
          type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISLNK(st.st_mode) ? DT_LNK : DT_REG;
        }
      }
      if (type == DT_DIR) {
        entries.push_back({std::string(name), FolderEntry::directory});
      } else if (type == DT_LNK) {
        entries.push_back({std::string(name), FolderEntry::symlink});
      } else if (type == DT_REG &&
                 (utils::language_for_path(name) != nullptr || is_ignore_file(name) ||
                  reference_docs::is_reference_page(name))) {
        entries.push_back({std::string(name), FolderEntry::file});
      }
    }
    ::closedir(d);
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
  }

  // `at` and `at_name` reach the folder from the handle of its nearest opened ancestor: each stat
  // below then looks up a name or two instead of walking the whole path again, which dominates
  // an update of a large tree.
  void dir(const std::string& abs, const std::string& rel, int at, const std::string& at_name) {
    auto mark = rules_.size();
    out_.folders.push_back(rel);
    if (!unchanged_without_files(abs, rel, at, at_name)) opened(abs, rel, at, at_name);
    rules_.truncate(mark);
  }

  // A folder whose kept listing holds no file (a locale's message folder, a folder of folders) is
  // only stamped, not opened: when its stamp is as kept, so is its listing, and nothing in it
  // needs its handle (its subfolders are reached from this one's `at`). One stat where an open,
  // a stat and a close take three. False when the folder must be opened and listed as usual.
  bool unchanged_without_files(const std::string& abs, const std::string& rel, int at,
                               const std::string& at_name) {
    if (cache_ == nullptr || at_name.size() > MAX_REACH) return false;
    const auto* kept = cache_->peek(rel);
    if (kept == nullptr || std::any_of(kept->begin(), kept->end(),
                                       [](const auto& e) { return e.type == FolderEntry::file; })) {
      return false;
    }
    struct stat st {};
    if (::fstatat(at, at_name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) {
      return false;
    }
    const auto* entries = cache_->find(rel, stamp_of(st));
    if (entries == nullptr) return false;
    for (const auto& e : *entries) entry(abs, e, rel, at, at_name + "/");
    return true;
  }

  void opened(const std::string& abs, const std::string& rel, int at, const std::string& at_name) {
    int fd = ::openat(at, at_name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    // Out of descriptors (very deep trees), or the root is a link: reached by its path instead.
    if (fd < 0) fd = ::open(abs.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    struct Closer {
      int fd;
      ~Closer() {
        if (fd >= 0) ::close(fd);
      }
    } closer{fd};
    std::optional<std::vector<FolderEntry>> listed;
    const std::vector<FolderEntry>* entries = nullptr;
    struct stat st {};
    // Stamped before listing: a change made while listing leaves a stamp the next walk rejects.
    bool stamped =
        cache_ != nullptr && (fd >= 0 ? ::fstat(fd, &st) : ::stat(abs.c_str(), &st)) == 0;
    if (stamped) entries = cache_->find(rel, stamp_of(st));
    if (entries == nullptr) {
      listed = list(abs);
      // A folder that cannot be listed is counted, so its files are not silently missing.
      if (!listed) {
        if (!rel.empty()) out_.skipped[rel] = "unreadable";
        return;
      }
      // A listing with a guessed type is not kept: the guess holds for this walk only.
      if (stamped && !guessed_) cache_->keep(rel, stamp_of(st), *listed);
      entries = &*listed;
    }
    // Opened only when listed: most folders have neither, and a failed open per folder shows.
    for (const char* name : {".gitignore", ".tamselignore"}) {
      auto it = std::find_if(entries->begin(), entries->end(), [&](const auto& e) {
        return e.name == name && e.type != FolderEntry::directory;
      });
      if (it != entries->end()) rules_.add_file(abs + "/" + name, rel);
    }
    // Without a handle, everything below is reached by its full path.
    for (const auto& e : *entries) {
      entry(abs, e, rel, fd >= 0 ? fd : AT_FDCWD, fd >= 0 ? std::string() : abs + "/");
    }
  }

  // `at` and `at_prefix` + a name reach an entry, as `at` and `at_name` reach a folder in dir().
  void entry(const std::string& parent_abs, const FolderEntry& e, const std::string& parent, int at,
             const std::string& at_prefix) {
    const std::string& name = e.name;
    std::string rel = parent.empty() ? name : parent + "/" + name;
    std::string abs = parent_abs + "/" + name;
    bool is_link = e.type == FolderEntry::symlink;
    bool is_dir = e.type == FolderEntry::directory;
    std::error_code ec;
    fs::file_status status;
    if (is_link) {
      status = fs::status(abs, ec);
      is_dir = !ec && fs::is_directory(status);
    }
    if (is_dir && NEVER_ENTER.count(name) != 0) return;
    if (rules_.ignored(rel, is_dir)) return;
    if (is_link) {
      if (ec || !fs::exists(status)) return skip_if_code(rel, "broken symlink");
      auto target = fs::canonical(abs, ec);
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
      if (!is_link) return dir(abs, rel, at, at_prefix + name);
      // The target folder is inside the repository and walked under its own path already.
      auto target = fs::canonical(abs, ec);
      auto here = parent.empty() ? real_root_ : real_root_ / parent;
      auto up = std::mismatch(target.begin(), target.end(), here.begin(), here.end());
      out_.skipped[rel] = up.first == target.end() ? "symlink loop" : "symlink inside";
      return;
    }
    if (is_link && !fs::is_regular_file(status)) return;
    const auto* lang = utils::language_for_path(name);
    bool page = lang == nullptr && reference_docs::is_reference_page(name);
    if (lang == nullptr && !page) return;
    struct stat st {};
    if (::fstatat(at, (at_prefix + name).c_str(), &st, 0) != 0)
      return skip_if_code(rel, "unreadable");
    if (!S_ISREG(st.st_mode)) return;
    // A page too large to read is left out like any file no language reads.
    if (page) {
      if (st.st_size <= max_size_) {
        out_.pages.push_back({rel, nullptr, static_cast<std::int64_t>(st.st_size), ns(st.st_mtim)});
      }
      return;
    }
    if (std::find(lang->package_markers.begin(), lang->package_markers.end(), name) !=
        lang->package_markers.end()) {
      out_.packages.insert(parent);
    }
    if (st.st_size > max_size_) {
      out_.skipped[rel] = "too large";
      return;
    }
    out_.files.push_back({rel, lang, static_cast<std::int64_t>(st.st_size), ns(st.st_mtim)});
  }

  // Only files a language would read are worth a reason; the rest is outside the index anyway.
  void skip_if_code(const std::string& rel, const char* reason) {
    if (utils::language_for_path(rel) != nullptr) out_.skipped[rel] = reason;
  }

  fs::path root_, real_root_;
  std::int64_t max_size_;
  FolderCache* cache_;
  bool guessed_ = false;  // the last listing had an entry whose type could not be read
  IgnoreRules rules_;
  WalkResult out_;
};

}  // namespace

WalkResult walk(const fs::path& root, std::int64_t max_file_size, FolderCache* cache) {
  return Walk(root, max_file_size, cache).run();
}

}  // namespace orvane_tamsel::indexer
