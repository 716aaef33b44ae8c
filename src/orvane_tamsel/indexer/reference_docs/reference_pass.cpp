#include "orvane_tamsel/indexer/reference_docs/reference_pass.h"

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "orvane_tamsel/index/rollback.h"
#include "orvane_tamsel/indexer/reference_docs/doc_linking.h"
#include "orvane_tamsel/indexer/reference_docs/rest_directives.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::indexer::reference_docs {

namespace {

struct PageState {
  std::int64_t size = 0, mtime_ns = 0;
};

std::map<std::string, PageState> stored_pages(index::Database& db) {
  std::map<std::string, PageState> out;
  auto st = db.prepare("SELECT path, size, mtime_ns FROM doc_pages");
  while (st.step()) out[st.text(0)] = {st.integer(1), st.integer(2)};
  return out;
}

// An unreadable or non-UTF-8 page documents nothing; it is kept in doc_pages so that it is not
// read again until it changes.
std::vector<DocumentedName> read_page(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) return {};
  if (!utils::is_valid_utf8(content)) return {};
  return documented_names(content);
}

// Reads the changed pages into doc_names; true when any page was added, changed or removed.
bool store_pages(index::Database& db, const std::filesystem::path& root,
                 const std::vector<WalkedFile>& pages) {
  auto stored = stored_pages(db);
  auto forget_names = db.prepare("DELETE FROM doc_names WHERE path = ?");
  auto forget_page = db.prepare("DELETE FROM doc_pages WHERE path = ?");
  auto keep_page = db.prepare("INSERT OR REPLACE INTO doc_pages VALUES(?, ?, ?)");
  auto add_name = db.prepare("INSERT INTO doc_names(path, fqn, text) VALUES(?, ?, ?)");
  bool changed = false;
  for (const auto& page : pages) {
    auto it = stored.find(page.path);
    bool same =
        it != stored.end() && it->second.size == page.size && it->second.mtime_ns == page.mtime_ns;
    if (it != stored.end()) stored.erase(it);
    if (same) continue;
    changed = true;
    forget_names.bind(1, page.path).run();
    for (const auto& name : read_page(root / page.path)) {
      add_name.bind(1, page.path).bind(2, name.fqn).bind(3, name.text).run();
    }
    keep_page.bind(1, page.path).bind(2, page.size).bind(3, page.mtime_ns).run();
  }
  for (const auto& [path, state] : stored) {
    changed = true;
    forget_names.bind(1, path).run();
    forget_page.bind(1, path).run();
  }
  return changed;
}

// Links every documented name again; returns each linked symbol's page text, the texts of the
// names documenting it joined in page order.
std::map<std::int64_t, std::string> link_names(index::Database& db) {
  DocLinker linker(db);
  // Only the rows whose link moved are written: an update after a code edit mostly moves none.
  std::vector<std::pair<std::int64_t, std::optional<std::int64_t>>> moved;
  // The exact fqn first, for every name in one statement: most names are found so.
  auto names = db.prepare(
      "SELECT n.id, n.fqn, n.symbol_id, (SELECT s.id FROM symbols s WHERE s.fqn = n.fqn AND "
      "s.kind <> 'module' AND s.is_test = 0 ORDER BY s.start_line - s.end_line, s.id LIMIT 1) "
      "FROM doc_names n ORDER BY n.id");
  while (names.step()) {
    auto symbol = names.optional_integer(3);
    if (!symbol) symbol = linker.link(names.text(1), true);
    if (symbol != names.optional_integer(2)) moved.emplace_back(names.integer(0), symbol);
  }
  names.reset();
  auto set_link = db.prepare("UPDATE doc_names SET symbol_id = ? WHERE id = ?");
  for (const auto& [id, symbol] : moved) set_link.bind(1, symbol).bind(2, id).run();
  std::map<std::int64_t, std::string> text;
  auto linked = db.prepare(
      "SELECT symbol_id, text FROM doc_names WHERE symbol_id IS NOT NULL AND text <> '' "
      "ORDER BY path, id");
  while (linked.step()) {
    auto& t = text[linked.integer(0)];
    if (!t.empty()) t.push_back(' ');
    t += linked.text(1);
  }
  return text;
}

// Writes symbol_text.reference of the symbols whose page text changed, and of those whose row
// does not hold it (written anew by the code batch); keeps doc_text as the rows now hold it.
// Returns the files of the symbols whose page text changed.
std::set<std::string> write_text(index::Database& db,
                                 const std::map<std::int64_t, std::string>& text) {
  std::map<std::int64_t, std::string> before;
  auto old = db.prepare("SELECT symbol_id, text FROM doc_text");
  while (old.step()) before[old.integer(0)] = old.text(1);
  old.reset();
  auto row = db.prepare(
      "SELECT t.reference, f.path, t.rowid FROM symbols s JOIN files f ON f.id = s.file_id "
      "LEFT JOIN symbol_text t ON t.rowid = s.id WHERE s.id = ?");
  auto update = db.prepare("UPDATE symbol_text SET reference = ? WHERE rowid = ?");
  std::set<std::string> changed_files;
  // `page_text` null: the symbol's pages say nothing (any more).
  auto rewrite = [&](std::int64_t id, const std::string* page_text) {
    row.bind(1, id);
    if (!row.step()) return row.reset();
    std::optional<std::string> want;
    if (page_text != nullptr) want = *page_text;
    auto it = before.find(id);
    if (it == before.end() ? page_text != nullptr : want != it->second) {
      changed_files.insert(row.text(1));
    }
    bool has_row = !row.is_null(2);
    auto now = row.optional_text(0);
    row.reset();
    if (has_row && now != want) update.bind(1, want).bind(2, id).run();
  };
  for (const auto& [id, t] : text) rewrite(id, &t);
  for (const auto& [id, t] : before) {
    if (text.count(id) == 0) rewrite(id, nullptr);
  }
  auto forget = db.prepare("DELETE FROM doc_text WHERE symbol_id = ?");
  auto keep = db.prepare("INSERT OR REPLACE INTO doc_text VALUES(?, ?)");
  for (const auto& [id, t] : before) {
    if (text.count(id) == 0) forget.bind(1, id).run();
  }
  for (const auto& [id, t] : text) {
    if (auto it = before.find(id); it == before.end() || it->second != t) {
      keep.bind(1, id).bind(2, t).run();
    }
  }
  return changed_files;
}

}  // namespace

bool pages_changed(index::Database& db, const std::vector<WalkedFile>& pages) {
  auto stored = stored_pages(db);
  if (stored.size() != pages.size()) return true;
  for (const auto& page : pages) {
    auto it = stored.find(page.path);
    if (it == stored.end() || it->second.size != page.size ||
        it->second.mtime_ns != page.mtime_ns) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> update_reference_docs(index::Database& db,
                                               const std::filesystem::path& root,
                                               const std::vector<WalkedFile>& pages,
                                               bool code_changed) {
  db.exec("BEGIN IMMEDIATE");
  try {
    bool pages_moved = store_pages(db, root, pages);
    std::set<std::string> changed_files;
    if (pages_moved || code_changed) changed_files = write_text(db, link_names(db));
    db.exec("COMMIT");
    return {changed_files.begin(), changed_files.end()};
  } catch (...) {
    index::rollback_if_open(db);
    throw;
  }
}

}  // namespace orvane_tamsel::indexer::reference_docs
