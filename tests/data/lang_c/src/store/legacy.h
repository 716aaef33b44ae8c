/* The old cart API, kept for one release. */
void cart_reset(struct cart *c);
