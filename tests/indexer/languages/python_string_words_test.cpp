#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "orvane_tamsel/indexer/extract.h"

namespace {

using namespace orvane_tamsel;

// A class or function is searched with the words of the strings it holds itself: not its
// docstring, not a nested function's strings, not the code inside an f-string, not a string
// prefix or an escape, each word once.
TEST(PythonStringWords, EachStringBelongsToTheInnermostDefinition) {
  const std::string source = R"py("""Module docstring."""
NAME = "module level words"
class Field:
    """A field."""
    description = _("Universally unique identifier")
    def check(self, value):
        """Checks a value."""
        if not value:
            raise ValueError(f"'{value.strip()}' is not a valid UUID\n" rb"Not valid")
        def inner():
            return "nested words"
)py";
  const auto* python = utils::language_for_path("m.py");
  auto file = indexer::extract(*python, "m.py", "m", source);
  auto words = [&](const std::string& fqn) {
    auto s = std::find_if(file.symbols.begin(), file.symbols.end(),
                          [&](const auto& s) { return s.fqn == fqn; });
    return s == file.symbols.end() ? "missing" : s->words;
  };
  EXPECT_EQ(words("m.Field"), "Universally unique identifier");
  EXPECT_EQ(words("m.Field.check"), "is not valid UUID");
  EXPECT_EQ(words("m.Field.check.inner"), "nested words");
  EXPECT_EQ(words("m"), "");
}

}  // namespace
