#pragma once
// Reading a Python type annotation as the classes it names.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer::python {

// The class an annotation names, dotted as written, or "" when it names none or several:
// `Optional[X]`, `X | None`, `"X"`, `Annotated[X, ...]`, `ClassVar[X]`, `Final[X]` and
// `type[X]` give X; with `yielded` (what a generator yields), so do `Iterator[X]`,
// `Generator[X, ...]` and their async and Iterable kin. A generic class parameterized
// (`Queue[X]`) is that class, unless it is one of typing's or the builtin containers and
// protocols. `Self` comes back as written.
std::string annotated_class(std::string_view annotation, bool yielded = false);

// The classes a union names (`A | B`, `Union[A, B]`, `Optional[A | B]`), each once and read as
// annotated_class reads one, None left out; members that name no class are passed over.
std::vector<std::string> annotated_classes(std::string_view annotation, bool yielded = false);

// The class of what a `for` over a value so annotated binds: X for `list[X]`, `Sequence[X]`,
// `set[X]`, `tuple[X, ...]`, `Iterator[X]`, `Generator[X, ...]` and their kin, the key class for
// `dict[X, V]` and `Mapping[X, V]`; "" when the annotation is no container of one known class.
std::string annotated_element(std::string_view annotation);

}  // namespace orvane_tamsel::indexer::python
