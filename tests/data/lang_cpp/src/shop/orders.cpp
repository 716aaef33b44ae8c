#include "shop/cart.h"

int round_cents(int v) { return v; }

namespace orders {

using namespace shop;

int fill() {
  Cart c(10);
  Cart* more = new Cart(20);
  Ledger l{};
  l.record(round_cents(3));
  return tax::vat(c.total()) + more->total() + Cart(5).total();
}

}  // namespace orders

int refund(shop::Cart& c) {
  using namespace shop::tax;
  int limit = vat(c.total());
  shop::Cart fresh(limit);
  return limit;
}
