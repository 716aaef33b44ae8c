#include "price.h"

int price_round(int price) { return price - price % 5; }
