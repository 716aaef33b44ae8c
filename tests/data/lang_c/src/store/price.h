#ifndef STORE_PRICE_H
#define STORE_PRICE_H

/** Rounds a price down to a multiple of five. */
int price_round(int price);

#endif
