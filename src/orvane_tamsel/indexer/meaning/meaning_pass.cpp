#include "orvane_tamsel/indexer/meaning/meaning_pass.h"

#include <set>

#include "orvane_tamsel/index/meaning_words.h"
#include "orvane_tamsel/index/rollback.h"
#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/indexer/meaning/call_lines.h"
#include "orvane_tamsel/indexer/meaning/word_vectors.h"

namespace orvane_tamsel::indexer::meaning {

namespace {

// The word vectors are learned again when the code base has grown or shrunk by this factor.
constexpr double RELEARN_FACTOR = 2.0;
// ... or when this share of the symbols they were learned from got other vectors since: words
// new since then are unknown to them.
constexpr double CHANGED_SHARE = 0.25;

// Production symbols only: tests, three in four symbols of Python's standard library, repeat
// the names of what they test, which the text search finds, and their vectors would make every
// reader load four times as much.
const std::string& symbol_select() {
  static const std::string sql =
      "SELECT s.id, s.is_test, s.name, s.parent_fqn, coalesce(s.docstring, ''), "
      "coalesce(s.signature, '') FROM symbols s WHERE " +
      index::production_symbol_sql("s");
  return sql;
}

index::SymbolText text_of(const index::Statement& st) {
  return {st.text(2), st.text(3), st.text(4), st.text(5)};
}

// The writer keeps the count; an index written before it did is counted once.
std::int64_t production_symbols(index::Database& db) {
  if (auto stored = index::stored_production_symbols(db)) return *stored;
  auto st = db.prepare("SELECT count(*) FROM (" + symbol_select() + ")");
  return st.step() ? st.integer(0) : 0;
}

// A symbol's context is what it says of itself and what the lines calling it say.
index::MeaningVectors learn(index::Database& db, const std::filesystem::path& root) {
  auto calls = call_line_words(db, root);
  std::vector<std::vector<std::string>> contexts;
  auto st = db.prepare(symbol_select());
  while (st.step()) {
    auto words = index::context_words(text_of(st));
    if (auto it = calls.find(st.integer(0)); it != calls.end()) {
      words.insert(words.end(), it->second.begin(), it->second.end());
    }
    contexts.push_back(std::move(words));
  }
  return learn_word_vectors(contexts).value_or(index::MeaningVectors{});
}

// Writes the vector of each symbol the statement yields, and returns their ids; one that no
// known word describes has none.
std::set<index::SymbolId> write_symbols(index::MeaningSymbolWriter& writer,
                                        index::Statement& symbols,
                                        const index::MeaningVectors& words) {
  std::set<index::SymbolId> written;
  while (symbols.step()) {
    auto id = symbols.integer(0);
    writer.put(id, symbols.integer(1) != 0,
               words.text_vector(index::vector_words(text_of(symbols))));
    written.insert(id);
  }
  return written;
}

// Whether the word vectors no longer describe the code base: it has grown or shrunk by
// RELEARN_FACTOR, or a quarter of the symbols they were learned from changed since.
bool relearn(index::Database& db) {
  if (!index::meaning_generation(db)) return true;
  auto learned_from = static_cast<double>(index::meaning_learned_from(db));
  auto now = static_cast<double>(production_symbols(db));
  auto changed = static_cast<double>(index::meaning_changed_since_learning(db));
  return learned_from == 0 || now > RELEARN_FACTOR * learned_from ||
         now * RELEARN_FACTOR < learned_from || changed > CHANGED_SHARE * learned_from;
}

// Gives the symbols of each changed file their vectors from the stored words, and drops the rows
// of symbols no longer production code of a retrievable kind (the writer's trigger dropped those
// of symbols that are gone, and listed them as changes).
void update_files(index::Database& db, index::MeaningSymbolWriter& writer,
                  const std::vector<std::string>& changed_paths) {
  auto words = index::load_meaning_words(db);
  auto of_file =
      db.prepare(symbol_select() + " AND s.file_id = (SELECT id FROM files WHERE path = ?)");
  auto held = db.prepare(
      "SELECT m.symbol_id FROM meaning_symbols m JOIN symbols s ON s.id = m.symbol_id "
      "WHERE s.file_id = (SELECT id FROM files WHERE path = ?)");
  for (const auto& path : changed_paths) {
    std::set<index::SymbolId> had;
    held.bind(1, path);
    while (held.step()) had.insert(held.integer(0));
    held.reset();
    of_file.bind(1, path);
    for (auto id : write_symbols(writer, of_file, words)) had.erase(id);
    of_file.reset();
    for (auto id : had) writer.put(id, false, {});
  }
}

}  // namespace

void update_meaning(index::Database& db, const std::filesystem::path& root,
                    const std::vector<std::string>& changed_paths) {
  if (!can_learn()) return;
  db.exec("BEGIN IMMEDIATE");
  try {
    const auto generation = index::meaning_generation(db).value_or(0) + 1;
    index::MeaningSymbolWriter writer(db, generation);
    if (relearn(db)) {
      index::store_meaning_words(db, learn(db, root), production_symbols(db), generation);
      // The rows as stored, as an update reads them, so either pass gives a symbol one row.
      auto words = index::load_meaning_words(db);
      auto all = db.prepare(symbol_select());
      write_symbols(writer, all, words);
      db.exec("DELETE FROM meaning_changes");
    } else {
      update_files(db, writer, changed_paths);
    }
    index::set_meaning_generation(db, generation);
    db.exec("COMMIT");
  } catch (...) {
    index::rollback_if_open(db);
    throw;
  }
}

}  // namespace orvane_tamsel::indexer::meaning
