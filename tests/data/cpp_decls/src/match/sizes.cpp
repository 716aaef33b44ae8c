#include "match/arrays.h"

namespace match {

int Total(int only) { return only; }

int sizes(const int (&fixed)[2]) {
  int raw[3] = {1, 2, 3};
  std::vector<int> list(std::begin(raw), std::end(raw));
  return Each(raw) +
         Each(list) +
         Each(fixed) +
         Each(raw, 3) +
         Total(raw, 3);
}

}  // namespace match
