#pragma once

namespace match {
namespace no_adl {
inline int Pointee(int x) { return x; }
}  // namespace no_adl
using namespace no_adl;

namespace detail {
inline int Hidden() { return 1; }
}  // namespace detail
using detail::Hidden;
}  // namespace match
