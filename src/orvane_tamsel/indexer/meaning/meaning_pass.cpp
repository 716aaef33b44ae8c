#include "orvane_tamsel/indexer/meaning/meaning_pass.h"

#include "orvane_tamsel/index/meaning_words.h"
#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/indexer/meaning/word_vectors.h"

namespace orvane_tamsel::indexer::meaning {

namespace {

// The word vectors are learned again when the code base has grown or shrunk by this factor.
constexpr double RELEARN_FACTOR = 2.0;

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

index::MeaningVectors learn(index::Database& db) {
  std::vector<std::vector<std::string>> contexts;
  auto st = db.prepare(symbol_select());
  while (st.step()) contexts.push_back(index::context_words(text_of(st)));
  return learn_word_vectors(contexts).value_or(index::MeaningVectors{});
}

// Writes the vector of each symbol the statement yields; one that no known word describes has
// none.
void write_symbols(index::Database& db, index::Statement& symbols,
                   const index::MeaningVectors& words) {
  auto put = db.prepare("INSERT OR REPLACE INTO meaning_symbols VALUES(?, ?, ?)");
  auto drop = db.prepare("DELETE FROM meaning_symbols WHERE symbol_id = ?");
  while (symbols.step()) {
    auto v = words.text_vector(index::vector_words(text_of(symbols)));
    if (v.empty()) {
      drop.bind(1, symbols.integer(0)).run();
      continue;
    }
    put.bind(1, symbols.integer(0))
        .bind(2, symbols.integer(1))
        .bind_blob(3, index::row_bytes(v.data(), v.size()))
        .run();
  }
}

}  // namespace

void update_meaning(index::Database& db, const std::vector<std::string>& changed_paths) {
  if (!can_learn()) return;
  db.exec("BEGIN IMMEDIATE");
  try {
    auto learned_from = static_cast<double>(index::meaning_learned_from(db));
    auto now = static_cast<double>(production_symbols(db));
    bool relearn = !index::meaning_generation(db) || learned_from == 0 ||
                   now > RELEARN_FACTOR * learned_from || now * RELEARN_FACTOR < learned_from;
    if (relearn) {
      auto words = learn(db);
      index::store_meaning_words(db, words, static_cast<std::int64_t>(now));
      auto all = db.prepare(symbol_select());
      write_symbols(db, all, words);
    } else {
      // The vectors of removed symbols went with them (the writer's trigger).
      auto words = index::load_meaning_words(db);
      auto of_file =
          db.prepare(symbol_select() + " AND s.file_id = (SELECT id FROM files WHERE path = ?)");
      // A symbol that became test code keeps no vector.
      auto clear = db.prepare(
          "DELETE FROM meaning_symbols WHERE symbol_id IN (SELECT id FROM symbols "
          "WHERE file_id = (SELECT id FROM files WHERE path = ?))");
      for (const auto& path : changed_paths) {
        clear.bind(1, path).run();
        of_file.bind(1, path);
        write_symbols(db, of_file, words);
        of_file.reset();
      }
    }
    index::bump_meaning_generation(db);
    db.exec("COMMIT");
  } catch (...) {
    db.exec("ROLLBACK");
    throw;
  }
}

}  // namespace orvane_tamsel::indexer::meaning
