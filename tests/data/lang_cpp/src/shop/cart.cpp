#include "shop/cart.h"

namespace shop {

Cart::Cart(int limit)
    : items_(),
      limit_(limit) {}

void Cart::add(int price) {
  items_.push_back(price);
  total();
}

// Adds the prices up.
int Cart::total() const {
  int sum = 0;
  for (int p : items_) sum += p;
  return sum;
}

}  // namespace shop
