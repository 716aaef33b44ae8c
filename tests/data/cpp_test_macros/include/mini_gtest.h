#pragma once

namespace testing {
class Test {};
namespace internal {
struct EqHelper {
  static bool Compare(const char* text, int a, int b);
};
struct Matcher {};
Matcher MakeMatcher(Matcher m);
Matcher MakeMatcher(const char* regex);
bool Dies(Matcher m);
bool Register(const char* suite, const char* name);
template <typename T>
bool NameOf();
struct WithoutMatchers {};
WithoutMatchers GetWithoutMatchers();
}  // namespace internal

struct Expectation {
  Expectation& Times(int n);
};
class Turnstile {
 public:
  template <typename... Matchers>
  Expectation gmock_Push(Matchers... m);
  Expectation gmock_Push(internal::WithoutMatchers, void* none);
};
}  // namespace testing

#define EXPECT_PRED2(pred, a, b) pred(#a, a, b)
#define EXPECT_EQ(a, b) EXPECT_PRED2(::testing::internal::EqHelper::Compare, a, b)
#define EXPECT_DEATH(statement, regex) \
  ::testing::internal::Dies(::testing::internal::MakeMatcher(regex))
#define TEST_(suite, name, parent)                    \
  class suite##_##name##_Test : public parent {       \
    void TestBody(); /* NOLINT */                     \
  };                                                  \
  bool suite##_##name##_registered =                  \
      ::testing::internal::Register(#suite, #name) && \
      ::testing::internal::NameOf<parent>();          \
  void suite##_##name##_Test::TestBody()
#define TEST(suite, name) TEST_(suite, name, ::testing::Test)
#define GMOCK_ON_CALL_IMPL_(mock_expr, Setter, call)                    \
  ((mock_expr).gmock_##call)(::testing::internal::GetWithoutMatchers(), \
                             nullptr)                                   \
      .Setter(#call)
#define EXPECT_CALL(obj, call) GMOCK_ON_CALL_IMPL_(obj, Times, call)
