#pragma once

#include <vector>

#include "shop/money.h"

namespace shop {

/// A basket of prices in cents.
class Cart {
 public:
  explicit Cart(int limit);
  /// Puts a price in the cart.
  void add(int price);
  /// Sum of all prices.
  int total() const;

 private:
  std::vector<int> items_;
  int limit_;
};

}  // namespace shop
