// The meaning vectors: what learning places near what, their round trip through the index and an
// update, and what an answer says when the index holds none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/meaning_vectors.h"
#include "orvane_tamsel/index/meaning_words.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/indexer/meaning/call_lines.h"
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

TEST(MeaningVectors, LearningReadsWhatTheCallingLinesSay) {
  indexer_test::TempRepo repo;
  write_shop(repo);
  repo.write("views.py", R"(from urls import reverse

def redirect_home(request):
    # the address of the landing page
    location = reverse("home")
    return location

def first():
    reverse("banner")

def second():
    reverse("cookie")
)");
  indexer::update_index(repo.root());
  index::Database db(index::index_file(repo.root()), index::Database::Mode::read);
  auto id = db.prepare("SELECT id FROM symbols WHERE fqn = 'urls.reverse'");
  ASSERT_TRUE(id.step());
  auto words = indexer::meaning::call_line_words(db, repo.root(), 2);
  auto& said = words[id.integer(0)];
  // The first two calls by line: the comment above the first joins it, the third is not read.
  auto says = [&said](const char* word) {
    return std::count(said.begin(), said.end(), index::meaning_words(word).at(0));
  };
  for (const char* word : {"location", "address", "landing", "home", "banner"}) {
    EXPECT_EQ(says(word), 1) << word;
  }
  EXPECT_EQ(says("cookie"), 0);
  // A calling file gone from the disk gives no lines, not an error.
  std::filesystem::remove(repo.root() / "views.py");
  EXPECT_TRUE(indexer::meaning::call_line_words(db, repo.root())[id.integer(0)].empty());
}

TEST(MeaningVectors, StoredWithTheIndexAndKeptByAnUpdate) {
  if (!indexer::meaning::can_learn()) GTEST_SKIP() << "built without Eigen";
  indexer_test::TempRepo repo;
  write_shop(repo);
  repo.write("tokens.py", R"(def sign_token(value):
    """Sign a token with a salted hash digest."""

def read_token(token):
    """Check the salted hash digest of a signed token."""
)");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  auto embedder = index::open_learned_embedder(repo.root());
  // What a reader holds: each symbol's row as stored, with its test flag.
  auto rows_of = [](const index::MeaningVectors& v) {
    std::map<index::SymbolId, std::string> rows;
    for (std::size_t r = 0; r < v.symbol_ids.size(); ++r) {
      std::string row(reinterpret_cast<const char*>(&v.symbol_scales[r]), sizeof(float));
      row.append(reinterpret_cast<const char*>(&v.symbols[r * v.dims]), v.dims);
      rows[v.symbol_ids[r]] = row + (v.symbol_is_test[r] ? "t" : "p");
    }
    return rows;
  };
  index::MeaningVectors held;
  std::int64_t held_generation = 0;
  {
    index::Database db(index::index_file(repo.root()), index::Database::Mode::read);
    index::read_meaning_words(db, {}, held);
    index::read_meaning_symbols(db, held);
    held_generation = index::meaning_generation(db).value_or(0);
  }
  auto id_of = [&](const std::string& fqn) {
    auto s = index->get_symbol_by_fqn(fqn);
    return s && s->id ? *s->id : index::SymbolId{0};
  };
  auto nearest_ids = [](index::Embedder& e, const std::string& question) {
    EXPECT_TRUE(e.symbol_vectors().held);
    std::vector<index::SymbolId> ids;
    for (const auto& hit : e.nearest(e.embed(question), 20, false)) ids.push_back(hit.id);
    return ids;
  };
  ASSERT_TRUE(embedder->symbol_vectors().held);
  auto asked = embedder->embed("salted hash");
  ASSERT_FALSE(asked.empty());
  EXPECT_EQ(embedder->nearest(asked, 20, false).size(), 10U);
  EXPECT_GT(embedder->similarities(asked, {id_of("auth.make_password")})[0], 0.5);
  auto pattern_of = id_of("urls.pattern_of");

  // An update keeps the word vectors, gives a new or edited symbol its vector, drops a removed
  // one's (and a removed file's) and records only those as changed.
  repo.write("auth.py", R"(def make_password(raw):
    """Hash a raw password with a salt and return the digest."""

def check_password(raw, digest):
    """Compare a raw password with a salted hash digest."""

def salt_for(user):
    """A random salt for a password hash."""

def digest_of(text):
    """The URL of a view route, salted."""

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
  auto sign_token = id_of("tokens.sign_token"), read_token = id_of("tokens.read_token");
  std::filesystem::remove(repo.root() / "tokens.py");
  indexer::update_index(repo.root());
  index::Database db(index::index_file(repo.root()), index::Database::Mode::read);
  std::set<index::SymbolId> changed;
  for (auto st = db.prepare("SELECT symbol_id FROM meaning_changes"); st.step();) {
    changed.insert(st.integer(0));
  }
  EXPECT_EQ(changed, (std::set<index::SymbolId>{id_of("auth.hash_again"), id_of("auth.digest_of"),
                                                pattern_of, sign_token, read_token}));
  // Every row read is what the symbol's own text and the stored words give, as a full pass with
  // those words writes it; a reader that held the rows from before and read only the files
  // written since holds the same rows.
  auto words = index::load_meaning_words(db);
  std::map<index::SymbolId, std::string> want;
  for (auto st = db.prepare("SELECT s.id, s.name, s.parent_fqn, coalesce(s.docstring, ''), "
                            "coalesce(s.signature, '') FROM symbols s WHERE " +
                            index::production_symbol_sql("s"));
       st.step();) {
    auto v =
        words.text_vector(index::vector_words({st.text(1), st.text(2), st.text(3), st.text(4)}));
    if (!v.empty()) want[st.integer(0)] = index::row_bytes(v.data(), v.size()) + "p";
  }
  EXPECT_EQ(want.size(), 8U);
  index::MeaningVectors read;
  index::read_meaning_words(db, {}, read);
  index::read_meaning_symbols(db, read);
  EXPECT_EQ(rows_of(read), want);
  index::apply_meaning_changes(db, held_generation, held);
  EXPECT_EQ(rows_of(held), want);
  // The embedder kept from before reads only those rows and agrees with a new one.
  auto fresh = index::open_learned_embedder(repo.root());
  for (const char* question : {"salted hash", "url of a view route", "password digest"}) {
    EXPECT_EQ(nearest_ids(*embedder, question), nearest_ids(*fresh, question)) << question;
  }
  auto after = nearest_ids(*embedder, "url route pattern");
  EXPECT_EQ(std::count(after.begin(), after.end(), pattern_of), 0);
  EXPECT_GT(embedder->similarities(embedder->embed("salted hash"), {id_of("auth.hash_again")})[0],
            0.5);
  // Five of the ten symbols learned from changed: the answer says the vectors are behind.
  EXPECT_TRUE(embedder->symbol_vectors().stale);
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{}, embedder);
  auto stale = retriever.retrieve("salted hash", 5, false, true);
  ASSERT_TRUE(stale.meaning_stale);
  EXPECT_THAT(tool_handlers::retrieval_note(stale).value_or(""), HasSubstr("learned before"));

  // More than twice the symbols: the words are learned again, and the new ones are known.
  EXPECT_TRUE(embedder->embed("mail recipients").empty());
  std::string mail;
  for (int i = 0; i < 10; ++i) {
    mail += "def send_" + std::to_string(i) + "(message):\n    \"\"\"Send a mail message to its " +
            "recipients.\"\"\"\n\n";
  }
  repo.write("mail.py", mail);
  indexer::update_index(repo.root());
  EXPECT_FALSE(embedder->symbol_vectors().stale);
  EXPECT_FALSE(embedder->embed("mail recipients").empty());
  EXPECT_EQ(embedder->nearest(embedder->embed("mail recipients"), 30, false).size(), 18U);
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
  auto embedder = index::open_learned_embedder(repo.root());
  EXPECT_FALSE(embedder->symbol_vectors().held);
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{}, embedder);
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
  workers::HybridRetriever retriever(*index, workers::RetrievalSettings{},
                                     index::open_learned_embedder(repo.root()));
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
