#include "orvane_tamsel/server/change_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <spdlog/spdlog.h>

#include <cerrno>
#include <cstring>

namespace orvane_tamsel::server {

namespace {

// Our own reads must not count, so only changes are asked for.
constexpr std::uint32_t CHANGES = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

ChangeWatch::ChangeWatch(std::filesystem::path root) : root_(std::move(root)) {
  fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0)
    spdlog::info("serve: no change notification ({}): walking before every call",
                 std::strerror(errno));
}

ChangeWatch::~ChangeWatch() {
  if (fd_ >= 0) ::close(fd_);
}

bool ChangeWatch::drain() {
  bool changed = false;
  alignas(inotify_event) char buf[16384];
  for (;;) {
    auto n = ::read(fd_, buf, sizeof buf);
    if (n <= 0) break;
    for (char* p = buf; p < buf + n;) {
      auto* e = reinterpret_cast<inotify_event*>(p);
      p += sizeof(inotify_event) + e->len;
      if (e->mask & IN_IGNORED) {
        watched_.erase(e->wd);
        continue;
      }
      // The index's own folder changes with every write of ours.
      if (e->wd == root_wd_ && e->len > 0 && std::strcmp(e->name, ".tamsel") == 0) continue;
      changed = true;
    }
  }
  return changed;
}

bool ChangeWatch::quiet() {
  if (fd_ < 0) return false;
  bool changed = drain();
  if (changed) armed_ = false;
  return armed_;
}

void ChangeWatch::arm(const std::vector<std::string>& folders) {
  if (fd_ < 0) return;
  bool added = false;
  auto watch = [&](const std::filesystem::path& dir) {
    int wd = ::inotify_add_watch(fd_, dir.c_str(), CHANGES | IN_ONLYDIR);
    if (wd < 0) return errno == ENOENT || errno == ENOTDIR;  // gone since the walk
    if (dir == root_) root_wd_ = wd;
    added = watched_.insert(wd).second || added;
    return true;
  };
  for (const auto& f : folders) {
    if (!watch(f.empty() ? root_ : root_ / f)) {
      spdlog::info("serve: cannot watch {} ({}): walking before every call", f,
                   std::strerror(errno));
      ::close(fd_);
      fd_ = -1;
      return;
    }
  }
  watch(root_ / ".git" / "info");  // the exclude file is read from there
  // A folder first watched now may have changed between the walk and its watch.
  armed_ = !added;
}

}  // namespace orvane_tamsel::server
