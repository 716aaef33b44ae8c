#pragma once
// The layout of the English word vector table: a header, the words sorted (fixed-width fields,
// zero padded), then one row of signed bytes per word in the same order (unit vector x 127).

#include <cstddef>
#include <cstdint>

namespace orvane_tamsel::index::english_table {

inline constexpr char MAGIC[8] = {'T', 'S', 'E', 'N', 'G', 'V', '0', '1'};
inline constexpr std::size_t DIMENSIONS = 100;
inline constexpr std::size_t WORD_BYTES = 24;  // a word is shorter than this

struct Header {
  char magic[8];
  std::uint32_t count;
  std::uint32_t dimensions;
};

}  // namespace orvane_tamsel::index::english_table
