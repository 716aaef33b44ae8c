// Splitting names written as one run of letters into the words they join.

#include "orvane_tamsel/index/name_split.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane_tamsel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(NameSplit, RepositoryWordsAreSharedPartsOfNames) {
  // "dir" is a part of two names; "env" of one; getenv and kw are never a separate part twice.
  EXPECT_THAT(index::repository_words({"list_dir", "is_dir", "get_env", "getenv", "kw", "dir2_x"}),
              ElementsAre("dir"));
}

TEST(NameSplit, FewestKnownPartsOrTheRunWhole) {
  const index::EnglishWords none("/nonexistent", true);
  index::NameSplitter own({"ab", "cd", "note", "list", "dir"}, none);
  EXPECT_THAT(own.split("listdir"), ElementsAre("list", "dir"));
  EXPECT_THAT(own.split("abnote"), ElementsAre("ab", "note"));
  EXPECT_THAT(own.split("abcdnote"), IsEmpty());  // two parts of two letters: chance
  EXPECT_THAT(own.split("listx"), IsEmpty());     // not covered
  EXPECT_THAT(own.split("list_dir"), IsEmpty());  // not one run of letters
  EXPECT_THAT(own.words_of("listdir_fast"), ElementsAre("listdir", "fast", "list", "dir"));
  EXPECT_EQ(index::name_text("LISTDIR", &own), "LISTDIR listdir list dir");

  const auto& mapped = index::english_words();
  if (!mapped.knows("format")) GTEST_SKIP() << "no WordNet dictionary installed";
  const index::EnglishWords loaded(index::EnglishWords::default_dictionary(), true);
  for (const char* w : {"format", "lines", "parsed", "encoding", "breaks", "listdir", "maked"}) {
    EXPECT_EQ(loaded.knows(w), mapped.knows(w)) << w;
  }
  index::NameSplitter english({"addr", "dir", "dirs", "env", "get", "info"}, loaded);
  EXPECT_THAT(english.split("format"), IsEmpty());  // an English word stays whole
  EXPECT_THAT(english.split("readlines"), ElementsAre("read", "lines"));
  EXPECT_THAT(english.split("filesizeformat"), ElementsAre("file", "size", "format"));
  EXPECT_THAT(english.split("getaddrinfo"), ElementsAre("get", "addr", "info"));
  EXPECT_THAT(english.split("makedirs"), ElementsAre("make", "dirs"));  // not maked + irs
  EXPECT_THAT(english.split("urlize"), IsEmpty());
  // A first build reads the dictionary in memory, an update searches the files: same splits.
  index::NameSplitter updating({"addr", "dir", "dirs", "env", "get", "info"}, mapped);
  for (const char* name : {"getaddrinfo", "MAXLINESIZE", "linebreaksbr", "unlink", "Userinfo",
                           "timestamp", "iterdecode", "startswith", "copytree_fast"}) {
    EXPECT_EQ(english.words_of(name), updating.words_of(name)) << name;
  }
}

}  // namespace
}  // namespace orvane_tamsel
