#include "orvane_tamsel/index/index_folder.h"

#include <unistd.h>

#include <fstream>
#include <string>
#include <system_error>

namespace orvane_tamsel::index {

std::filesystem::path index_folder(const std::filesystem::path& repository_root) {
  return repository_root / ".tamsel";
}

std::filesystem::path ensure_index_folder(const std::filesystem::path& repository_root) {
  auto folder = index_folder(repository_root);
  std::filesystem::create_directories(folder);
  auto ignore = folder / ".gitignore";
  std::error_code ec;
  if (!std::filesystem::exists(ignore, ec)) {
    // Written beside the file and renamed, so that a reader never sees half of it. Another run
    // may write it at the same moment: each writes its own file and the last rename wins.
    auto partial = folder / (".gitignore." + std::to_string(::getpid()) + ".partial");
    {
      std::ofstream out(partial, std::ios::binary | std::ios::trunc);
      out << "# The index of tamsel, rebuilt from the sources: never committed.\n*\n";
      if (!out) {
        throw std::filesystem::filesystem_error("cannot write", partial,
                                                std::make_error_code(std::errc::io_error));
      }
    }
    std::filesystem::rename(partial, ignore);  // replaces another run's copy, also atomically
  }
  return folder;
}

}  // namespace orvane_tamsel::index
