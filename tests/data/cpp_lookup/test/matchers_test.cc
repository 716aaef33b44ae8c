#include "matchers.h"

namespace match {

int braced() { return ElementsAreArray({1, 2, 3}); }

int named(const int (&values)[3]) { return ElementsAreArray(values); }

bool wide() { return StrNe(L"Hello") && StrNe(std::wstring(L"Hi")); }

bool narrow() { return StrNe("Hello") && Named("x"); }

}  // namespace match
