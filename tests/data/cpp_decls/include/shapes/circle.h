#pragma once

namespace shapes {
class Circle {
 public:
  double area() const;
  double radius() const;
};
}  // namespace shapes
