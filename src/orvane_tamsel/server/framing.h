#pragma once
// Splits a byte stream into lines, one message each, with a limit on a line's length.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace orvane_tamsel::server {

// Longest line accepted; a longer one is skipped to its end without being kept in memory.
inline constexpr std::size_t MAX_LINE_BYTES = 4 * 1024 * 1024;
// How much of the start of a longer line is kept, to find its id.
inline constexpr std::size_t OVERSIZED_START_BYTES = 64 * 1024;

class LineSplitter {
 public:
  // `on_line` gets each complete line without "\n" (nor a "\r" before it); `on_oversized` is
  // called once for each line longer than the limit, with its first bytes.
  LineSplitter(std::function<void(std::string&&)> on_line,
               std::function<void(std::string&&)> on_oversized, std::size_t limit = MAX_LINE_BYTES);
  void feed(std::string_view bytes);
  // End of input: a last line without "\n" still counts.
  void finish();

 private:
  void complete();

  std::function<void(std::string&&)> on_line_;
  std::function<void(std::string&&)> on_oversized_;
  std::size_t limit_;
  std::string current_;
  bool skipping_ = false;
};

}  // namespace orvane_tamsel::server
