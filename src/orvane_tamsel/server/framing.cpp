#include "orvane_tamsel/server/framing.h"

namespace orvane_tamsel::server {

LineSplitter::LineSplitter(std::function<void(std::string&&)> on_line,
                           std::function<void(std::string&&)> on_oversized, std::size_t limit)
    : on_line_(std::move(on_line)), on_oversized_(std::move(on_oversized)), limit_(limit) {}

void LineSplitter::complete() {
  if (skipping_) {
    skipping_ = false;
    return;
  }
  if (!current_.empty() && current_.back() == '\r') current_.pop_back();
  // Blank lines carry no message.
  if (current_.find_first_not_of(" \t") != std::string::npos) on_line_(std::move(current_));
  current_.clear();
}

void LineSplitter::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    auto newline = bytes.find('\n');
    auto chunk = bytes.substr(0, newline);
    if (!skipping_) {
      if (current_.size() + chunk.size() > limit_) {
        skipping_ = true;
        std::string start = current_.substr(0, OVERSIZED_START_BYTES);
        start.append(chunk.substr(0, OVERSIZED_START_BYTES - start.size()));
        current_.clear();
        current_.shrink_to_fit();
        on_oversized_(std::move(start));
      } else {
        current_.append(chunk);
      }
    }
    if (newline == std::string_view::npos) return;
    complete();
    bytes.remove_prefix(newline + 1);
  }
}

void LineSplitter::finish() {
  if (!current_.empty() || skipping_) complete();
}

}  // namespace orvane_tamsel::server
