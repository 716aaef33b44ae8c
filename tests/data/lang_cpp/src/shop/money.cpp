#include "shop/money.h"

namespace shop {

int round_cents(int v) { return v; }

void Ledger::record(int v) { (void)v; }

}  // namespace shop
