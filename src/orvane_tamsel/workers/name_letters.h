#pragma once
// How much of a name the question spells. Siblings often say the same words of a question, one
// with words the question does not ask for around them: "look up the encoder for an encoding" is
// getencoder more than getincrementalencoder, "modules that look missing" any_missing more than
// any_missing_maybe. Names written as one run of letters (iselement, countOf) are read too.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::workers {

// The share of the name's letters inside a question term (or its stem) of three letters or more
// found in the name, or inside a sub-word of the name, of three letters or more, that begins a
// term ("week" of format_week_header for "weekday"). 0 for a name without letters.
double letters_said(std::string_view name, const std::vector<std::string>& terms);

}  // namespace orvane_tamsel::workers
