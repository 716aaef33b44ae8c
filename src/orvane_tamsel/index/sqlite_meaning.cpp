#include "orvane_tamsel/index/sqlite_meaning.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "orvane_tamsel/index/meaning_words.h"

namespace orvane_tamsel::index {

const char* const MEANING_TABLES = R"sql(
CREATE TABLE IF NOT EXISTS meaning_words(
  word TEXT PRIMARY KEY,
  weight REAL NOT NULL,
  vector BLOB NOT NULL) WITHOUT ROWID;
-- The rows of a file's production symbols of a retrievable kind (symbols.file_id = file_id), in
-- one blob of pack_symbol_rows, and the generation of the pass that last wrote them: a reader
-- loads a file's rows from one value, and one holding an older generation reads only the files
-- written since. A file whose symbols lost every row keeps an empty blob until the words are
-- learned again, so that such a reader drops what it held.
CREATE TABLE IF NOT EXISTS meaning_files(
  file_id INTEGER PRIMARY KEY,
  generation INTEGER NOT NULL,
  vectors BLOB NOT NULL);
CREATE INDEX IF NOT EXISTS meaning_files_generation ON meaning_files(generation);
-- The symbols whose row a pass wrote or dropped since the words were learned.
CREATE TABLE IF NOT EXISTS meaning_changes(symbol_id INTEGER PRIMARY KEY);
-- Files that lost symbols outside a write of their own (removed, or a declaration merged away):
-- the next pass writes their rows again.
CREATE TABLE IF NOT EXISTS meaning_pending(file_id INTEGER PRIMARY KEY);
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

const char* const NOTE_GONE_SYMBOLS = R"sql(
CREATE TEMP TRIGGER IF NOT EXISTS symbol_vector_gone AFTER DELETE ON symbols
  WHEN EXISTS (SELECT 1 FROM meaning_files WHERE file_id = old.file_id)
  BEGIN
    INSERT OR IGNORE INTO meaning_pending VALUES(old.file_id);
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
  // Room for every row at once (the lengths need no blob read): growing the map as it fills
  // rehashes it a dozen times.
  auto size = db.prepare("SELECT sum(length(vectors)) FROM meaning_files");
  if (size.step() && into.dims > 0) {
    auto n = static_cast<std::size_t>(size.integer(0)) /
             (sizeof(SymbolId) + 1 + sizeof(float) + into.dims);
    into.symbol_ids.reserve(n);
    into.symbol_is_test.reserve(n);
    into.symbol_scales.reserve(n);
    into.symbol_sizes.reserve(n);
    into.symbol_files.reserve(n);
    into.symbols.reserve(n * into.dims);
    into.symbol_rows.reserve(n);
  }
  auto st = db.prepare("SELECT file_id, vectors FROM meaning_files");
  while (st.step()) add_packed_rows(st.blob(1), st.integer(0), into);
}

void apply_meaning_changes(Database& db, std::int64_t generation, MeaningVectors& into) {
  auto st = db.prepare("SELECT file_id, vectors FROM meaning_files WHERE generation > ?");
  st.bind(1, generation);
  std::vector<std::pair<std::int64_t, std::string>> written;
  std::set<std::int64_t> files;
  while (st.step()) {
    written.emplace_back(st.integer(0), std::string(st.blob(1)));
    files.insert(written.back().first);
  }
  // Every old row goes first: a symbol may have moved to another of the files.
  into.remove_files(files);
  for (const auto& [file, blob] : written) add_packed_rows(blob, file, into);
}

std::vector<std::int64_t> take_pending_meaning_files(Database& db) {
  std::vector<std::int64_t> files;
  for (auto st = db.prepare("SELECT file_id FROM meaning_pending"); st.step();) {
    files.push_back(st.integer(0));
  }
  if (!files.empty()) db.exec("DELETE FROM meaning_pending");
  return files;
}

void store_meaning_words(Database& db, const MeaningVectors& words, std::int64_t learned_from,
                         std::int64_t generation) {
  db.exec(
      "DELETE FROM meaning_words; DELETE FROM meaning_files; DELETE FROM meaning_changes; "
      "DELETE FROM meaning_pending;");
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

MeaningFileWriter::MeaningFileWriter(Database& db, std::int64_t generation)
    : old_(db.prepare("SELECT vectors FROM meaning_files WHERE file_id = ?")),
      put_(db.prepare("INSERT OR REPLACE INTO meaning_files VALUES(?, ?, ?)")),
      changed_(db.prepare("INSERT OR IGNORE INTO meaning_changes VALUES(?)")),
      generation_(generation) {}

void MeaningFileWriter::put(std::int64_t file_id, const MeaningVectors& rows) {
  MeaningVectors old;
  old.dims = rows.dims;
  old_.bind(1, file_id);
  const bool had = old_.step();
  if (had) add_packed_rows(old_.blob(0), file_id, old);
  old_.reset();
  std::vector<SymbolId> changed;
  for (std::size_t r = 0; r < rows.symbol_ids.size(); ++r) {
    auto it = old.symbol_rows.find(rows.symbol_ids[r]);
    if (it == old.symbol_rows.end() || old.symbol_is_test[it->second] != rows.symbol_is_test[r] ||
        std::memcmp(&old.symbol_scales[it->second], &rows.symbol_scales[r], sizeof(float)) != 0 ||
        std::memcmp(rows.symbols.data() + r * rows.dims,
                    old.symbols.data() + std::size_t{it->second} * old.dims, rows.dims) != 0) {
      changed.push_back(rows.symbol_ids[r]);
    }
    if (it != old.symbol_rows.end()) old.remove_symbol(rows.symbol_ids[r]);
  }
  changed.insert(changed.end(), old.symbol_ids.begin(), old.symbol_ids.end());  // gone
  if (changed.empty()) return;
  put_.bind(1, file_id).bind(2, generation_).bind_blob(3, pack_symbol_rows(rows)).run();
  for (auto id : changed) changed_.bind(1, id).run();
}

void set_meaning_generation(Database& db, std::int64_t generation) {
  put_meta(db, GENERATION_KEY, generation);
}

}  // namespace orvane_tamsel::index
