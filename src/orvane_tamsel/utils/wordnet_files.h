#pragma once
// WordNet's dictionary files as Debian ships them: mapped read-only and searched in place.

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace orvane_tamsel::utils {

// A read-only view of a whole file; pages are read only when a lookup touches them. A missing or
// empty file gives an empty view.
class MappedFile {
 public:
  explicit MappedFile(const std::filesystem::path& file);
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  bool ok() const { return data_ != nullptr; }
  std::string_view text() const { return {data_, size_}; }

 private:
  const char* data_ = nullptr;
  std::size_t size_ = 0;
};

// The line of a sorted dictionary file (index.noun, noun.exc, ...) whose first field is `word`;
// empty when there is none.
std::string_view find_line(std::string_view text, std::string_view word);

}  // namespace orvane_tamsel::utils
