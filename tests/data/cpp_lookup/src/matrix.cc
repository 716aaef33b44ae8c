#include <vector>

#include "matrix.h"

namespace mm {

int Count(int n) {
  MatchMatrix graph(n, n);
  int k = 0;
  while (graph.NextGraph()) ++k;
  return k;
}

// Elements of a sequence and of a pointer to pointers.
int Sum(const std::vector<MatchMatrix*>& all, const MatchMatrix** some) {
  int k = 0;
  for (auto* m : all) k += m->Width();
  return k + some[0]->Height() + static_cast<int>(all.size());
}

}  // namespace mm
