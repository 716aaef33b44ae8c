#include "orvane_tamsel/indexer/doc_sentences.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace orvane_tamsel::indexer;

TEST(DocSentences, SplitsAtSentenceEndsAndFindsWholeNames) {
  // Wrapped lines join; a mark inside a word (e.g., x.y, ...) or a list's colon goes on; a blank
  // line ends a sentence without a mark.
  std::string doc =
      "Package big implements arbitrary-precision\narithmetic (e.g. x.Add). Is it exact?\n"
      "Yes!\n\nThe types: Int, Rat\n\n  Float...  ends here.";
  EXPECT_EQ(doc_sentences(doc),
            (std::vector<std::string>{
                "Package big implements arbitrary-precision arithmetic (e.g. x.Add).",
                "Is it exact?", "Yes!", "The types: Int, Rat", "Float... ends here."}));
  EXPECT_EQ(first_sentence(doc),
            "Package big implements arbitrary-precision arithmetic (e.g. x.Add).");
  EXPECT_EQ(first_sentence(" \n"), "");
  // A name counts whole: Add in x.Add and Rat before a comma, not Rat in Rational or Int in
  // Interval; every naming sentence is kept, in order.
  EXPECT_EQ(sentences_naming(doc, "Add"),
            "Package big implements arbitrary-precision arithmetic (e.g. x.Add).");
  EXPECT_EQ(sentences_naming("Rationals. Rat_x. The Rat, ok. A Rat.", "Rat"),
            "The Rat, ok. A Rat.");
  EXPECT_EQ(sentences_naming("An Interval.", "Int"), "");
  EXPECT_EQ(sentences_naming(doc, ""), "");
  // A long sentence keeps its first words only.
  std::string words;
  for (int i = 0; i < 100; ++i) words.append("w").append(std::to_string(i)).append(" ");
  EXPECT_EQ(first_sentence(words).find("w60"), std::string::npos);
  EXPECT_NE(first_sentence(words).find("w39"), std::string::npos);
}

}  // namespace
