#include "orvane_tamsel/utils/wordnet_files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvane_tamsel::utils {

MappedFile::MappedFile(const std::filesystem::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size > 0) {
    void* p = ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    if (p != MAP_FAILED) {
      data_ = static_cast<const char*>(p);
      size_ = static_cast<std::size_t>(st.st_size);
    }
  }
  ::close(fd);
}

MappedFile::~MappedFile() {
  if (data_ != nullptr) ::munmap(const_cast<char*>(data_), size_);
}

std::string_view find_line(std::string_view text, std::string_view word) {
  std::size_t lo = 0, hi = text.size();
  while (lo < hi) {
    std::size_t mid = lo + (hi - lo) / 2;
    std::size_t start = text.rfind('\n', mid);
    start = start == std::string_view::npos || start < lo ? lo : start + 1;
    if (start > mid) start = lo;
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    auto line = text.substr(start, end - start);
    auto key = line.substr(0, line.find(' '));
    // The licence at the top starts with spaces and sorts first.
    if (line.empty() || line[0] == ' ' || key < word) {
      lo = end + 1;
    } else if (key > word) {
      hi = start;
    } else {
      return line;
    }
  }
  return {};
}

}  // namespace orvane_tamsel::utils
