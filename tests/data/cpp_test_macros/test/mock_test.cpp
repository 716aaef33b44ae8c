#include "mini_gtest.h"

TEST(MockTest, Pushes) {
  testing::Turnstile gate;
  testing::internal::Matcher any;
  EXPECT_CALL(gate, Push);
  EXPECT_CALL(gate, Push(any));
  EXPECT_CALL(unknown, Push);
}
