#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/workers/class_bases.h"
#include "orvane_tamsel/workers/name_lookup.h"
#include "orvane_tamsel/workers/name_pieces.h"
#include "orvane_tamsel/workers/question_form.h"
#include "orvane_tamsel/workers/question_head.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/sibling_terms.h"
#include "orvane_tamsel/workers/term_expansion.h"
#include "orvane_tamsel/workers/term_match.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

using namespace orvane_tamsel;
using namespace orvane_tamsel::workers;
using orvane_tamsel::utils::is_test_query;
using orvane_tamsel::utils::query_terms;
using orvane_tamsel::utils::reads_as_code;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

TEST(QueryTerms, KeywordsCodeWordsAndTestQueries) {
  EXPECT_THAT(query_terms("How does the Cart apply_discount to discounts?"),
              ElementsAre("cart", "apply_discount", "apply", "discount", "discounts"));
  EXPECT_THAT(query_terms("where is parseHTTPHeader2 used"),
              ElementsAre("parsehttpheader2", "parse", "http", "header", "2"));
  // Negation and "one" say nothing about which code is meant.
  EXPECT_THAT(query_terms("check whether one path is not a symlink"),
              ElementsAre("check", "path", "symlink"));
  // Verbs that name code stay terms, except where the question's frame says them; with nothing
  // else to look for, a query still has no terms.
  EXPECT_THAT(query_terms("let me handle uncaught errors in the loop"),
              ElementsAre("let", "handle", "uncaught", "errors", "loop"));
  EXPECT_THAT(query_terms("show me where requests are handled, find out whether it calls close"),
              ElementsAre("requests", "calls", "close"));
  EXPECT_THAT(query_terms("what should I use to get the logger"), ElementsAre("get", "logger"));
  EXPECT_TRUE(query_terms("how does it work? show me").empty());
  for (const char* w : {"apply_discount", "cli_tools", "Offloader", "Cart", "getX", "md5sum"}) {
    EXPECT_TRUE(reads_as_code(w)) << w;
  }
  for (const char* w : {"unit", "checkout", "tests", "The", "Tests", "2024"}) {
    EXPECT_FALSE(reads_as_code(w)) << w;
  }
  EXPECT_TRUE(is_test_query(query_terms("which unit tests cover checkout")));
  EXPECT_FALSE(is_test_query(query_terms("how is the total computed")));
  EXPECT_TRUE(RETRIEVABLE_KINDS.count("method"));
  EXPECT_FALSE(RETRIEVABLE_KINDS.count("module"));
}

TEST(NameLookup, PathsAndNames) {
  std::filesystem::path root = "/home/me/shop";
  EXPECT_EQ(index_path("./src//shop/cart.py"), "src/shop/cart.py");
  EXPECT_EQ(index_path("src\\shop\\"), "src/shop/");
  EXPECT_EQ(index_path("/home/me/shop/src/cart.py", root), "src/cart.py");
  EXPECT_EQ(index_path("shop/src/cart.py", root), "src/cart.py");
  EXPECT_EQ(index_path("/etc/passwd", root), "");
  EXPECT_EQ(index_path("../outside.py", root), "");
  EXPECT_EQ(dotted("a::b"), "a.b");
  EXPECT_EQ(dotted("a#b"), "a.b");
  EXPECT_EQ(guessed_name("Cart.total"), "total");
  EXPECT_EQ(guessed_name("shop::Cart#"), "");
  // a name written with the inline namespaces a compiler prints finds the symbol without them
  EXPECT_TRUE(names_through_inline_scopes("std.__cxx11.basic_string", "std.basic_string"));
  EXPECT_TRUE(names_through_inline_scopes("std.chrono._V2.system_clock.now",
                                          "std.chrono.system_clock.now"));
  EXPECT_FALSE(names_through_inline_scopes("std.basic_string", "std.basic_string"));
  EXPECT_FALSE(names_through_inline_scopes("std.__cxx11.basic_string", "basic_string"));
  EXPECT_FALSE(names_through_inline_scopes("std.__cxx11.basic_string", "boost.basic_string"));
  EXPECT_FALSE(names_through_inline_scopes("a.b.c.f", "a.c.b.f"));
}

TEST(RetrievalSettings, MissingDefaultMalformedNamesTheLine) {
  indexer_test::TempRepo repo("shop");
  EXPECT_TRUE(load_settings(repo.root()).rerank_results);
  repo.write(".tamsel/settings.json", "{\"jev.explore_rerank_results\": false}");
  EXPECT_FALSE(load_settings(repo.root()).rerank_results);
  repo.write(".tamsel/settings.json", "{\n\"jev.explore_rerank_results\": fals\n}");
  try {
    load_settings(repo.root());
    FAIL() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_THAT(e.what(), ::testing::HasSubstr("settings.json:2:"));
  }
}

namespace {

std::vector<std::string> fqns(index::Repository& repo, const RetrievalResult& r) {
  std::vector<index::SymbolId> ids;
  for (const auto& h : r.hits) ids.push_back(h.symbol.id);
  auto found = repo.symbols_with_paths(ids);
  std::vector<std::string> out;
  for (const auto& h : r.hits) out.push_back(found.at(h.symbol.id).first.fqn);
  return out;
}

}  // namespace

TEST(HybridRetriever, RanksTheShopFixture) {
  indexer_test::TempRepo repo("shop");
  // A class named like its module, a closure and a name two far-apart words of the question spell:
  // none of them is what a question about the ledger's balance asks for. A name defined once per
  // platform is one answer.
  repo.write("src/shop/ledger.py",
             "class Ledger:\n    \"\"\"The shop's ledger.\"\"\"\n"
             "def readline(stream):\n    \"\"\"Read one line of a stream.\"\"\"\n"
             "def read_balance(path):\n    \"\"\"Read the ledger balance from a file.\"\"\"\n"
             "    def read_entries(rows):\n        \"\"\"Read the ledger's rows.\"\"\"\n"
             "    return 0\n"
             "if WINDOWS:\n    def lock(f):\n        \"\"\"Lock the ledger file.\"\"\"\n"
             "else:\n    def lock(f):\n        \"\"\"Lock the ledger file.\"\"\"\n");
  // A Go package: a function defined once per platform in files of its own, and an unexported
  // helper saying the same, listed first by the index.
  repo.write("src/vault/a_seal.go",
             "package vault\n\n// seal shuts the vault door.\nfunc seal() {}\n");
  for (const auto* os : {"unix", "windows"}) {
    repo.write(std::string("src/vault/seal_") + os + ".go",
               "package vault\n\n// Seal shuts the vault door.\nfunc Seal() {}\n");
  }
  // A how-question prefers the function it names over the class holding it, and only then: a
  // class whose functions say no more of the question than it does may be the answer.
  repo.write("src/shop/invoice.py",
             "class Invoice:\n    \"\"\"An invoice and its reminders.\"\"\"\n"
             "    def send_reminder(self):\n        \"\"\"Tell the customer it is due.\"\"\"\n");
  repo.write("src/shop/nightly.py",
             "class MidnightLog:\n    \"\"\"Log to a file that starts afresh at midnight.\"\"\"\n"
             "    def reopen(self):\n        \"\"\"Start the day's file.\"\"\"\n"
             "def write_log(path, line):\n    \"\"\"Append a line to a log file.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt, index::open_learned_embedder(repo.root()),
                            word_sense_embedder());
  auto first = [&](const std::string& q) {
    auto listed = fqns(*index, retriever.retrieve(q, 5, false, true));
    return listed.empty() ? std::string() : listed.front();
  };
  EXPECT_EQ(first("how is a reminder sent for an invoice"), "shop.invoice.Invoice.send_reminder");
  EXPECT_EQ(first("log to a file that starts afresh at midnight"), "shop.nightly.MidnightLog");
  auto holder = [&](const std::string& q, const std::string& fqn) {
    for (const auto& c : retriever.candidates(q, false)) {
      if (c.fqn == fqn) return c.inputs.thing == 1 ? c.inputs.holder : -1.0;
    }
    return -2.0;
  };
  EXPECT_EQ(holder("how is a reminder sent for an invoice", "shop.invoice.Invoice"), 1);
  EXPECT_EQ(holder("log to a file that starts afresh at midnight", "shop.nightly.MidnightLog"), 0);

  auto vault = fqns(*index, retriever.retrieve("how is the vault door shut", 5, false, true));
  ASSERT_FALSE(vault.empty());
  EXPECT_EQ(vault.front(), "vault.Seal");
  EXPECT_EQ(std::count(vault.begin(), vault.end(), "vault.Seal"), 1);

  auto r = retriever.retrieve("how are discounts applied", 5, false, true);
  ASSERT_FALSE(r.hits.empty());
  EXPECT_EQ(fqns(*index, r).front(), "shop.pricing.apply_discount");
  EXPECT_EQ(r.hits.front().symbol.path, "src/shop/pricing.py");
  // What the rerank reads: the candidates in the order retrieve lists them unreordered, each with
  // its inputs (apply_discount is called by Cart.total).
  auto unordered = fqns(*index, retriever.retrieve("how are discounts applied", 5, false, false));
  auto candidates = retriever.candidates("how are discounts applied", false);
  ASSERT_GE(candidates.size(), unordered.size());
  for (std::size_t i = 0; i < unordered.size(); ++i) EXPECT_EQ(candidates[i].fqn, unordered[i]);
  auto apply = std::find_if(candidates.begin(), candidates.end(),
                            [](const auto& c) { return c.fqn == "shop.pricing.apply_discount"; });
  ASSERT_NE(apply, candidates.end());
  EXPECT_GT(apply->inputs.text, 0);
  EXPECT_GT(apply->inputs.in_name, 0);
  EXPECT_GT(apply->inputs.callers, 0);
  EXPECT_EQ(apply->inputs.function, 1);
  EXPECT_EQ(apply->inputs.thing, 0);

  // An exact name wins even when it is a plain word; test code stays out unless asked for.
  auto names = fqns(*index, retriever.retrieve("Cart total", 10, false, true));
  EXPECT_EQ(names.front(), "shop.cart.Cart.total");
  // A question that names only a class asks about the class, not one of its methods.
  for (const auto* q : {"Cart", "how does Cart work"}) {
    EXPECT_EQ(fqns(*index, retriever.retrieve(q, 5, false, true)).front(), "shop.cart.Cart") << q;
  }
  for (const auto& n : names) EXPECT_EQ(n.rfind("tests", 0), std::string::npos) << n;
  // A name spelled as code leads, even a test's among the code it tests.
  for (const auto* name : {"test_add_and_total", "test_discount_through_helper"}) {
    auto q = "how does " + std::string(name) + " work";
    auto spelled = fqns(*index, retriever.retrieve(q, 5, true, true));
    ASSERT_FALSE(spelled.empty()) << q;
    EXPECT_TRUE(spelled.front().ends_with(std::string(".") + name)) << q << ": " << spelled.front();
  }
  auto with_tests = fqns(*index, retriever.retrieve("test cart total", 20, true, false));
  EXPECT_TRUE(std::any_of(with_tests.begin(), with_tests.end(), [](const std::string& n) {
    return n.find("test_") != std::string::npos;
  }));

  EXPECT_EQ(
      fqns(*index, retriever.retrieve("how is the ledger balance read", 5, false, true)).front(),
      "shop.ledger.read_balance");
  // Two far-apart words of the question run together are no name it spells.
  auto inputs = [&](const std::string& q, const std::string& fqn) {
    for (const auto& c : retriever.candidates(q, false)) {
      if (c.fqn == fqn) return c.inputs;
    }
    return RerankInputs{};
  };
  EXPECT_GT(inputs("read the ledger balance line", "shop.ledger.read_balance").in_name,
            inputs("read the ledger balance line", "shop.ledger.readline").in_name);
  auto locks = fqns(*index, retriever.retrieve("how is the ledger file locked", 5, false, true));
  EXPECT_EQ(std::count(locks.begin(), locks.end(), "shop.ledger.lock"), 1);

  auto partial = retriever.retrieve("cart zeppelin", 5, false, true);
  EXPECT_FALSE(partial.hits.empty());
  EXPECT_EQ(partial.shortfall, Shortfall::words_unmatched);
  EXPECT_THAT(partial.unmatched, ElementsAre("zeppelin"));
  auto none = retriever.retrieve("zeppelin", 5, false, true);
  EXPECT_TRUE(none.hits.empty());
  EXPECT_EQ(none.shortfall, Shortfall::no_symbol_matches);
}

TEST(HybridRetriever, SaysTwoWordsBeyondTheOneWordHits) {
  indexer_test::TempRepo repo("shop");
  // 110 names that say "balance" outrank, over the question's words, the one function whose
  // docstring says both "read" and "archive", words each said by 150 other docstrings.
  std::string code;
  for (int i = 0; i < 110; ++i) code += "def balance_" + std::to_string(i) + "():\n    pass\n";
  for (int i = 0; i < 150; ++i) {
    code += "def reader_" + std::to_string(i) + "():\n    \"\"\"Read a row.\"\"\"\n";
    code += "def store_" + std::to_string(i) + "():\n    \"\"\"Keep an archive.\"\"\"\n";
  }
  for (int i = 0; i < 100; ++i) code += "def item_" + std::to_string(i) + "():\n    pass\n";
  code += "def restore():\n    \"\"\"Read the entries back from an archive.\"\"\"\n";
  repo.write("src/shop/books.py", code);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto all = retriever.candidates("read the balance from the archive", false);
  auto restore = std::find_if(all.begin(), all.end(),
                              [](const auto& c) { return c.fqn == "shop.books.restore"; });
  ASSERT_NE(restore, all.end());
  EXPECT_EQ(restore->inputs.text, 0);  // beyond the search over all the words
  EXPECT_EQ(restore->inputs.paired, 1.0);
  auto one_word = std::find_if(all.begin(), all.end(),
                               [](const auto& c) { return c.fqn == "shop.books.reader_0"; });
  EXPECT_TRUE(one_word == all.end() || one_word->inputs.paired == 0);
}

TEST(HybridRetriever, ReadsWhatAPackageOffers) {
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/__init__.py", "from .ledger import read_balance\nfrom .audit import *\n");
  repo.write("src/shop/audit.py", "def check_balance():\n    \"\"\"Audit the ledger.\"\"\"\n");
  repo.write("src/shop/ledger.py",
             "def read_balance(path):\n    \"\"\"Read the ledger balance.\"\"\"\n"
             "class Ledger:\n    def _balance(self):\n        \"\"\"The ledger balance.\"\"\"\n"
             "    def __len__(self):\n        \"\"\"The ledger's rows.\"\"\"\n");
  repo.write("src/shop/report.py", "from shop.ledger import read_balance\n");
  repo.write("src/shop/_books.py", "def balance_of(path):\n    \"\"\"A ledger balance.\"\"\"\n");
  repo.write("src/vault/seal.go",
             "package vault\n\n// Balance of the ledger.\nfunc Balance() {}\n");
  // Exported by case, but importable only inside the tree that holds the folder.
  repo.write("src/vault/internal/books/books.go",
             "package books\n\n// Tally of the ledger.\nfunc Tally() {}\n");
  repo.write("src/vendor/ledgerlib/ledger.go",
             "package ledgerlib\n\n// Rows of the ledger.\nfunc Rows() {}\n");
  repo.write("src/vault/internals/open.go",
             "package internals\n\n// Rows of the ledger, opened.\nfunc Rows() {}\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  std::map<std::string, RerankInputs> seen;
  for (const auto& c : retriever.candidates("ledger balance rows", false)) seen[c.fqn] = c.inputs;
  ASSERT_TRUE(seen.count("shop.ledger.read_balance"));
  const auto& offered = seen["shop.ledger.read_balance"];
  EXPECT_EQ(offered.importers, std::log2(3.0));  // the package and report.py
  EXPECT_EQ(offered.reexported, 1);
  EXPECT_EQ(offered.public_name, 1);
  EXPECT_EQ(seen["shop.ledger.Ledger.__len__"].public_name, 1);  // a special name is API
  EXPECT_EQ(seen["shop.audit.check_balance"].reexported, 1);     // by a star import
  EXPECT_EQ(seen["shop.ledger.Ledger.__len__"].reexported, 0);   // not a top-level name
  for (const auto* hidden : {"shop.ledger.Ledger._balance", "shop._books.balance_of"}) {
    ASSERT_TRUE(seen.count(hidden)) << hidden;
    EXPECT_EQ(seen[hidden].public_name, 0) << hidden;
    EXPECT_EQ(seen[hidden].reexported, 0) << hidden;
  }
  EXPECT_EQ(seen["vault.Balance"].public_name, 0);  // Go says it by case, another input
  EXPECT_EQ(seen["vault.Balance"].exported, 1);
  EXPECT_EQ(seen["internals.Rows"].exported, 1);  // a folder merely named like it
  for (const auto* hidden : {"books.Tally", "ledgerlib.Rows"}) {
    ASSERT_TRUE(seen.count(hidden)) << hidden;
    EXPECT_EQ(seen[hidden].exported, 0) << hidden;
  }
}

TEST(TermMatch, InflectionsAndRunTogetherNamesMeet) {
  using namespace orvane_tamsel::workers::detail;
  auto decompressor = fqn_stems("zipfile._get_decompressor");
  EXPECT_TRUE(meets(stem("decompressed"), decompressor));
  EXPECT_TRUE(meets(stem("tasks"), fqn_stems("asyncio.tasks.Task.cancel")));
  EXPECT_TRUE(meets(stem("parsed"), fqn_stems("argparse.ArgumentParser.parse_args")));
  EXPECT_TRUE(meets(stem("queries"), fqn_stems("db.Query")));
  EXPECT_EQ(stem("cancelled"), "cancel");
  EXPECT_EQ(stem("applied"), stem("apply"));
  EXPECT_FALSE(meets(stem("cat"), fqn_stems("shop.Category")));
  EXPECT_TRUE(inside_name(stem("split"), "urlsplit"));
  EXPECT_FALSE(inside_name(stem("url"), "urlsplit"));
  // Module words are left out of the name match: only the part inside the file names the symbol.
  EXPECT_EQ(inside_module("shop.cart.Cart.total", "src/shop/cart.py"), "Cart.total");
  EXPECT_EQ(inside_module("logging.Formatter.format", "logging/__init__.py"), "Formatter.format");
  EXPECT_EQ(inside_module("http.client.HTTPResponse.read", "http/client.py"), "HTTPResponse.read");
  EXPECT_EQ(inside_module("shop.carts", "shop/cart.py"), "shop.carts");
  // A Go package is its folder.
  EXPECT_EQ(inside_module("http.Client.Do", "net/http/client.go"), "Client.Do");
  // A shortened owner name is named by the word it shortens; words under three letters and
  // functions without an owner say nothing.
  std::vector<std::string> terms{"add", "two", "rational", "numbers"};
  EXPECT_EQ(owner_named("Rat.Add", terms), 1.0);
  EXPECT_EQ(owner_named("Float.Add", terms), 0.0);
  EXPECT_EQ(owner_named("outer.RatNum.add", terms), 1.0);
  EXPECT_EQ(owner_named("RWMutex.Unlock", {"release", "write", "lock", "mutexes"}), 0.0);
  EXPECT_EQ(owner_named("Addr.Port", {"port", "address"}), 1.0);
  EXPECT_EQ(owner_named("ConnPool.get", {"connection", "pool"}), 0.5);
  EXPECT_EQ(owner_named("add", terms), 0.0);
}

TEST(TermExpansion, TheCodeBasesOwnWordReachesNamesTheQuestionDoesNotSpell) {
  indexer_test::TempRepo repo("shop");
  std::string access =
      "def has_perm(user, codename):\n    \"\"\"Whether the user holds the permission.\"\"\"\n"
      "def grant_perm(user, codename):\n    \"\"\"Give the user a permission.\"\"\"\n"
      "def revoke_perm(user, codename):\n    \"\"\"Take a permission away.\"\"\"\n"
      "def perm_codenames():\n    \"\"\"The codenames, sorted.\"\"\"\n";
  // Many other names, so that "perm" is specific to the symbols described with "permission".
  for (int i = 0; i < 40; ++i) {
    access += "def item_" + std::to_string(i) + "():\n    \"\"\"Return an item.\"\"\"\n";
  }
  repo.write("src/shop/access.py", access);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());

  auto terms = query_terms("which permissions does a user have");
  EXPECT_THAT(detail::expansions(*index, terms), ElementsAre("perm"));
  // No word of the code base is paired often enough with "item" or "codenames" to be added.
  EXPECT_TRUE(detail::expansions(*index, query_terms("list the items")).empty());

  // perm_codenames never says "permission"; only the paired name word finds it.
  HybridRetriever retriever(*index, std::nullopt, index::open_learned_embedder(repo.root()),
                            word_sense_embedder());
  auto names = fqns(*index, retriever.retrieve("which permissions exist", 10, false, true));
  EXPECT_THAT(names, Contains("shop.access.perm_codenames"));
}

TEST(WordNetEmbedder, ReadsTheDictionaryFilesFirstLineToLast) {
  // A dictionary of a few words in the Debian files' layout: sorted index lines after a licence,
  // synsets found by their byte offset in the data file, exceptions for irregular forms.
  indexer_test::TempRepo dict;
  auto offset = [](std::size_t at) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%08zu", at);
    return std::string(buf);
  };
  const std::string licence = "  1 This software and database is being provided\n";
  std::string noun = licence, verb = licence;
  auto computation = offset(noun.size());
  noun += computation + " 04 n 01 computation 0 000 | the act\n";
  auto abide = offset(verb.size());
  verb += abide + " 31 v 01 abide 0 000 | put up with\n";
  auto compute = offset(verb.size());
  verb += compute + " 31 v 02 compute 0 calculate 0 001 + " + computation + " n 0101 | reckon\n";
  auto run = offset(verb.size()), zoom = offset(verb.size() + 100);
  dict.write("data.noun", noun);
  dict.write("data.verb", verb + run + " 38 v 01 run 0 000 | move fast\n" + std::string(60, ' ') +
                              "\n" + zoom + " 38 v 01 zoom 0 000 | rise\n");
  dict.write("index.noun", licence + "computation n 1 0 1 0 " + computation + "\n");
  dict.write("index.verb", licence + "abide v 1 0 1 0 " + abide + "\ncalculate v 1 1 + 1 0 " +
                               compute + "\ncompute v 1 0 1 0 " + compute + "\nrun v 1 0 1 0 " +
                               run + "\nzoom v 1 0 1 0 " + zoom + "\n");
  dict.write("verb.exc", "ran run\n");
  for (const char* pos : {"adj", "adv"}) {
    dict.write(std::string("index.") + pos, licence);
    dict.write(std::string("data.") + pos, licence);
  }
  WordNetEmbedder wordnet(dict.root());
  ASSERT_TRUE(wordnet.available());
  EXPECT_FALSE(WordNetEmbedder("/nonexistent").available());
  using index::cosine;
  for (auto [a, b] : {std::pair{"abides", "abide"},
                      {"zooming", "zoom"},
                      {"calculated", "compute"},
                      {"ran", "run"},
                      {"computation", "compute"}}) {
    EXPECT_GT(cosine(wordnet.embed(a), wordnet.embed(b)), 0.2) << a << " " << b;
  }
  EXPECT_EQ(cosine(wordnet.embed("abide"), wordnet.embed("zoom")), 0.0);
  EXPECT_TRUE(wordnet.verb_first("abide"));
  EXPECT_FALSE(wordnet.verb_first("computation"));
  EXPECT_FALSE(wordnet.verb_first("zeppelin"));  // unknown
}

TEST(WordNetEmbedder, SharedSensesAndInflections) {
  WordNetEmbedder wordnet(WordNetEmbedder::default_dictionary());
  if (!wordnet.available()) GTEST_SKIP() << "wordnet-base is not installed";
  using index::cosine;
  auto asked = wordnet.embed("how is the total calculated");
  // A synonym under an inflection, inside a code name; an unrelated name shares nothing.
  EXPECT_GT(cosine(asked, wordnet.embed("Cart.compute_total")), 0.5);
  EXPECT_GT(cosine(asked, wordnet.embed("computeTotal")),
            cosine(asked, wordnet.embed("render_page")) + 0.3);
  // A derivationally related word: the noun of the verb asked about.
  EXPECT_GT(cosine(wordnet.embed("decompressed"), wordnet.embed("decompression")), 0.2);
  EXPECT_EQ(cosine(wordnet.embed("decompressed"), wordnet.embed("zeppelin_hangar")), 0.0);
  // Stop words and glue carry no meaning.
  auto none = wordnet.embed("how does the a of");
  EXPECT_TRUE(std::all_of(none.begin(), none.end(), [](float x) { return x == 0.0F; }));
}

TEST(HybridRetriever, ATextSayingMoreOfTheQuestionLeads) {
  indexer_test::TempRepo repo("shop");
  // "seal" and "envelope" are said by many symbols, "wax" by two: the fused order puts first the
  // name that says the rare word, the rerank the text that says the whole question.
  std::string code =
      "def wax_polish():\n    \"\"\"Polish with wax until the wax shines.\"\"\"\n"
      "def close_letter():\n    \"\"\"Seal the envelope with wax.\"\"\"\n";
  for (int i = 0; i < 150; ++i)
    code += "def box_" + std::to_string(i) + "():\n  \"\"\"Seal an envelope.\"\"\"\n";
  repo.write("src/shop/post.py", code);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto first = [&](bool rerank) {
    return fqns(*index, retriever.retrieve("seal the envelope with wax", 1, false, rerank));
  };
  EXPECT_THAT(first(false), ElementsAre("shop.post.wax_polish"));
  EXPECT_THAT(first(true), ElementsAre("shop.post.close_letter"));
}

TEST(HybridRetriever, AQuestionsFormAsksForAPredicateOrAnErrorType) {
  for (const char* name : {"is_valid", "IsDigit", "hasPrefix", "must_update", "Accepts", "is"}) {
    EXPECT_TRUE(predicate_name(name)) << name;
  }
  for (const char* name : {"Isolation", "island", "hashable", "Canvas", "mayor", "issue"}) {
    EXPECT_FALSE(predicate_name(name)) << name;
  }
  EXPECT_TRUE(question_form("Is a path absolute?").yes_no);
  EXPECT_FALSE(question_form("check whether a path is absolute").yes_no);  // not its opening
  EXPECT_FALSE(question_form("island of stability").yes_no);
  EXPECT_TRUE(question_form("what is raised when a key is missing").error);
  EXPECT_FALSE(question_form("errorless parse").error);  // whole words only

  indexer_test::TempRepo repo("shop");
  repo.write(
      "src/shop/auth.py",
      "class PasswordTooShortError(ValueError):\n    \"\"\"The password is too short.\"\"\"\n"
      "def check_password(user, password):\n    \"\"\"Check the user's password.\"\"\"\n"
      "def has_usable_password(user):\n    \"\"\"The user can log in with a password.\"\"\"\n");
  repo.write("src/vault/open.go",
             "package vault\n\n// PathError says which path could not be opened.\n"
             "type PathError struct{}\n\n// IsOpen says whether the path is open.\n"
             "func IsOpen(path string) bool { return false }\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto inputs = [&](const std::string& question) {
    std::map<std::string, RerankInputs> seen;
    for (const auto& c : retriever.candidates(question, false)) seen[c.fqn] = c.inputs;
    return seen;
  };
  auto asked = inputs("can the user log in with a password, is the path open");
  EXPECT_EQ(asked["shop.auth.has_usable_password"].predicate, 1);
  EXPECT_EQ(asked["vault.IsOpen"].predicate, 1);
  EXPECT_EQ(asked["shop.auth.check_password"].predicate, 0);
  EXPECT_EQ(inputs("log in with a password")["shop.auth.has_usable_password"].predicate, 0);
  auto failed = inputs("error when the password is too short or the path cannot be opened");
  EXPECT_EQ(failed["shop.auth.PasswordTooShortError"].error_type, 1);
  EXPECT_EQ(failed["vault.PathError"].error_type, 1);
  EXPECT_EQ(failed["shop.auth.check_password"].error_type, 0);
  EXPECT_EQ(inputs("password too short")["shop.auth.PasswordTooShortError"].error_type, 0);
}

TEST(HybridRetriever, AnExceptionNamedForWhatWentWrongAnswersAFailure) {
  EXPECT_THAT(class_bases("class Error( errors.MessageError, Generic[T], metaclass=Meta)"),
              ElementsAre("MessageError", "Generic"));
  EXPECT_THAT(class_bases("type Handler func(err LinkError)"), ElementsAre());
  EXPECT_TRUE(error_type("ShelfEmpty", "class ShelfEmpty(Exception)"));
  EXPECT_TRUE(error_type("InvalidDateDefect", "class InvalidDateDefect(errors.HeaderError)"));
  EXPECT_TRUE(error_type("Gone", "class Gone(Base, UserWarning, metaclass=Meta)"));
  EXPECT_TRUE(error_type("PathError", "type PathError struct{}"));
  EXPECT_FALSE(error_type("Shelf", "class Shelf(Generic[T], metaclass=MetaError)"));
  EXPECT_FALSE(error_type("Handler", "type Handler func(err LinkError)"));  // no class
  EXPECT_TRUE(question_form("email header whose date cannot be parsed").failure);
  EXPECT_FALSE(question_form("error when a key is missing").failure);  // says error

  // Two classes with the same words and doc, listed first by the fusion in the order written:
  // the exception leads after the rerank, asked with or without the word error.
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/stock.py",
             "class EmptyShelf:\n  \"\"\"Taking from an empty shelf.\"\"\"\n"
             "class ShelfEmpty(Exception):\n  \"\"\"Taking from an empty shelf.\"\"\"\n"
             "def restock(shelf):\n  \"\"\"Fill a shelf.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto first = [&](const std::string& question, bool rerank) {
    return fqns(*index, retriever.retrieve(question, 1, false, rerank));
  };
  for (const char* question :
       {"taking from an empty shelf failed", "error when taking from an empty shelf"}) {
    EXPECT_THAT(first(question, false), ElementsAre("shop.stock.EmptyShelf")) << question;
    EXPECT_THAT(first(question, true), ElementsAre("shop.stock.ShelfEmpty")) << question;
  }
}

TEST(HybridRetriever, CodeAUserCannotCallFollowsTheCodeTheyCall) {
  indexer_test::TempRepo repo;
  // The generated Windows wrapper and the internal helper say more of the question than the
  // function a user of the package calls.
  repo.write(
      "src/osenv/env.go",
      "package osenv\n// Setenv sets the value of the environment variable named by the key.\n"
      "func Setenv(key, value string) error { return nil }\n");
  const std::string wrapper =
      "// Code generated by mksyscall; DO NOT EDIT.\n\npackage osenv\n"
      "// SetEnvironmentVariable sets an environment variable.\n"
      "func SetEnvironmentVariable(name, value string) error { return nil }\n";
  repo.write("src/osenv/zsyscall_windows.go", wrapper);
  repo.write("src/osenv/internal/store/store.go",
             "package store\n// SetEnvironmentValue sets an environment variable's value.\n"
             "func SetEnvironmentValue(name, value string) {}\n");
  repo.write("src/osenv/env_plan9.go",
             "//go:build plan9\n\npackage osenv\n// Clearenv deletes every variable.\nfunc "
             "Clearenv() {}\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto flags = [&](const std::string& asked, const std::string& fqn) {
    for (const auto& c : retriever.candidates(asked, false)) {
      if (c.fqn == fqn)
        return std::vector{c.inputs.internal, c.inputs.generated, c.inputs.elsewhere};
    }
    return std::vector<double>{};
  };
  const std::string asked = "set an environment variable";
  EXPECT_THAT(flags(asked, "osenv.SetEnvironmentVariable"), ElementsAre(0, 1, 1));
  EXPECT_THAT(flags(asked, "store.SetEnvironmentValue"), ElementsAre(1, 0, 0));
  EXPECT_THAT(flags("delete every variable", "osenv.Clearenv"), ElementsAre(0, 0, 1));
  EXPECT_THAT(fqns(*index, retriever.retrieve(asked, 1, false, false)),
              ElementsAre("osenv.SetEnvironmentVariable"));
  EXPECT_THAT(fqns(*index, retriever.retrieve(asked, 1, false, true)), ElementsAre("osenv.Setenv"));
  // Written by hand from now on: an update clears the mark.
  repo.write("src/osenv/zsyscall_windows.go", wrapper.substr(wrapper.find("\n\n") + 2));
  indexer::update_index(repo.root());
  EXPECT_THAT(flags(asked, "osenv.SetEnvironmentVariable"), ElementsAre(0, 0, 1));
}

TEST(HybridRetriever, AWordFewSiblingsSayTellsTheAnswerFromThem) {
  // Terms said by every sibling, by two, by one; a name defined twice (one per platform) counts
  // once; a symbol alone in its home has no sibling to be told from.
  std::vector<SiblingView> head = {{"q.Q.put", "q.py", 0b011},  {"q.Q.get", "q.py", 0b101},
                                   {"q.Q.size", "q.py", 0b011}, {"q.Q.empty", "q.py", 0b001},
                                   {"q.Q.get", "q.py", 0b101},  {"lone.take", "lone.py", 0b111}};
  auto said = sibling_terms(head, 3);
  EXPECT_NEAR(said[1], std::log(5.0 / 2) / 3, 1e-9);
  EXPECT_NEAR(said[0], std::log(5.0 / 3) / 3, 1e-9);
  EXPECT_THAT(std::vector(said.begin() + 3, said.end()), ElementsAre(0, said[1], 0));

  // Through the retriever: "drone" is a little more common in the repository than "courier", so
  // the fused order puts first a method saying "courier", which every other method of the depot
  // says too; the one saying "drone" is told from them.
  indexer_test::TempRepo repo("shop");
  std::string depot = "class Depot:\n";
  for (int i = 0; i < 5; ++i) {
    depot += "    def " + (i < 4 ? "route_" + std::to_string(i) : std::string("dispatch")) +
             "(self):\n        \"\"\"Hand the parcel to a " + (i < 4 ? "courier" : "drone") +
             ".\"\"\"\n";
  }
  repo.write("src/shop/depot.py", depot);
  std::string fleet;
  for (int i = 0; i < 40; ++i) {
    fleet += "def unit_" + std::to_string(i) + "():\n    \"\"\"A " + (i < 6 ? "drone" : "van") +
             ".\"\"\"\n";
  }
  repo.write("src/shop/fleet.py", fleet);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto first = [&](bool rerank) {
    return fqns(*index, retriever.retrieve("parcel courier drone", 1, false, rerank));
  };
  EXPECT_THAT(first(false), ElementsAre("shop.depot.Depot.route_0"));
  EXPECT_THAT(first(true), ElementsAre("shop.depot.Depot.dispatch"));
}

TEST(HybridRetriever, ThePieceTellingSiblingNamesApart) {
  // un- said by "remove", or not said at all; a word said; names in two homes or owners, or
  // differing by more than one piece, are no siblings to tell apart.
  std::vector<PieceView> head = {{"f.register_format", "f.py"}, {"f.unregister_format", "f.py"},
                                 {"f.Codec.register", "f.py"},  {"g.register_format_v2", "g.py"},
                                 {"f.format_names", "f.py"},    {"r.Int63", "r.go"},
                                 {"r.Int63n", "r.go"}};
  EXPECT_THAT(telling_pieces(head, "remove a registered format"),
              ElementsAre(-1, 1, 0, 0, 0, 0, 0));
  EXPECT_THAT(telling_pieces(head, "Register a format"), ElementsAre(1, -1, 0, 0, 0, 0, 0));
  EXPECT_THAT(telling_pieces(head, "random int64 below n"), ElementsAre(1, -1, 0, 0, 0, -1, 1));
  // A cue of a few letters is a whole word ("up" is no update); a cue of two words is said as
  // both; the negated word itself said counts.
  std::vector<PieceView> cache = {{"c.C.incr_version", "c.py"}, {"c.C.version", "c.py"},
                                  {"c.S.disconnect", "c.py"},   {"c.S.connect", "c.py"},
                                  {"c.F.form_invalid", "c.py"}, {"c.F.form_valid", "c.py"}};
  EXPECT_THAT(telling_pieces(cache, "update the version"), ElementsAre(-1, 1, -1, 1, -1, 1));
  EXPECT_THAT(telling_pieces(cache, "bump the version up"), ElementsAre(1, -1, -1, 1, -1, 1));
  EXPECT_THAT(telling_pieces(cache, "turn off a receiver when the form is invalid"),
              ElementsAre(-1, 1, 1, -1, 1, -1));
  // Swapped words weigh the one said against the other where one is a direction word.
  std::vector<PieceView> files = {
      {"s.C.copy_file", "s.py"}, {"s.C.link_file", "s.py"}, {"s.C.read_file", "s.py"}};
  EXPECT_THAT(telling_pieces(files, "symlink a file"), ElementsAre(-1, 1, -1));
  EXPECT_THAT(telling_pieces(files, "copy a file"), ElementsAre(1, -1, 0));

  // Through the retriever: the registering function's name says the question's words too.
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/formats.py",
             "def register_format(name, codec):\n    \"\"\"Register a format by name.\"\"\"\n\n"
             "def unregister_format(name):\n    \"\"\"Forget a format registered by its registered "
             "name.\"\"\"\n\n"
             "def format_names():\n    \"\"\"Names of every format.\"\"\"\n\n"
             "def default_format():\n    \"\"\"The format orders use.\"\"\"\n");
  // A long text saying "remove" once spreads the head: the fused lead shrinks to a few tenths.
  std::string stock = "def audit():\n    \"\"\"Remove";
  for (int i = 0; i < 80; ++i) stock += " shelf" + std::to_string(i);
  repo.write("src/shop/stock.py", stock + ".\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto first = [&](bool rerank) {
    return fqns(*index, retriever.retrieve("remove a registered format", 1, false, rerank));
  };
  EXPECT_THAT(first(false), ElementsAre("shop.formats.register_format"));
  EXPECT_THAT(first(true), ElementsAre("shop.formats.unregister_format"));
}

TEST(HybridRetriever, WhatASiblingsFirstSentenceDoesNotSay) {
  // Both docs say "release"; only unlock's first sentence does. The class says "mutex" too.
  indexer_test::TempRepo repo("shop");
  repo.write(
      "src/shop/guard.py",
      "class Mutex:\n  \"\"\"A mutex.\"\"\"\n  def lock(self):\n    \"\"\"Acquire the "
      "mutex.\n\n    Release it.\"\"\"\n  def unlock(self):\n    \"\"\"Release the mutex.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  std::map<std::string, double> lead;
  for (const auto& c : HybridRetriever(*index, std::nullopt).candidates("release the mutex", false))
    lead[c.fqn] = c.inputs.sibling_lead;
  EXPECT_NEAR(lead["shop.guard.Mutex.unlock"], std::log(4.0 / 2) / 2, 1e-9);
  EXPECT_EQ(lead["shop.guard.Mutex.lock"], 0);  // "mutex" is said by every sibling
}

TEST(HybridRetriever, ANameAndItsFirstSentenceSayWhatASymbolIs) {
  // Bag.elements' doc says every word of the question past its first sentence; Seq.count_of four
  // of five, in its name and first sentence. Thirty units saying "value" spread the fused scores.
  indexer_test::TempRepo repo("shop");
  std::string code =
      "class Bag:\n  def elements(self):\n    \"\"\"Iterate over them.\n\n    Each "
      "appears as many times as its count: a value counted twice appears two "
      "times.\"\"\"\nclass Seq:\n  def count_of(self, value):\n    \"\"\"The times "
      "a value appears.\"\"\"\n";
  for (int i = 0; i < 30; ++i)
    code += "def unit_" + std::to_string(i) + "():\n  \"\"\"A value.\"\"\"\n";
  repo.write("src/shop/bag.py", code);
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  auto first = [&](bool rerank) {
    return fqns(*index,
                retriever.retrieve("count how many times a value appears", 1, false, rerank));
  };
  EXPECT_THAT(first(false), ElementsAre("shop.bag.Bag.elements"));
  EXPECT_THAT(first(true), ElementsAre("shop.bag.Seq.count_of"));
}

TEST(HybridRetriever, AnActionOfAClassIsItsMember) {
  // The class's name says the question's nouns, its member's name none: the member's first
  // sentence says the action. Spelled as code, the class is named as the member's owner.
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/group.py",
             "class WaitGroup:\n  \"\"\"A group of workers to wait for.\n\n  Each worker is "
             "marked finished when done.\"\"\"\n"
             "  def done(self):\n    \"\"\"Mark one finished.\"\"\"\n"
             "class TextBuilder:\n  \"\"\"Builds a text.\"\"\"\n"
             "  def grow(self, n):\n    \"\"\"Reserve capacity before writing.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt);
  for (auto [q, want] : {std::pair{"mark a worker of a wait group finished", "done"},
                         std::pair{"reserve capacity in a TextBuilder before writing", "grow"}}) {
    auto listed = fqns(*index, retriever.retrieve(q, 1, false, true));
    ASSERT_FALSE(listed.empty()) << q;
    EXPECT_TRUE(listed.front().ends_with(std::string(".") + want)) << q << ": " << listed.front();
  }
}

TEST(HybridRetriever, TheQuestionsHeadNounEndsTheAnswersName) {
  auto head = [](std::string_view q) {
    return question_head(q, [](const std::string& w) { return w == "convert"; });
  };
  // A lone word is its own head, stemmed as the names' words are.
  EXPECT_EQ(head("login form of the admin"), head("form"));
  EXPECT_EQ(head("a JOIN clause in a generated query"), head("clause"));
  EXPECT_EQ(head("template node converting a datetime"), head("node"));
  EXPECT_EQ(head("groups of users"), head("group"));
  EXPECT_EQ(head("convert rasters into a format"), "");  // an imperative
  EXPECT_EQ(head("store a raster"), "");                 // a determiner follows a verb
  EXPECT_EQ(head("is the queue full"), "");
  EXPECT_EQ(head("how are rasters stored"), "");
  EXPECT_TRUE(ends_on_head("AdminAuthenticationForm", true, head("form")));
  EXPECT_TRUE(ends_on_head("get_format_modules", false, head("modules")));
  EXPECT_FALSE(ends_on_head("String", false, head("string")));  // says no more than the word
  EXPECT_TRUE(ends_on_head("Group", true, head("group")));
  EXPECT_FALSE(ends_on_head("form_login", false, head("form")));
  // Or a base its class header lists ends on it.
  EXPECT_TRUE(ends_on_head("SupportsInt", true, head("protocol"), "class SupportsInt(Protocol)"));
  EXPECT_FALSE(ends_on_head("SupportsInt", true, head("protocol"), "class SupportsInt(Sized)"));

  // Two classes with the same words and doc, listed first by the fusion in the order written:
  // the one whose name ends on the head leads after the rerank.
  auto wordnet = word_sense_embedder();
  if (!wordnet) GTEST_SKIP() << "wordnet-base is not installed";
  indexer_test::TempRepo repo("shop");
  repo.write("src/shop/admin.py",
             "class FormAdminLogin:\n  \"\"\"Login form of the admin.\"\"\"\n"
             "class AdminLoginForm:\n  \"\"\"Login form of the admin.\"\"\"\n");
  indexer::update_index(repo.root());
  auto index = index::open_repository(repo.root());
  HybridRetriever retriever(*index, std::nullopt, nullptr, wordnet);
  std::map<std::string, double> named;
  for (const auto& c : retriever.candidates("login form of the admin", false))
    named[c.fqn] = c.inputs.head_named;
  EXPECT_EQ(named["shop.admin.AdminLoginForm"], 1);
  EXPECT_EQ(named["shop.admin.FormAdminLogin"], 0);
  auto first = [&](bool rerank) {
    return fqns(*index, retriever.retrieve("login form of the admin", 1, false, rerank));
  };
  EXPECT_THAT(first(false), ElementsAre("shop.admin.FormAdminLogin"));
  EXPECT_THAT(first(true), ElementsAre("shop.admin.AdminLoginForm"));
}
