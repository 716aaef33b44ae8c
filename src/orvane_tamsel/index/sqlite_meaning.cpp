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
)sql";

namespace {

constexpr const char* GENERATION_KEY = "meaning_generation";
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

void read_words(Database& db, MeaningVectors& into) {
  into.dims = static_cast<std::size_t>(meta_integer(db, DIMS_KEY).value_or(0));
  auto st = db.prepare("SELECT word, weight, vector FROM meaning_words");
  std::vector<float> row;
  while (st.step()) {
    if (read_row(st.blob(2), into.dims, row)) {
      into.add_word(st.text(0), static_cast<float>(st.real(1)), row.data());
    }
  }
}

}  // namespace

std::optional<std::int64_t> meaning_generation(Database& db) {
  return meta_integer(db, GENERATION_KEY);
}

std::shared_ptr<const MeaningVectors> load_meaning(Database& db) {
  if (!meaning_generation(db)) return nullptr;
  auto vectors = std::make_shared<MeaningVectors>();
  read_words(db, *vectors);
  auto count = db.prepare("SELECT count(*) FROM meaning_symbols");
  if (count.step()) {
    auto n = static_cast<std::size_t>(count.integer(0));
    vectors->symbol_ids.reserve(n);
    vectors->symbol_is_test.reserve(n);
    vectors->symbols.reserve(n * vectors->dims);
    vectors->symbol_rows.reserve(n);
  }
  auto st = db.prepare("SELECT symbol_id, is_test, vector FROM meaning_symbols");
  std::vector<float> row;
  while (st.step()) {
    if (read_row(st.blob(2), vectors->dims, row)) {
      vectors->add_symbol(st.integer(0), st.integer(1) != 0, row.data());
    }
  }
  return vectors;
}

MeaningVectors load_meaning_words(Database& db) {
  MeaningVectors words;
  read_words(db, words);
  return words;
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

void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from) {
  db.exec("DELETE FROM meaning_words; DELETE FROM meaning_symbols;");
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
}

void bump_meaning_generation(Database& db) {
  put_meta(db, GENERATION_KEY, meaning_generation(db).value_or(0) + 1);
}

}  // namespace orvane_tamsel::index
