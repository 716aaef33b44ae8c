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
// reader load four times as much. What the reference pages say of a symbol is part of its text.
const std::string& symbol_select() {
  static const std::string sql =
      "SELECT s.id, s.is_test, s.name, s.parent_fqn, "
      "coalesce(s.docstring, '') || coalesce(' ' || d.text, ''), coalesce(s.signature, ''), "
      "s.file_id FROM symbols s LEFT JOIN doc_text d ON d.symbol_id = s.id WHERE " +
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

// Adds the row of the symbol the statement is on; a symbol that no known word describes has none.
void add_row(index::MeaningVectors& rows, const index::Statement& symbol,
             const index::MeaningVectors& words) {
  auto row = words.text_vector(index::vector_words(text_of(symbol)));
  if (!row.empty()) rows.add_symbol(symbol.integer(0), symbol.integer(1) != 0, row.data());
}

// Writes the rows of the symbols the statement yields, in order of file and then of id, file by
// file.
void write_files(index::MeaningFileWriter& writer, index::Statement& symbols,
                 const index::MeaningVectors& words) {
  index::MeaningVectors rows;
  rows.dims = words.dims;
  std::int64_t file = 0;
  auto flush = [&] {
    if (file != 0) writer.put(file, rows);
    rows = index::MeaningVectors{};
    rows.dims = words.dims;
  };
  while (symbols.step()) {
    if (symbols.integer(6) != file) {
      flush();
      file = symbols.integer(6);
    }
    add_row(rows, symbols, words);
  }
  flush();
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

// Gives the symbols of each changed file, and of each file the writer listed as having lost
// symbols, their rows from the stored words; a file that is gone keeps none.
void update_files(index::Database& db, index::MeaningFileWriter& writer,
                  const std::vector<std::string>& changed_paths) {
  auto words = index::load_meaning_words(db);
  std::set<std::int64_t> files;
  auto file_id = db.prepare("SELECT id FROM files WHERE path = ?");
  for (const auto& path : changed_paths) {
    file_id.bind(1, path);
    if (file_id.step()) files.insert(file_id.integer(0));
    file_id.reset();
  }
  for (auto id : index::take_pending_meaning_files(db)) files.insert(id);
  auto of_file = db.prepare(symbol_select() + " AND s.file_id = ? ORDER BY s.id");
  for (auto id : files) {
    of_file.bind(1, id);
    index::MeaningVectors rows;
    rows.dims = words.dims;
    while (of_file.step()) add_row(rows, of_file, words);
    of_file.reset();
    writer.put(id, rows);
  }
}

}  // namespace

void update_meaning(index::Database& db, const std::filesystem::path& root,
                    const std::vector<std::string>& changed_paths) {
  if (!can_learn()) return;
  db.exec("BEGIN IMMEDIATE");
  try {
    const auto generation = index::meaning_generation(db).value_or(0) + 1;
    index::MeaningFileWriter writer(db, generation);
    if (relearn(db)) {
      index::store_meaning_words(db, learn(db, root), production_symbols(db), generation);
      // The rows as stored, as an update reads them, so either pass gives a symbol one row.
      auto words = index::load_meaning_words(db);
      auto all = db.prepare(symbol_select() + " ORDER BY s.file_id, s.id");
      write_files(writer, all, words);
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
