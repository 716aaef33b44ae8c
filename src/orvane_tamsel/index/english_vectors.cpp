#include "orvane_tamsel/index/english_vectors.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "orvane_tamsel/index/english_table.h"
#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/utils/query_terms.h"

namespace orvane_tamsel::index {

namespace et = english_table;

struct EnglishVectors::Table {
  const char* data = nullptr;
  std::size_t size = 0;
  std::size_t count = 0;
  const char* words = nullptr;
  const std::int8_t* rows = nullptr;

  explicit Table(const std::filesystem::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && st.st_size > 0) {
      void* p =
          ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
      if (p != MAP_FAILED) {
        data = static_cast<const char*>(p);
        size = static_cast<std::size_t>(st.st_size);
      }
    }
    ::close(fd);
    if (data == nullptr) return;
    et::Header header{};
    bool fits = size >= sizeof header;
    if (fits) std::memcpy(&header, data, sizeof header);
    fits = fits && std::memcmp(header.magic, et::MAGIC, sizeof header.magic) == 0 &&
           header.dimensions == et::DIMENSIONS &&
           size == sizeof header + std::size_t{header.count} * (et::WORD_BYTES + et::DIMENSIONS);
    if (!fits) {  // another layout or a cut-off file: the table is off, not misread
      release();
      return;
    }
    count = header.count;
    words = data + sizeof header;
    rows = reinterpret_cast<const std::int8_t*>(words + count * et::WORD_BYTES);
  }
  ~Table() { release(); }
  void release() {
    if (data != nullptr) ::munmap(const_cast<char*>(data), size);
    data = nullptr;
    count = 0;
  }
  std::string_view word_at(std::size_t i) const {
    const char* w = words + i * et::WORD_BYTES;
    return {w, strnlen(w, et::WORD_BYTES)};
  }
};

EnglishVectors::EnglishVectors(const std::filesystem::path& table)
    : table_(std::make_unique<Table>(table)) {}

EnglishVectors::~EnglishVectors() = default;

bool EnglishVectors::available() const {
  return table_->count > 0;
}

std::vector<float> EnglishVectors::word(std::string_view lower) const {
  std::size_t lo = 0;
  std::size_t hi = table_->count;
  while (lo < hi) {
    auto mid = lo + (hi - lo) / 2;
    auto w = table_->word_at(mid);
    if (w == lower) {
      std::vector<float> v(et::DIMENSIONS);
      const auto* row = table_->rows + mid * et::DIMENSIONS;
      for (std::size_t d = 0; d < et::DIMENSIONS; ++d) v[d] = static_cast<float>(row[d]) / 127.0F;
      return v;
    }
    if (w < lower) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  return {};
}

std::vector<float> EnglishVectors::embed(const std::string& text) {
  std::vector<float> sum(et::DIMENSIONS, 0.0F);
  bool any = false;
  for (const auto& term : utils::query_terms(text)) {
    for (const auto& w : subwords(term)) {
      auto v = word(w);
      if (v.empty()) continue;
      any = true;
      for (std::size_t d = 0; d < et::DIMENSIONS; ++d) sum[d] += v[d];
    }
  }
  if (!any) return {};
  double norm = 0;
  for (float x : sum) norm += double(x) * x;
  norm = std::sqrt(norm);
  if (norm == 0) return {};
  for (auto& x : sum) x = static_cast<float>(x / norm);
  return sum;
}

std::filesystem::path EnglishVectors::default_table() {
  if (const char* set = std::getenv("TAMSEL_ENGLISH_VECTORS"); set != nullptr && *set != 0) {
    return set;
  }
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  auto dir = exe.parent_path();
  auto beside = dir / "english_vectors.bin";
  if (std::filesystem::exists(beside, ec)) return beside;
  return dir.parent_path() / "share" / "tamsel" / "english_vectors.bin";
}

std::shared_ptr<EnglishVectors> english_vectors() {
  auto vectors = std::make_shared<EnglishVectors>(EnglishVectors::default_table());
  return vectors->available() ? vectors : nullptr;
}

}  // namespace orvane_tamsel::index
