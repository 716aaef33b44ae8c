#pragma once
// What the C++ grammar misreads, blanked before the parse; the blanked text keeps every byte
// offset and line, so nodes still point into the source:
// - macros it cannot expand that only decorate declarations (an export macro in a class head,
//   libstdc++'s `_GLIBCXX20_CONSTEXPR`, its versioned-namespace brackets, glibc's `__THROW`
//   and `__wur`): read as names they turn a class into a function, close a namespace early or
//   hide a prototype;
// - a preprocessor conditional whose branch is a fragment of a declaration (`#if` around a
//   `constexpr`, two headers of one function, an opening brace): the grammar reads only whole
//   declarations there, so the first branch is kept and the others and the directives blanked.

#include <string>
#include <string_view>

namespace orvane_tamsel::indexer::cpp {

// `source` with those macros (and a function-like one's arguments) and branches replaced by
// spaces; empty when the source holds none, so that most files are parsed as they are.
std::string preparse(std::string_view source);

// Only the macros, for C: its conditionals are left as they are.
std::string blank_macros(std::string_view source);

// The byte of the `}` that closes the block opened just before `from`, read from the text
// (comments, literals and directives skipped); the text's size when none does.
std::size_t closing_brace(std::string_view text, std::size_t from);

}  // namespace orvane_tamsel::indexer::cpp
