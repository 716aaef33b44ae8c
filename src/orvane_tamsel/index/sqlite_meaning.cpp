#include "orvane_tamsel/index/sqlite_meaning.h"

#include <string>

#include "orvane_tamsel/index/meaning_words.h"

namespace orvane_tamsel::index {

const char* const MEANING_TABLES = R"sql(
CREATE TABLE IF NOT EXISTS meaning_words(
  word TEXT PRIMARY KEY,
  weight REAL NOT NULL,
  vector BLOB NOT NULL) WITHOUT ROWID;
-- One row per production symbol of a retrievable kind; symbol_id = symbols.id.
CREATE TABLE IF NOT EXISTS meaning_symbols(
  symbol_id INTEGER PRIMARY KEY,
  is_test INTEGER NOT NULL,
  vector BLOB NOT NULL);
-- The symbols whose row a pass wrote or dropped since the words were learned, with that pass's
-- generation: a reader holding an older generation reads only these.
CREATE TABLE IF NOT EXISTS meaning_changes(
  symbol_id INTEGER PRIMARY KEY,
  generation INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS meaning_changes_generation ON meaning_changes(generation);
)sql";

namespace {

constexpr const char* GENERATION_KEY = "meaning_generation";
constexpr const char* WORDS_GENERATION_KEY = "meaning_words_generation";
constexpr const char* DIMS_KEY = "meaning_dims";
constexpr const char* LEARNED_KEY = "meaning_learned_from";
constexpr const char* PRODUCTION_KEY = "production_symbols";

std::optional<std::int64_t> meta_integer(Database& db, const char* key) {
  auto st = db.prepare("SELECT value FROM meta WHERE key = ?");
  st.bind(1, key);
  if (!st.step()) return std::nullopt;
  return std::stoll(st.text(0));
}

void put_meta(Database& db, const char* key, std::int64_t value) {
  auto st = db.prepare("INSERT OR REPLACE INTO meta VALUES(?, ?)");
  st.bind(1, key).bind(2, std::to_string(value)).run();
}

void set_dims(Database& db, MeaningVectors& into) {
  if (into.dims == 0) into.dims = static_cast<std::size_t>(meta_integer(db, DIMS_KEY).value_or(0));
}

void add_words(Statement& st, MeaningVectors& into) {
  std::vector<float> row;
  while (st.step()) {
    if (read_row(st.blob(2), into.dims, row)) {
      into.add_word(st.text(0), static_cast<float>(st.real(1)), row.data());
    }
  }
}

// The symbol row of columns (symbol_id, is_test, vector) added to `into`, kept packed as the
// index stores it; false when the vector is not a row of `into`'s dims.
bool add_symbol_row(const Statement& st, MeaningVectors& into) {
  auto bytes = st.blob(2);
  bool is_test = st.integer(1) != 0;
  if (is_packed_row(bytes, into.dims)) {
    into.add_symbol(st.integer(0), is_test, bytes);
    return true;
  }
  std::vector<float> row;  // as earlier indexes stored it
  if (!read_row(bytes, into.dims, row)) return false;
  into.add_symbol(st.integer(0), is_test, row.data());
  return true;
}

}  // namespace

std::optional<std::int64_t> meaning_generation(Database& db) {
  return meta_integer(db, GENERATION_KEY);
}

std::int64_t meaning_words_generation(Database& db) {
  return meta_integer(db, WORDS_GENERATION_KEY).value_or(0);
}

std::int64_t meaning_learned_from(Database& db) {
  return meta_integer(db, LEARNED_KEY).value_or(0);
}

std::string production_symbol_sql(std::string_view row) {
  std::string r(row);
  std::string sql = "(" + r + ".is_test = 0 AND " + r + ".kind IN (";
  bool first = true;
  for (const auto& k : retrievable_kinds()) {
    sql += (first ? "'" : ", '") + k + "'";
    first = false;
  }
  return sql + "))";
}

std::optional<std::int64_t> stored_production_symbols(Database& db) {
  return meta_integer(db, PRODUCTION_KEY);
}

void store_production_symbols(Database& db, std::int64_t count) {
  put_meta(db, PRODUCTION_KEY, count);
}

const char* const DROP_GONE_VECTORS = R"sql(
CREATE TEMP TRIGGER IF NOT EXISTS symbol_vector_gone AFTER DELETE ON symbols
  WHEN EXISTS (SELECT 1 FROM meaning_symbols WHERE symbol_id = old.id)
  BEGIN
    DELETE FROM meaning_symbols WHERE symbol_id = old.id;
    INSERT OR REPLACE INTO meaning_changes VALUES(old.id, 1 + coalesce(
      (SELECT CAST(value AS INTEGER) FROM meta WHERE key = 'meaning_generation'), 0));
  END;
)sql";

std::int64_t meaning_changed_since_learning(Database& db) {
  auto st = db.prepare("SELECT count(*) FROM meaning_changes");
  return st.step() ? st.integer(0) : 0;
}

MeaningVectors load_meaning_words(Database& db) {
  MeaningVectors words;
  set_dims(db, words);
  auto st = db.prepare("SELECT word, weight, vector FROM meaning_words");
  add_words(st, words);
  return words;
}

void read_meaning_words(Database& db, const std::vector<std::string>& words, MeaningVectors& into) {
  set_dims(db, into);
  if (words.empty()) return;
  std::string sql = "SELECT word, weight, vector FROM meaning_words WHERE word IN (?";
  for (std::size_t i = 1; i < words.size(); ++i) sql += ", ?";
  auto st = db.prepare(sql + ")");
  for (std::size_t i = 0; i < words.size(); ++i) st.bind(static_cast<int>(i + 1), words[i]);
  add_words(st, into);
}

void read_meaning_symbols(Database& db, MeaningVectors& into) {
  auto count = db.prepare("SELECT count(*) FROM meaning_symbols");
  if (count.step()) {
    auto n = static_cast<std::size_t>(count.integer(0));
    into.symbol_ids.reserve(n);
    into.symbol_is_test.reserve(n);
    into.symbol_scales.reserve(n);
    into.symbol_sizes.reserve(n);
    into.symbols.reserve(n * into.dims);
    into.symbol_rows.reserve(n);
  }
  auto st = db.prepare("SELECT symbol_id, is_test, vector FROM meaning_symbols");
  while (st.step()) add_symbol_row(st, into);
}

void apply_meaning_changes(Database& db, std::int64_t generation, MeaningVectors& into) {
  auto st = db.prepare(
      "SELECT c.symbol_id, s.is_test, s.vector FROM meaning_changes c "
      "LEFT JOIN meaning_symbols s ON s.symbol_id = c.symbol_id WHERE c.generation > ?");
  st.bind(1, generation);
  while (st.step()) {
    if (st.is_null(2) || !add_symbol_row(st, into)) into.remove_symbol(st.integer(0));
  }
}

void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from,
                         std::int64_t generation) {
  db.exec("DELETE FROM meaning_words; DELETE FROM meaning_symbols; DELETE FROM meaning_changes;");
  auto st = db.prepare("INSERT INTO meaning_words VALUES(?, ?, ?)");
  for (const auto& [word, row] : words.word_rows) {
    st.bind(1, word)
        .bind(2, static_cast<double>(words.word_weights[row]))
        .bind_blob(3,
                   row_bytes(&words.words[static_cast<std::size_t>(row) * words.dims], words.dims))
        .run();
  }
  put_meta(db, DIMS_KEY, static_cast<std::int64_t>(words.dims));
  put_meta(db, LEARNED_KEY, learned_from);
  put_meta(db, WORDS_GENERATION_KEY, generation);
}

MeaningSymbolWriter::MeaningSymbolWriter(Database& db, std::int64_t generation)
    : old_(db.prepare("SELECT is_test, vector FROM meaning_symbols WHERE symbol_id = ?")),
      put_(db.prepare("INSERT OR REPLACE INTO meaning_symbols VALUES(?, ?, ?)")),
      drop_(db.prepare("DELETE FROM meaning_symbols WHERE symbol_id = ?")),
      changed_(db.prepare("INSERT OR REPLACE INTO meaning_changes VALUES(?, ?)")),
      generation_(generation) {}

void MeaningSymbolWriter::put(SymbolId id, bool is_test, const std::vector<float>& row) {
  old_.bind(1, id);
  bool had = old_.step();
  std::string bytes = row.empty() ? std::string() : row_bytes(row.data(), row.size());
  bool same = had ? (old_.integer(0) != 0) == is_test && old_.blob(1) == bytes : row.empty();
  old_.reset();
  if (same) return;
  if (row.empty()) {
    drop_.bind(1, id).run();
  } else {
    put_.bind(1, id).bind(2, is_test).bind_blob(3, bytes).run();
  }
  changed_.bind(1, id).bind(2, generation_).run();
}

void set_meaning_generation(Database& db, std::int64_t generation) {
  put_meta(db, GENERATION_KEY, generation);
}

}  // namespace orvane_tamsel::index
