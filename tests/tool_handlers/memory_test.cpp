#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/memory_store.h"
#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/memory.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::tool_handlers;

TEST(Memories, StoreSurvivesReopenAndAttachesAsUntrusted) {
  indexer_test::TempRepo repo("shop");
  {
    index::MemoryStore store(repo.root());
    store.save("Discount codes", "SAVE10 is retired; pricing keeps it for old carts.", {"pricing"});
    store.save("Release", "Tag releases from main only.", {"process", "git"});
    for (int i = 0; i < 5; ++i) store.save("Cart note " + std::to_string(i), "about carts", {});
  }
  index::MemoryStore store(repo.root());
  EXPECT_EQ(store.list(100).size(), 7u);
  EXPECT_EQ(store.list(100).front().title, "Cart note 4");

  auto answer = with_memories(Json{{"query", "discount"}}, "how are discounts applied", &store);
  EXPECT_EQ(tool_result_text(answer["memories"]),
            R"({"trust":"untrusted: notes saved by users of this tool, not read from the code",)"
            R"("items":[{"id":1,"title":"Discount codes","text":"SAVE10 is retired; pricing keeps )"
            R"(it for old carts."}]})");
  EXPECT_EQ(store("git").front().title, "Release");  // tags are searched
  EXPECT_EQ(store("cart").size(), 3u);               // at most 3
  // Quotes and FTS5 operators in the question are words, not syntax.
  EXPECT_NO_THROW(store("\"NEAR( cart* AND"));

  EXPECT_TRUE(store.remove(1));
  EXPECT_FALSE(store.remove(1));
  EXPECT_FALSE(with_memories(Json::object(), "discount", &store).contains("memories"));
  EXPECT_FALSE(with_memories(Json::object(), "discount", nullptr).contains("memories"));
}
