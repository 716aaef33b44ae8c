#include <gtest/gtest.h>

#include "orvane_tamsel/tool_handlers/explore_internal.h"

using namespace orvane_tamsel::tool_handlers;

TEST(ExploreRouting, WorkedRoutes) {
  struct Case {
    std::string query, kind, target;
  };
  const std::vector<Case> cases = {
      {"What tools are available?", TOOLS, "What tools are available?"},
      {"  TESTS FOR apply_discount \t", TESTS, "apply_discount"},
      {"Which tests cover Cart.total?", TESTS, "Cart.total"},
      {"find the tests that exercise the checkout", TESTS, "checkout"},
      {"tests for the cart module", QUESTION, "tests for the cart module"},
      {"which tests test apply_discount", QUESTION, "which tests test apply_discount"},
      {"cart.py tests", TESTS, "cart.py"},
      {"unit tests", QUESTION, "unit tests"},
      {"src/app/", PATH, "src/app/"},
      {"Cart.total", IDENTIFIER, "Cart.total"},
      {"Cart.total?", QUESTION, "Cart.total?"},
      {"x.1y", QUESTION, "x.1y"},
      {"a.b.", QUESTION, "a.b."},
      {"\xc3\x84rger.x", QUESTION, "\xc3\x84rger.x"},
      {"what is Cart.total?", QUESTION, "what is Cart.total?"},
      {"", QUESTION, ""},
      {" \xe2\x80\x83 ", QUESTION, ""},  // an em space is white space
      {"All Tools please", TOOLS, "All Tools please"},
      {"tests for all tools", TOOLS, "tests for all tools"},
      {"apply_discount tests?", TESTS, "apply_discount"},
      {"tests for a?b", QUESTION, "tests for a?b"},
      {"src\\app", PATH, "src\\app"},
      {"Cart::total", IDENTIFIER, "Cart::total"},
      {"Cart#total", IDENTIFIER, "Cart#total"},
      {"cart-total", QUESTION, "cart-total"},
      {"Caf\xc3\xa9_x.total", IDENTIFIER, "Caf\xc3\xa9_x.total"},  // non-ASCII after the first
      {"tests\xe2\x80\x83"
       "for\xe2\x80\x83"
       "x",
       TESTS, "x"},
  };
  for (const auto& c : cases) {
    Route r = route(c.query);
    EXPECT_EQ(r.kind, c.kind) << c.query;
    EXPECT_EQ(r.target, c.target) << c.query;
  }
}

TEST(ExploreRouting, NamesMatchWholeValidWords) {
  EXPECT_FALSE(detail::is_name("Cart.total "));
  EXPECT_FALSE(detail::is_name("\xff\xfe"));  // invalid UTF-8 never matches
}
