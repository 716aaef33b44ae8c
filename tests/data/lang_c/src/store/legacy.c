#include "cart.h"

void cart_reset(struct cart *c) { c->count = 0; }
