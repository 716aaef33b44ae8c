#include <stdio.h>

#include "cart.h"
#include "legacy.h"

// Prints the total of a cart.
void receipt_print(const struct cart *c) {
  printf("%d\n", price_round(cart_total(c)));
  cart_reset((struct cart *)c);
  undefined_helper(c);
}
