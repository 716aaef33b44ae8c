#include "math.h"
#include "mini_gtest.h"

TEST(MathTest, Twice) {
  EXPECT_EQ(twice(1), 2);
  EXPECT_EQ(twice(2), 4);
}

TEST(MathTest, Dies) {
  testing::internal::Matcher m;
  EXPECT_DEATH(twice(0), "boom");
  EXPECT_DEATH(twice(0), m);
}
