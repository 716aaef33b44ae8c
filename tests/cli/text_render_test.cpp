// The text a person reads at a terminal: every row's place and signature, reasons, notes, and
// next steps as commands that can be pasted.

#include <gtest/gtest.h>

#include <string>

#include "orvane_tamsel/cli/text_render.h"
#include "orvane_tamsel/cli/tool_command_line.h"

namespace orvane_tamsel::cli {
namespace {

using Json = nlohmann::ordered_json;

const Json ANSWER = Json::parse(R"({"query":"Cart.total","route":"identifier",
  "symbols":[{"fqn":"shop.cart.Cart.total","name":"total","kind":"method","file":"src/shop/cart.py",
    "line":25,"signature":"def total(self, code=None):","summary":"The total with tax."}],
  "callers":[{"fqn":"shop.cli.main","kind":"function","path":"src/shop/cli.py","lines":[17,23],
    "evidence":"instance"}],
  "tests":[{"path":"tests/test_cart.py","reason":"calls Cart.total"}],
  "did_you_mean":["shop.cart.Cart.subtotal"],"notes":["found nothing for: computed"],
  "truncated":true,"tokens_used":245,
  "next_steps":[{"tool":"symbol","description":"Every caller of shop.cart.Cart.total",
    "arguments":{"action":"callers","fqn":"shop.cart.Cart.total"}},
    {"tool":"explore","description":"Ask again","arguments":{"query":"the cart's total","token_budget":4000}},
    {"tool":"explore","description":"Ask","arguments":{}}]})");

TEST(TextRender, AnAnswerReadsWithoutAJsonTool) {
  TextStyle plain;
  plain.repo = "/r";
  auto text = render_text(ANSWER, plain);
  for (const char* part : {
           "Cart.total  (identifier)\n",
           "method shop.cart.Cart.total  src/shop/cart.py:25\n",
           "    def total(self, code=None):\n",
           "    The total with tax.\n",
           "function shop.cli.main  src/shop/cli.py:17,23  evidence instance\n",
           "tests/test_cart.py\n      why: calls Cart.total\n\ndid_you_mean",
           "did_you_mean: shop.cart.Cart.subtotal\n",
           "note: found nothing for: computed\n",
           "cut to the token budget",
           "tamsel symbol callers shop.cart.Cart.total --repo /r  # Every caller",
           "tamsel explore 'the cart'\\''s total' --token-budget 4000 --repo /r",
           "tamsel explore QUERY --repo /r  # Ask\n",
       }) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n---\n" << text;
  }
  EXPECT_EQ(text.find("tokens_used"), std::string::npos);
  EXPECT_EQ(text.find('\033'), std::string::npos);

  TextStyle color;
  color.color = true;
  EXPECT_NE(render_text(ANSWER, color).find("\033[1m"), std::string::npos);
  auto error = render_text(Json{{"error", "no symbol 'x'"}, {"hint", "give a name"}}, plain);
  EXPECT_EQ(error, "error: no symbol 'x'\nhint: give a name\n");
  auto detail = render_text(
      Json::parse(R"({"fqn":"a.f","path":"a.py","lines":[3,4],"source":"def f():\n    pass"})"),
      plain);
  EXPECT_NE(detail.find("| def f():\n"), std::string::npos) << detail;
  EXPECT_NE(detail.find("|     pass\n"), std::string::npos) << detail;
}

TEST(TextRender, CommandsQuoteOnlyWhatTheShellWouldSplit) {
  EXPECT_EQ(shell_word("src/shop/cart.py"), "src/shop/cart.py");
  EXPECT_EQ(shell_word("a b"), "'a b'");
  EXPECT_EQ(shell_word("-x"), "'-x'");
  EXPECT_EQ(shell_word(""), "''");
  EXPECT_EQ(tool_command("search", {{"action", "code"}, {"query", "a|b"}, {"regex", true}}),
            "tamsel search 'a|b' --regex");
  EXPECT_EQ(tool_command("memory", {{"action", "save"}, {"tags", {"x", "y"}}, {"id", 3}}),
            "tamsel memory save --tags x --tags y --id 3");
}

}  // namespace
}  // namespace orvane_tamsel::cli
