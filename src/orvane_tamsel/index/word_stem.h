#pragma once
// A crude English stem, shared by the question side and the index side so that both spell a word
// alike.

#include <string>
#include <string_view>

namespace orvane_tamsel::index {

// A crude English stem of a lower-cased word: plural, -ed, -ing, -er and a final e dropped.
std::string stem(std::string_view word);

}  // namespace orvane_tamsel::index
