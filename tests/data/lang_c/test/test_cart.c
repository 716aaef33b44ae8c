#include <assert.h>

#include "../src/store/cart.h"

static struct cart fresh(void) {
  struct cart c = {{0}, 0};
  return c;
}

void test_add_and_total(void) {
  struct cart c = fresh();
  cart_add(&c, 3);
  cart_add(&c, 4);
  assert(cart_total(&c) == 7);
}

int main(void) {
  test_add_and_total();
  return 0;
}
