#pragma once
#include <memory>
#include <utility>

namespace geo {

// Scales by a whole factor.
void scale(int factor);
// Scales by a fraction.
void scale(double factor);
// Scales one axis.
void scale(const char* axis, double factor = 1.0);

// A distance in metres.
using Length = double;
template <class T>
using Pair = std::pair<T, T>;
typedef struct Shape* ShapeRef;
typedef void (*OnScaled)(int code);

class Shape {
 public:
  // Grows the shape.
  void grow(Length by);
  void grow(Pair<int> by);
};

}  // namespace geo
