// The promises of explore answers kept: every next step is called through the server as a client
// would, on a live host over a copy of a small repository. Also the memories: saved through the
// memory tool, attached to explore answers as untrusted, outside the budget.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/server/session.h"
#include "orvane_tamsel/tool_handlers/memory.h"
#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::server {
namespace {

class ServedShop : public ::testing::Test {
 protected:
  ServedShop() : repo_("explore_shop"), host_(repo_.root()), session_(host_) {
    session_.handle_line(
        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
        R"("capabilities":{},"clientInfo":{"name":"t","version":"1"}}})");
    session_.handle_line(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
  }
  ~ServedShop() override { host_.finish(); }

  // The tool's answer; a protocol error or an isError result fails the test.
  Json call(const std::string& tool, const Json& arguments) {
    Json request = {{"jsonrpc", "2.0"},
                    {"id", ++id_},
                    {"method", "tools/call"},
                    {"params", {{"name", tool}, {"arguments", arguments}}}};
    auto line = session_.handle_line(request.dump());
    if (!line) {
      ADD_FAILURE() << "no answer to " << request.dump();
      return Json();
    }
    Json reply = Json::parse(*line);
    const std::string what = tool + " " + arguments.dump();
    if (reply.contains("error")) {
      ADD_FAILURE() << what << ": " << reply["error"].dump();
      return Json();
    }
    const Json& result = reply["result"];
    EXPECT_FALSE(result.value("isError", false)) << what << ": " << result.dump();
    return Json::parse(result["content"][0]["text"].get<std::string>());
  }

  indexer_test::TempRepo repo_;
  LiveHost host_;
  Session session_;
  int id_ = 1;
};

TEST_F(ServedShop, EveryNextStepOfExploreIsACallThatWorks) {
  // Every route, plus a miss of each kind (suggestions) and a budget too small (the retry step).
  const std::vector<Json> asks = {
      {{"query", "What tools are available?"}},
      {{"query", "./shop/cart.py"}},
      {{"query", "shop/"}},
      {{"query", "shop/carts.py"}},
      {{"query", "apply_discount"}},
      {{"query", "Cart.total"}},
      {{"query", "aply_discount"}},
      {{"query", "which tests cover Cart?"}},
      {{"query", "shop/receipt.py tests"}},
      {{"query", "tests for print_receipt"}},
      {{"query", "how is the cart total computed"}},
      {{"query", "how is the cart total computed"}, {"token_budget", 1}},
  };
  std::size_t steps = 0;
  for (const auto& ask : asks) {
    Json answer = call("explore", ask);
    ASSERT_TRUE(answer.contains("next_steps")) << answer.dump();
    for (const auto& step : answer["next_steps"]) {
      SCOPED_TRACE(ask.dump() + " -> " + step.dump());
      const auto* tool = orvane_tamsel::find_tool(step["tool"].get<std::string>());
      ASSERT_NE(tool, nullptr);
      // The tools answer's steps leave the free text to the client; nothing else may be missing.
      Json arguments = step["arguments"];
      for (const auto& p : tool->params) {
        if (!p.required || arguments.contains(p.name)) continue;
        EXPECT_TRUE(p.name == "query" || p.name == "task") << p.name;
        arguments[p.name] = "the cart total";
      }
      Json followed = call(tool->name, arguments);
      EXPECT_FALSE(followed.contains("error")) << followed.dump();
      ++steps;
    }
  }
  EXPECT_GE(steps, asks.size());
}

TEST_F(ServedShop, SavedMemoriesComeWithExploreAnswersAsUntrusted) {
  Json saved = call("memory", {{"action", "save"},
                               {"title", "Discount rounding"},
                               {"text", "apply_discount rounds to cents on purpose; keep it."},
                               {"tags", {"pricing"}}});
  Json other = call("memory", {{"action", "save"},
                               {"title", "Receipts"},
                               {"text", "Receipt layout is fixed by the printer."}});

  Json answer = call("explore", {{"query", "how are discounts rounded"}});
  ASSERT_TRUE(answer.contains("memories")) << answer.dump();
  EXPECT_EQ(std::prev(answer.end()).key(), "memories");
  EXPECT_EQ(answer["memories"]["trust"], tool_handlers::MEMORIES_TRUST);
  ASSERT_EQ(answer["memories"]["items"].size(), 1u) << answer.dump();
  EXPECT_EQ(answer["memories"]["items"][0]["title"], "Discount rounding");

  // Outside the budget: tokens_used measures the answer without them.
  Json bare = answer;
  bare.erase("memories");
  EXPECT_EQ(answer["tokens_used"], (static_cast<long long>(tool_result_text(bare).size()) + 3) / 4);

  // The tools list and an unrelated query carry none; a deleted memory is gone.
  EXPECT_FALSE(call("explore", {{"query", "available tools"}}).contains("memories"));
  EXPECT_FALSE(call("explore", {{"query", "tax_for"}}).contains("memories"));
  ASSERT_TRUE(saved.contains("id")) << saved.dump();
  call("memory", {{"action", "delete"}, {"id", saved["id"]}});
  EXPECT_FALSE(call("explore", {{"query", "how are discounts rounded"}}).contains("memories"));
  EXPECT_EQ(call("memory", {{"action", "list"}})["memories"].size(), 1u) << other.dump();
}

}  // namespace
}  // namespace orvane_tamsel::server
