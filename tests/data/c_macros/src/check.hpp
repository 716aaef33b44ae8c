namespace testing {
namespace internal {
struct EqHelper {
  static bool Compare(const char* text, int a, int b);
};
}  // namespace internal
}  // namespace testing

#define EXPECT_PRED2(pred, a, b) pred(#a, a, b)
#define EXPECT_EQ(a, b) EXPECT_PRED2(::testing::internal::EqHelper::Compare, a, b)
