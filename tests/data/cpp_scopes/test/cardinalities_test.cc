#include "gmock/cardinalities.h"

using testing::AtLeast;

namespace {

using namespace testing;

bool AtLeastHolds() {
  const Cardinality c = AtLeast(2);
  return c.IsSatisfiedByCallCount(3) && GMOCK_AT_LEAST_ONCE().IsSatisfiedByCallCount(1);
}

bool BetweenHolds() {
  using testing::internal::Clamp;
  return Between(Clamp(1), 2).IsSatisfiedByCallCount(1);
}

}  // namespace
