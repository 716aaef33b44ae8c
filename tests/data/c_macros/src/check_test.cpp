#include "check.hpp"

namespace suite {
void equal_numbers() { EXPECT_EQ(1, 2); }
}  // namespace suite
