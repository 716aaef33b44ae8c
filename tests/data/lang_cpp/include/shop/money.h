#pragma once

namespace shop {

/// Rounds to whole cents.
int round_cents(int v);

/// Keeps what was paid.
class Ledger {
 public:
  void record(int v);
  void close() { this->record(0); }
};

namespace tax {
inline int vat(int cents) { return cents / 5; }
}  // namespace tax

}  // namespace shop
