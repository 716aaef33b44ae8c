#include "orvane_tamsel/indexer/body_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace {

using namespace orvane_tamsel;

std::vector<std::string> words_of(const std::string& body) {
  std::vector<std::string> words;
  std::istringstream in(body);
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

bool has(const std::string& body, const std::string& word) {
  for (const auto& w : words_of(body)) {
    if (w == word) return true;
  }
  return false;
}

const indexer::ParsedSymbol& symbol(const indexer::ParsedFile& f, const std::string& fqn) {
  for (const auto& s : f.symbols) {
    if (s.fqn == fqn) return s;
  }
  throw std::runtime_error("no symbol " + fqn);
}

// A method's words stay with it: its class and module do not repeat them, and what it calls,
// reads, comments and quotes is there once, split into sub-words, without numbers.
TEST(BodyWords, EachLineBelongsToTheInnermostSymbol) {
  const std::string source =
      "class Hasher:\n"
      "    \"\"\"Stores secrets.\"\"\"\n"
      "    algorithm = 'pbkdf2'\n"
      "\n"
      "    def make(self, password, salt):\n"
      "        # never keep the plain text around\n"
      "        digest = self.encodeSecret(password, salt, 260000)\n"
      "        return digest + \"$iterations\" + digest\n";
  auto language = utils::language_for_path("hashers.py");
  ASSERT_TRUE(language);
  auto file = indexer::extract(*language, "hashers.py", "hashers", source);
  const auto& method = symbol(file, "hashers.Hasher.make");
  for (const char* w : {"password", "salt", "plain", "text", "encode", "secret", "iterations"})
    EXPECT_TRUE(has(method.body, w)) << w << " in: " << method.body;
  auto words = words_of(method.body);
  EXPECT_EQ(std::count(words.begin(), words.end(), "digest"), 1);
  EXPECT_FALSE(has(method.body, "260000"));
  EXPECT_FALSE(has(method.body, "pbkdf2")) << "the class's own line";

  const auto& cls = symbol(file, "hashers.Hasher");
  EXPECT_TRUE(has(cls.body, "secrets"));
  EXPECT_FALSE(has(cls.body, "password")) << cls.body;
  EXPECT_TRUE(symbol(file, "hashers").body.empty());
}

// Lines outside the file (a symbol's end past the last line) and very long bodies stay bounded.
TEST(BodyWords, BoundedByTheFileAndAWordCap) {
  std::vector<indexer::ParsedSymbol> symbols(1);
  symbols[0].fqn = "m.f";
  symbols[0].kind = "function";
  symbols[0].start_line = 1;
  symbols[0].end_line = 5000;
  std::string content;
  for (int i = 0; i < 1000; ++i)
    content += "call_w" + std::string(1, 'a' + i % 26) + std::string(1, 'a' + i / 26 % 26) + "()\n";
  indexer::add_body_words(symbols, content);
  auto words = words_of(symbols[0].body);
  EXPECT_GT(words.size(), 50u);
  EXPECT_LE(words.size(), 200u);
}

}  // namespace
