#pragma once
// Export macros before a class's and a function's name.
#define GTEST_API_ __attribute__((visibility("default")))

namespace testing {

class GTEST_API_ Cardinality {
 public:
  bool IsSatisfiedByCallCount(int count) const;
};

GTEST_API_ Cardinality AtLeast(int n);
GTEST_API_ Cardinality Between(int min, int max);

#define GMOCK_AT_LEAST_ONCE() ::testing::AtLeast(1)

namespace internal {
int Clamp(int n);
}

}  // namespace testing
