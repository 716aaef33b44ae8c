#include "orvane_tamsel/index/memory_store.h"

#include <cctype>
#include <chrono>
#include <ctime>

#include <sqlite3.h>

#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/utils/query_terms.h"

namespace orvane_tamsel::index {

namespace {

constexpr int MAX_FOUND = 3;

constexpr const char* SCHEMA = R"sql(
CREATE TABLE IF NOT EXISTS memories(
  id INTEGER PRIMARY KEY,
  title TEXT NOT NULL,
  text TEXT NOT NULL,
  tags TEXT NOT NULL,  -- space-separated
  created TEXT NOT NULL);
CREATE VIRTUAL TABLE IF NOT EXISTS memory_text USING fts5(
  title, text, tags, content = 'memories', content_rowid = 'id',
  tokenize = 'porter unicode61 remove_diacritics 2');
CREATE TRIGGER IF NOT EXISTS memories_added AFTER INSERT ON memories BEGIN
  INSERT INTO memory_text(rowid, title, text, tags) VALUES (new.id, new.title, new.text, new.tags);
END;
CREATE TRIGGER IF NOT EXISTS memories_removed AFTER DELETE ON memories BEGIN
  INSERT INTO memory_text(memory_text, rowid, title, text, tags)
  VALUES ('delete', old.id, old.title, old.text, old.tags);
END;
)sql";

std::string now_utc() {
  auto t = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

std::vector<std::string> split_tags(const std::string& tags) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : tags + " ") {
    if (c == ' ') {
      if (!cur.empty()) out.push_back(cur);
      cur.clear();
    } else {
      cur.push_back(c);
    }
  }
  return out;
}

Memory read_memory(const Statement& st) {
  return {st.integer(0), st.text(1), st.text(2), split_tags(st.text(3)), st.text(4)};
}

std::string unreadable(const std::filesystem::path& file, const std::exception& e) {
  return "the project memories in " + file.string() + " cannot be used (" + e.what() + ")";
}

}  // namespace

MemoryStore::MemoryStore(const std::filesystem::path& repository_root)
    : file_(repository_root / ".tamsel" / "memories.db") {
  try {
    ensure_index_folder(repository_root);
    db_ = std::make_unique<Database>(file_, Database::Mode::write);
    db_->exec(SCHEMA);
  } catch (const std::exception& e) {
    db_.reset();
    problem_ = unreadable(file_, e);
  }
}

template <typename Use>
auto MemoryStore::guarded(Use&& use) {
  std::lock_guard lock(mutex_);
  if (!db_) throw MemoryUnreadable(problem_);
  try {
    return use(*db_);
  } catch (const SqliteError& e) {
    throw MemoryUnreadable(unreadable(file_, e));
  }
}

MemoryStore::~MemoryStore() = default;

std::vector<Memory> MemoryStore::operator()(const std::string& query) {
  std::vector<Memory> found;
  // The query's keywords, each quoted, so that no user text is read as FTS5 syntax.
  std::string match;
  for (const auto& t : utils::query_terms(query)) {
    if (!match.empty()) match += " OR ";
    match += "\"" + t + "\"";
  }
  if (match.empty()) return found;
  return guarded([&](Database& db) {
    auto st = db.prepare(
        "SELECT m.id, m.title, m.text, m.tags, m.created FROM memory_text t "
        "JOIN memories m ON m.id = t.rowid WHERE memory_text MATCH ?1 ORDER BY t.rank LIMIT ?2");
    st.bind(1, match).bind(2, MAX_FOUND);
    while (st.step()) found.push_back(read_memory(st));
    return found;
  });
}

Memory MemoryStore::save(const std::string& title, const std::string& text,
                         const std::vector<std::string>& tags) {
  std::string joined;
  for (const auto& t : tags) {
    // Tags are single words; inner white space would split one tag into two on reading.
    std::string tag;
    for (char c : t) tag.push_back(std::isspace(static_cast<unsigned char>(c)) ? '-' : c);
    if (tag.empty()) continue;
    if (!joined.empty()) joined.push_back(' ');
    joined += tag;
  }
  Memory memory{0, title, text, split_tags(joined), now_utc()};
  return guarded([&](Database& db) {
    auto st =
        db.prepare("INSERT INTO memories(title, text, tags, created) VALUES (?1, ?2, ?3, ?4)");
    st.bind(1, title).bind(2, text).bind(3, joined).bind(4, memory.created);
    st.run();
    memory.id = db.last_insert_id();
    return memory;
  });
}

std::vector<Memory> MemoryStore::list(int limit) {
  return guarded([&](Database& db) {
    std::vector<Memory> all;
    auto st =
        db.prepare("SELECT id, title, text, tags, created FROM memories ORDER BY id DESC LIMIT ?1");
    st.bind(1, limit);
    while (st.step()) all.push_back(read_memory(st));
    return all;
  });
}

bool MemoryStore::remove(std::int64_t id) {
  return guarded([&](Database& db) {
    auto st = db.prepare("DELETE FROM memories WHERE id = ?1");
    st.bind(1, id);
    st.run();
    return sqlite3_changes(db.handle()) > 0;
  });
}

}  // namespace orvane_tamsel::index
