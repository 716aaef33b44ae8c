#include "cart.h"

/* Prices above this are cut down. */
static const int MAX_PRICE = 100000;

static int clamp(int price) { return price < 0 ? 0 : price > MAX_PRICE ? MAX_PRICE : price; }

int cart_add(struct cart *c, int price) {
  if (c->count >= CART_MAX) return 0;
  c->items[c->count++] = clamp(price);
  return 1;
}

void cart_reset(struct cart *c) {
  for (int i = 0; i < c->count; ++i) c->items[i] = 0;
  c->count = 0;
}

int cart_total(const struct cart *c) {
  int sum = 0;
  for (int i = 0; i < c->count; ++i) sum += c->items[i];
  return sum;
}
