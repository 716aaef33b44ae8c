#include "orvane_tamsel/server/repository_check.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvane_tamsel::server {

std::string repository_problem(const std::filesystem::path& root) {
  namespace fs = std::filesystem;
  std::error_code ec;
  auto status = fs::status(root, ec);
  const std::string path = root.string();
  if (status.type() == fs::file_type::not_found)
    return "the repository folder " + path + " does not exist";
  if (ec) return "the repository folder " + path + " cannot be read: " + ec.message();
  if (status.type() != fs::file_type::directory)
    return "the repository path " + path + " is not a folder";
  // Listing needs read permission, reaching the files inside needs search permission.
  DIR* dir = ::opendir(root.c_str());
  if (dir == nullptr || ::access(root.c_str(), X_OK) != 0) {
    std::string why = std::strerror(errno);
    if (dir != nullptr) ::closedir(dir);
    return "the repository folder " + path + " cannot be read: " + why;
  }
  ::closedir(dir);
  return {};
}

}  // namespace orvane_tamsel::server
