#pragma once
// The bases a class's header lists, read from its signature: what kind of thing a class is when
// its own name says what it holds or what went wrong (QueueEmpty(Exception),
// SupportsInt(Protocol)).

#include <string_view>
#include <vector>

namespace orvane_tamsel::workers {

// The base names of a Python class header without their module ("class Error(errors.MessageError,
// metaclass=ABCMeta)": MessageError); no keyword arguments, no type arguments. Nothing for any
// other signature.
std::vector<std::string_view> class_bases(std::string_view signature);

}  // namespace orvane_tamsel::workers
