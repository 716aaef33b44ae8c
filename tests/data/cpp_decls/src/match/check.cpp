#include "match/matchers.h"
#include "match/pair_matchers.h"

namespace match {

int check() {
  Log("checking %d", 1);
  int one = Eq(1);
  int pair = Eq();
  return one + pair + Near(1) + Near(1, 2);
}

}  // namespace match
