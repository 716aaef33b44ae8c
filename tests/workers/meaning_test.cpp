// The meaning vectors: what learning places near what, their round trip through the index and an
// update, and what an answer says when the index holds none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/meaning_vectors.h"
#include "orvane_tamsel/index/meaning_words.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/indexer/meaning/word_vectors.h"
#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/workers/retrieval.h"

using namespace orvane_tamsel;
using ::testing::HasSubstr;

namespace {

double cosine_of(const index::MeaningVectors& v, const std::string& a, const std::string& b) {
  const float* x = &v.words[v.word_rows.at(a) * v.dims];
  const float* y = &v.words[v.word_rows.at(b) * v.dims];
  double dot = 0;
  for (std::size_t i = 0; i < v.dims; ++i) dot += static_cast<double>(x[i]) * y[i];
  return dot;
}

std::vector<std::pair<std::string, float>> weighed(const std::string& text) {
  std::vector<std::pair<std::string, float>> out;
  for (auto& w : index::meaning_words(text)) out.emplace_back(std::move(w), 1.0F);
  return out;
}

// Two files whose docstrings speak of two things: passwords and URLs.
void write_shop(const indexer_test::TempRepo& repo) {
  repo.write("auth.py", R"(def make_password(raw):
    """Hash a raw password with a salt and return the digest."""

def check_password(raw, digest):
    """Compare a raw password with a salted hash digest."""

def salt_for(user):
    """A random salt for a password hash."""

def digest_of(text):
    """The hash digest of the text, salted."""
)");
  repo.write("urls.py", R"(def reverse(view_name):
    """Build the URL of a view from its name and route pattern."""

def resolve(path):
    """Find the view whose route pattern matches the URL path."""

def include(patterns):
    """Route a URL prefix to more view patterns."""

def pattern_of(route):
    """The URL pattern of a view route."""
)");
}

}  // namespace

TEST(MeaningVectors, WordsUsedTogetherEndNearAndQuestionsFindTheirSymbols) {
  if (!indexer::meaning::can_learn()) GTEST_SKIP() << "built without Eigen";
  std::vector<std::vector<std::string>> contexts;
  for (const char* text :
       {"hash the password with a salt", "salted password digest", "hash digest of a salt",
        "password hash digest", "build a url from a view route", "url pattern of a view",
        "route pattern to a view", "url route pattern", "check the password hash",
        "check the url route"}) {
    contexts.push_back(index::meaning_words(text));
  }
  auto learned = indexer::meaning::learn_word_vectors(contexts);
  ASSERT_TRUE(learned);
  auto& v = *learned;
  ASSERT_GT(v.dims, 0U);
  EXPECT_GT(cosine_of(v, "hash", "salt"), cosine_of(v, "hash", "url") + 0.3);
  EXPECT_GT(cosine_of(v, "view", "rout"), cosine_of(v, "view", "password") + 0.3);
  // A question in words that neither symbol's name holds finds the one its words go with.
  v.add_symbol(1, false, v.text_vector(weighed("make_password")).data());
  v.add_symbol(2, false, v.text_vector(weighed("reverse_url")).data());
  v.add_symbol(3, true, v.text_vector(weighed("test_salted_digest")).data());
  auto asked = v.text_vector(weighed("where is the salted digest made"));
  auto production = v.nearest(asked, 5, false);
  ASSERT_EQ(production.size(), 2U);
  EXPECT_EQ(production[0].id, 1);
  EXPECT_EQ(v.nearest(asked, 1, true)[0].id, 3);
  EXPECT_DOUBLE_EQ(v.similarity(asked, 99), 0.0);
  EXPECT_TRUE(v.text_vector(weighed("nothing known here")).empty());
  // Too few words to learn from: no vectors, not an error.
  auto tiny = indexer::meaning::learn_word_vectors({{"a1", "b1"}, {"a1", "b1"}});
  ASSERT_TRUE(tiny);
  EXPECT_TRUE(tiny->word_rows.empty());
}

TEST(MeaningVectors, StoredWithTheIndexAndKeptByAnUpdate) {
  if (!indexer::meaning::can_learn()) GTEST_SKIP() << "built without Eigen";
  indexer_test::TempRepo repo;
  write_shop(repo);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  auto first = index->meaning_vectors();
  ASSERT_TRUE(first);
  EXPECT_EQ(index->meaning_vectors(), first);  // loaded once while unchanged
  ASSERT_GT(first->dims, 0U);
  EXPECT_EQ(first->symbol_ids.size(), 8U);
  auto make_password = index->get_symbol_by_fqn("auth.make_password");
  ASSERT_TRUE(make_password && make_password->id);
  auto asked = first->text_vector(weighed("salted hash"));
  EXPECT_GT(first->similarity(asked, *make_password->id), 0.5);

  // An update keeps the word vectors, gives a new symbol its vector and drops a removed one's.
  auto pattern_of = index->get_symbol_by_fqn("urls.pattern_of");
  ASSERT_TRUE(pattern_of && pattern_of->id);
  EXPECT_TRUE(first->symbol_rows.count(*pattern_of->id));
  repo.write("auth.py", R"(def make_password(raw):
    """Hash a raw password with a salt and return the digest."""

def check_password(raw, digest):
    """Compare a raw password with a salted hash digest."""

def salt_for(user):
    """A random salt for a password hash."""

def digest_of(text):
    """The hash digest of the text, salted."""

def hash_again(digest):
    """A salted hash of a password digest, again."""
)");
  repo.write("urls.py", R"(def reverse(view_name):
    """Build the URL of a view from its name and route pattern."""

def resolve(path):
    """Find the view whose route pattern matches the URL path."""

def include(patterns):
    """Route a URL prefix to more view patterns."""
)");
  indexer::update_index(repo.root());
  auto second = index->meaning_vectors();
  ASSERT_TRUE(second);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->words, first->words);
  EXPECT_EQ(second->symbol_ids.size(), 8U);
  EXPECT_FALSE(second->symbol_rows.count(*pattern_of->id));
  auto again = index->get_symbol_by_fqn("auth.hash_again");
  ASSERT_TRUE(again && again->id);
  EXPECT_GT(second->similarity(asked, *again->id), 0.5);

  // More than twice the symbols: the words are learned again, and the new ones are known.
  std::string mail;
  for (int i = 0; i < 10; ++i) {
    mail += "def send_" + std::to_string(i) + "(message):\n    \"\"\"Send a mail message to its " +
            "recipients.\"\"\"\n\n";
  }
  repo.write("mail.py", mail);
  indexer::update_index(repo.root());
  auto third = index->meaning_vectors();
  ASSERT_TRUE(third);
  EXPECT_EQ(third->symbol_ids.size(), 18U);
  EXPECT_TRUE(third->word_rows.count("mail") && third->word_rows.count("recipient"));
  EXPECT_FALSE(second->word_rows.count("mail"));
}

TEST(MeaningVectors, AnIndexWithoutThemStillAnswersAndSaysTheSignalIsOff) {
  indexer_test::TempRepo repo;
  write_shop(repo);
  indexer::update_index(repo.root());
  {
    // As a build without the library leaves it: no pass ever ran.
    index::Database db(index::index_file(repo.root()), index::Database::Mode::write);
    db.exec("DELETE FROM meta WHERE key = 'meaning_generation'");
  }
  auto index = index::open_repository(repo.root());
  EXPECT_EQ(index->meaning_vectors(), nullptr);
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{});
  auto result = retriever.retrieve("how is a password hashed", 5, false, true);
  ASSERT_FALSE(result.hits.empty());
  EXPECT_TRUE(result.meaning_off);
  auto note = tool_handlers::retrieval_note(result);
  ASSERT_TRUE(note);
  EXPECT_THAT(*note, HasSubstr("the meaning signal is off"));
  // With the vectors, nothing is said about them.
  indexer::update_index(repo.root());
  if (indexer::meaning::can_learn()) {
    EXPECT_FALSE(retriever.retrieve("how is a password hashed", 5, false, true).meaning_off);
  }
}

TEST(MeaningVectors, AHowQuestionGetsTheMethodThatActsBeforeItsClass) {
  indexer_test::TempRepo repo;
  repo.write("forms.py", R"(class Form:
    """A form: fields that are checked and cleaned."""

    def full_clean(self):
        """Check and clean every field of the form."""

    def render(self):
        """The form as HTML."""
)");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{});
  auto first_of = [&](const std::string& question) {
    auto hits = retriever.retrieve(question, 5, false, true).hits;
    if (hits.empty()) return std::string();
    auto found = index->symbols_with_paths({hits[0].symbol.id});
    return found.begin()->second.first.fqn;
  };
  EXPECT_EQ(first_of("how is every field of a form checked and cleaned"), "forms.Form.full_clean");
  EXPECT_EQ(first_of("check and clean the fields of a form"), "forms.Form.full_clean");
  EXPECT_EQ(first_of("which class holds the checked and cleaned fields"), "forms.Form");
}
