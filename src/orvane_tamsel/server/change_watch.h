#pragma once
// Tells whether any walked folder of a repository changed since the last walk, so that an
// unchanged repository need not be walked again before every call.

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace orvane_tamsel::server {

class ChangeWatch {
 public:
  explicit ChangeWatch(std::filesystem::path root);
  ~ChangeWatch();
  ChangeWatch(const ChangeWatch&) = delete;
  ChangeWatch& operator=(const ChangeWatch&) = delete;

  // True only when every folder of the last walk was watched before that walk began and no
  // event arrived since; false whenever in doubt (no watch available, a queue overflow).
  bool quiet();
  // After a walk: watches its folders (repository-relative, "" is the root).
  void arm(const std::vector<std::string>& folders);

 private:
  bool drain();  // true when an event that matters was read

  std::filesystem::path root_;
  int fd_ = -1;
  int root_wd_ = -1;
  std::set<int> watched_;
  bool armed_ = false;
};

}  // namespace orvane_tamsel::server
