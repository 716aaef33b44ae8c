#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/sentence_vectors.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::workers;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

// Words on four axes: money words together, files, children, running.
class FakeTable : public index::WordTable {
 public:
  std::size_t dimensions() const override { return 4; }
  const std::int8_t* row(std::string_view word) const override {
    auto it = rows_.find(word);
    return it == rows_.end() ? nullptr : it->second.data();
  }

 private:
  std::map<std::string, std::vector<std::int8_t>, std::less<>> rows_ = {
      {"invoice", {127, 0, 0, 0}}, {"bill", {120, 0, 40, 0}}, {"file", {0, 127, 0, 0}},
      {"child", {0, 0, 127, 0}},   {"run", {0, 0, 0, 127}},   {"parse", {0, 90, 0, 90}},
      {"box", {0, 60, 60, 60}},
  };
};

std::shared_ptr<SentenceVectors> fake_vectors(const indexer_test::TempRepo& dict) {
  dict.write("noun.exc", "children child\n");
  dict.write("verb.exc", "ran run\n");
  return std::make_shared<SentenceVectors>(std::make_shared<FakeTable>(), dict.root());
}

}  // namespace

TEST(SentenceVectors, WordsByBaseFormAndWeightedUnitSums) {
  indexer_test::TempRepo dict;
  auto vectors = fake_vectors(dict);
  // Code names split, irregular forms from the exception lists, regular endings cut, the rest
  // (function words, unknown names) dropped.
  EXPECT_THAT(vectors->words("The children ran parseFiles, bills and boxes: xyzzy"),
              ElementsAre("child", "run", "parse", "file", "bill", "box"));
  auto v = vectors->vector({"file", "child"}, {{"file", 3.0}});
  ASSERT_EQ(v.size(), 4U);
  EXPECT_NEAR(v[1], 3 / std::sqrt(10.0), 1e-6);
  EXPECT_NEAR(v[2], 1 / std::sqrt(10.0), 1e-6);
  EXPECT_TRUE(vectors->vector({}, {}).empty());
  // A symbol's own text: name, holder, the docstring's first sentence (a dotted name is no end).
  index::Symbol method{.fqn = "shop.cart.Cart.total", .name = "total"};
  method.docstring = "Sum of Line.price.\nRounds down.";
  EXPECT_EQ(self_text(method), "total Cart Sum of Line.price");
  index::Symbol top{.fqn = "total", .name = "total"};
  top.docstring = "Sum\n\nof the lines.";
  EXPECT_EQ(self_text(top), "total  Sum");
}

TEST(SentenceVectors, TheRerankInputPrefersTheTextSayingItInOtherWordsAndIsOffWithoutATable) {
  indexer_test::TempRepo repo;
  repo.write("shop/billing.py",
             "def send_bill(customer):\n    \"\"\"Mail the bill. Retries twice.\"\"\"\n"
             "def send_file(customer):\n    \"\"\"Mail the file.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  indexer_test::TempRepo dict;
  HybridRetriever with(*index, RetrievalSettings{}, nullptr, nullptr, fake_vectors(dict));
  std::map<std::string, double> cosine;
  for (const auto& c : with.candidates("send the invoice", false)) {
    cosine[c.fqn] = c.inputs.sentence;
  }
  ASSERT_EQ(cosine.size(), 2U);
  EXPECT_GT(cosine["billing.send_bill"], 0.5);
  EXPECT_LT(cosine["billing.send_file"], cosine["billing.send_bill"]);
  EXPECT_FALSE(with.retrieve("send the invoice", 5, false, true).sentence_off);

  HybridRetriever without(*index, RetrievalSettings{});
  auto result = without.retrieve("send the invoice", 5, false, true);
  ASSERT_FALSE(result.hits.empty());
  EXPECT_TRUE(result.sentence_off);
  auto note = tool_handlers::retrieval_note(result);
  ASSERT_TRUE(note);
  EXPECT_THAT(*note, HasSubstr("the sentence signal is off"));
}
