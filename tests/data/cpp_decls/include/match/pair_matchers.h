#pragma once

namespace match {

// Matches a pair whose two fields are equal.
inline int Eq() { return 2; }

}  // namespace match
