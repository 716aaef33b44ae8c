#include <gtest/gtest.h>

#include "shop/cart.h"

namespace {

class CartFixture : public ::testing::Test {
 protected:
  shop::Cart cart;
};

TEST(CartTest, AddsUp) {
  shop::Cart c;
  c.add(2);
  c.add(3);
  EXPECT_EQ(c.total(), 5);
}

TEST_F(CartFixture, StartsEmpty) { EXPECT_EQ(cart.total(), 0); }

}  // namespace
