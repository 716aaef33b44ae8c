#include <gtest/gtest.h>

#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/utils/unicode.h"

using namespace orvane_tamsel;

TEST(Unicode, StripSplitLowerHandleNonAsciiWhiteSpace) {
  // U+3000 ideographic space and U+00A0 no-break space are white space; U+00C4 lower-cases.
  EXPECT_EQ(utils::strip("\xE3\x80\x80 tests for X\xC2\xA0\n"), "tests for X");
  EXPECT_EQ(utils::split_whitespace(" a\xE3\x80\x80"
                                    "b  c "),
            (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(utils::lower("\xC3\x84rger TOOLS"), "\xC3\xA4rger tools");
  EXPECT_EQ(utils::code_points("\xC3\x84x"), 2u);
  EXPECT_TRUE(utils::split_whitespace(" \t ").empty());
}

TEST(Responses, ClientTextIsCompactOrderedAndKeepsNonAscii) {
  Json v = Json::object();
  v["z"] = 1;
  v["a"] = "caf\xC3\xA9";
  EXPECT_EQ(tool_result_text(v), "{\"z\":1,\"a\":\"caf\xC3\xA9\"}");
  EXPECT_EQ(result_chars(v), 18u);
  EXPECT_EQ(first_sentence(std::string("  Add an item.  More text.\n\nSecond para.")),
            "Add an item.");
  EXPECT_EQ(first_sentence(std::nullopt), "");
  EXPECT_EQ(first_sentence(std::string("Total of\n   the cart")), "Total of the cart");
}
