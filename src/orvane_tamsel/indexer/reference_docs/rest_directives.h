#pragma once
// The Python objects a reStructuredText reference page documents, and the words it says of each.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer::reference_docs {

struct DocumentedName {
  std::string fqn;   // dotted, with the page's current module and enclosing class
  std::string text;  // the body in plain words: roles and markup dropped, at most MAX_WORDS
};

inline constexpr std::size_t MAX_WORDS = 80;

// Whether a file of this name may hold reference pages (*.rst, and *.txt as Django keeps them).
bool is_reference_page(std::string_view path);

// How much of a *.txt file is looked at for a Python directive before the file is passed over:
// most .txt files (licences, notes, data) hold none.
inline constexpr std::size_t TXT_SNIFF_BYTES = 4096;

// Whether the text holds a Python directive (module, object or member) on a line of its own.
bool has_python_directive(std::string_view text);

// Reads `.. module::` / `.. currentmodule::` and the object directives (class, function, method,
// attribute, exception, data, decorator and their variants, with or without `py:`); a member
// directive takes the class it is nested in, or the one its dotted name says; one outside any
// class stands in the module (a page's module constants are written so). Names whose body says
// nothing are listed too, with empty text.
std::vector<DocumentedName> documented_names(std::string_view page);

}  // namespace orvane_tamsel::indexer::reference_docs
