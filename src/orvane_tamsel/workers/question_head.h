#pragma once
// The word a question in words names its answer by: the head of its opening noun phrase ("login
// form of the admin": form), which a class or function answering it often ends its name on
// (AdminAuthenticationForm, get_format_modules).

#include <functional>
#include <string>
#include <string_view>

namespace orvane_tamsel::workers {

// The stem of the last word before the first preposition, relative word or participle, when the
// question opens with a noun phrase; empty for an imperative ("convert a raster ...": its first
// word is `verb`, or a determiner follows it), a yes-or-no question or one opening with how,
// what, which and the like.
std::string question_head(std::string_view query,
                          const std::function<bool(const std::string&)>& verb);

// Whether a name ends on the head: its last sub-word has the head's stem, and the name says more
// than that word alone unless it names a thing (`String` methods say "string" and nothing else);
// or a base its class header lists does ("protocol for objects that can be converted to int":
// SupportsInt(Protocol)).
bool ends_on_head(std::string_view name, bool thing, const std::string& head,
                  std::string_view signature = {});

}  // namespace orvane_tamsel::workers
