#include "geo/scale.h"

namespace geo {

static int calls = 0;

void scale(double f) { calls += 2; }

void scale(int f) { calls += 1; }

void scale(const char* axis, double factor) { calls += 3; }

void Shape::grow(Pair<int> by) { scale(by.first); }

}  // namespace geo
