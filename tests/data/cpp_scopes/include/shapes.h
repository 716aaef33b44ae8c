#pragma once

namespace geo {
int area(int w, int h);
int perimeter(int w, int h);
}  // namespace geo

namespace draw {
int area(int w, int h);
}  // namespace draw
