#include "orvane_tamsel/index/word_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace orvane_tamsel::index {

namespace {

// The layout scripts/sentence_words.js writes: a header, the sorted words in zero-padded fields,
// then one row of signed bytes a word in the same order.
constexpr char MAGIC[8] = {'T', 'S', 'S', 'E', 'N', 'W', '0', '1'};
constexpr std::size_t WORD_BYTES = 24;

struct Header {
  char magic[8];
  std::uint32_t count;
  std::uint32_t dimensions;
};

class MappedWordTable : public WordTable {
 public:
  MappedWordTable(const char* data, std::size_t size, const Header& header)
      : data_(data),
        size_(size),
        count_(header.count),
        dimensions_(header.dimensions),
        words_(data + sizeof(Header)),
        rows_(reinterpret_cast<const std::int8_t*>(words_ + count_ * WORD_BYTES)) {}
  ~MappedWordTable() override { ::munmap(const_cast<char*>(data_), size_); }
  MappedWordTable(const MappedWordTable&) = delete;
  MappedWordTable& operator=(const MappedWordTable&) = delete;

  std::size_t dimensions() const override { return dimensions_; }

  const std::int8_t* row(std::string_view word) const override {
    std::size_t lo = 0;
    std::size_t hi = count_;
    while (lo < hi) {
      auto mid = lo + (hi - lo) / 2;
      auto at = word_at(mid);
      if (at == word) return rows_ + mid * dimensions_;
      if (at < word) {
        lo = mid + 1;
      } else {
        hi = mid;
      }
    }
    return nullptr;
  }

 private:
  const char* data_;
  std::size_t size_;
  std::size_t count_;
  std::size_t dimensions_;
  const char* words_;
  const std::int8_t* rows_;

  std::string_view word_at(std::size_t i) const {
    const char* w = words_ + i * WORD_BYTES;
    return {w, strnlen(w, WORD_BYTES)};
  }
};

}  // namespace

std::shared_ptr<const WordTable> open_word_table(const std::filesystem::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  const char* data = nullptr;
  std::size_t size = 0;
  if (::fstat(fd, &st) == 0 && st.st_size > 0) {
    size = static_cast<std::size_t>(st.st_size);
    void* p = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (p != MAP_FAILED) data = static_cast<const char*>(p);
  }
  ::close(fd);
  if (data == nullptr) return nullptr;
  Header header{};
  bool fits = size >= sizeof header;
  if (fits) std::memcpy(&header, data, sizeof header);
  fits = fits && std::memcmp(header.magic, MAGIC, sizeof MAGIC) == 0 && header.dimensions > 0 &&
         size == sizeof header + std::size_t{header.count} * (WORD_BYTES + header.dimensions);
  if (!fits) {
    ::munmap(const_cast<char*>(data), size);
    return nullptr;
  }
  return std::make_shared<MappedWordTable>(data, size, header);
}

std::filesystem::path default_sentence_table() {
  if (const char* set = std::getenv("TAMSEL_SENTENCE_WORDS"); set != nullptr && *set != 0) {
    return set;
  }
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  auto beside = exe.parent_path() / "sentence_words.bin";
  if (std::filesystem::exists(beside, ec)) return beside;
  return exe.parent_path().parent_path() / "share" / "tamsel" / "sentence_words.bin";
}

}  // namespace orvane_tamsel::index
