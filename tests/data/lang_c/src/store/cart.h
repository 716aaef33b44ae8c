#ifndef STORE_CART_H
#define STORE_CART_H

#include "price.h"

#define CART_MAX 16

/* A fixed-size basket of prices. */
struct cart {
  int items[CART_MAX];
  int count;
};

/** Adds a price; returns 0 when the cart is full. */
int cart_add(struct cart *c, int price);

/** Sum of the prices in the cart. */
int cart_total(const struct cart *c);

#endif
