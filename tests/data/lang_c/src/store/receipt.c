#include <stdio.h>

#include "cart.h"

// Prints the total of a cart.
void receipt_print(const struct cart *c) {
  printf("%d\n", cart_total(c));
  undefined_helper(c);
}
