#include "shapes.h"

int geo::area(int w, int h) { return w * h; }
int geo::perimeter(int w, int h) { return 2 * (w + h); }
int draw::area(int w, int h) { return w + h; }

using namespace geo;
using namespace draw;

// `area` is declared by both namespaces in scope: no single callee.
int both() { return area(1, 2) + perimeter(1, 2); }
