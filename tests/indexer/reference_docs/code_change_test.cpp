#include "orvane_tamsel/indexer/reference_docs/code_change.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/indexer/indexer.h"

namespace {

using namespace orvane_tamsel;
using indexer::reference_docs::CodeChange;

// What an update after writing `files` (path, text) would relink, on the repository as indexed.
CodeChange change_after(const indexer_test::TempRepo& repo,
                        const std::vector<std::pair<std::string, std::string>>& files) {
  std::vector<std::string> paths;
  for (const auto& [path, text] : files) paths.push_back(path);
  auto db = [&] {
    return index::Database(repo.root() / ".tamsel" / "index.db", index::Database::Mode::read);
  };
  auto before = [&] {
    auto d = db();
    return indexer::reference_docs::snapshot(d, paths);
  }();
  for (const auto& [path, text] : files) repo.write(path, text);
  indexer::update_index(repo.root());
  auto d = db();
  return indexer::reference_docs::compare(d, before, indexer::reference_docs::snapshot(d, paths),
                                          paths);
}

// The work an update does for the pages follows the edit: a body edit names only what it
// changed, bases that move name the classes deriving from them and the names imports give them,
// imports name what they bind, and a star import relinks everything.
TEST(CodeChange, NamesOnlyWhatAnEditMayLinkElsewhere) {
  indexer_test::TempRepo repo;
  const std::string base = "class Root:\n    pass\n\nclass Other:\n    pass\n\n";
  repo.write("lib/__init__.py", "from .impl import Widget as Gadget\n");
  repo.write("lib/base.py", base + "class Base(Root):\n    def size(self):\n        return 1\n");
  repo.write("lib/impl.py", "from .base import Base\n\nclass Widget(Base):\n    pass\n");
  repo.write("lib/other.py", "def helper():\n    return 1\n");
  indexer::update_index(repo.root());

  auto body = change_after(repo, {{"lib/base.py", base + "class Base(Root):\n    def size(self):\n"
                                                         "        return 2\n"}});
  EXPECT_FALSE(body.everything);
  EXPECT_TRUE(body.names.empty());
  auto grown = change_after(repo, {{"lib/other.py", "def helper():\n    x = 1\n    return x\n"}});
  EXPECT_EQ(grown.names, (std::set<std::string>{"helper"}));
  auto rebased = change_after(
      repo,
      {{"lib/base.py", base + "class Base(Other):\n    def size(self):\n        return 2\n"}});
  EXPECT_EQ(rebased.names, (std::set<std::string>{"Base", "Widget", "Gadget"}));
  EXPECT_EQ(rebased.files, std::vector<std::string>{"lib/base.py"});
  // A plain import binds nothing a re-export is looked up by; a `from` import binds its name, and
  // a star import any public name.
  const std::string helper = "def helper():\n    x = 1\n    return x\n";
  auto plain = change_after(repo, {{"lib/other.py", "import os\n\n" + helper}});
  EXPECT_FALSE(plain.everything);
  EXPECT_TRUE(plain.names.empty());
  auto from =
      change_after(repo, {{"lib/other.py", "import os\nfrom os import sep as path\n" + helper}});
  EXPECT_FALSE(from.everything);
  EXPECT_EQ(from.names.count("path"), 1U);
  EXPECT_EQ(from.names.count("helper"), 0U);
  auto star = change_after(repo, {{"lib/other.py", "from os import *\n" + helper}});
  EXPECT_TRUE(star.everything);
}

}  // namespace
