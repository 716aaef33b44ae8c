#include "orvane_tamsel/indexer/reference_docs/reference_pass.h"

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
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
// read again until it changes. A .txt file is read whole only when its head holds a Python
// directive. False: passed over.
bool read_page(const std::filesystem::path& file, std::vector<DocumentedName>& names) {
  std::ifstream in(file, std::ios::binary);
  std::string content;
  if (file.extension() == ".txt") {
    content.resize(TXT_SNIFF_BYTES);
    in.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(in.gcount()));
    if (!has_python_directive(content)) return false;
  }
  content.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad()) return true;
  if (utils::is_valid_utf8(content)) names = documented_names(content);
  return true;
}

// A documented name's last part and the part before it, its class when it is a member.
std::pair<std::string, std::string> keys_of(const std::string& fqn) {
  auto last = fqn.rfind('.');
  if (last == std::string::npos) return {fqn, ""};
  auto before = last == 0 ? std::string::npos : fqn.rfind('.', last - 1);
  auto from = before == std::string::npos ? 0 : before + 1;
  return {fqn.substr(last + 1), fqn.substr(from, last - from)};
}

struct PagesRead {
  bool changed = false;
  std::int64_t read = 0, passed_over = 0;  // pages read; .txt files without Python directives
  std::vector<std::int64_t> fresh;         // the names read now
  std::set<std::int64_t> unlinked;         // symbols the forgotten names linked to
};

// Reads the changed pages into doc_names.
PagesRead store_pages(index::Database& db, const std::filesystem::path& root,
                      const std::vector<WalkedFile>& pages) {
  PagesRead read;
  auto stored = stored_pages(db);
  auto linked = db.prepare("SELECT symbol_id FROM doc_names WHERE path = ? AND symbol_id NOT NULL");
  auto forget_names = db.prepare("DELETE FROM doc_names WHERE path = ?");
  auto forget_page = db.prepare("DELETE FROM doc_pages WHERE path = ?");
  auto keep_page = db.prepare("INSERT OR REPLACE INTO doc_pages VALUES(?, ?, ?)");
  auto add_name =
      db.prepare("INSERT INTO doc_names(path, fqn, text, last, owner) VALUES(?, ?, ?, ?, ?)");
  auto forget = [&](const std::string& path) {
    linked.bind(1, path);
    while (linked.step()) read.unlinked.insert(linked.integer(0));
    linked.reset();
    forget_names.bind(1, path).run();
  };
  for (const auto& page : pages) {
    auto it = stored.find(page.path);
    bool same =
        it != stored.end() && it->second.size == page.size && it->second.mtime_ns == page.mtime_ns;
    if (it != stored.end()) stored.erase(it);
    if (same) continue;
    read.changed = true;
    forget(page.path);
    std::vector<DocumentedName> names;
    ++(read_page(root / page.path, names) ? read.read : read.passed_over);
    for (const auto& name : names) {
      auto [last, owner] = keys_of(name.fqn);
      add_name.bind(1, page.path).bind(2, name.fqn).bind(3, name.text).bind(4, last);
      add_name.bind(5, owner).run();
      read.fresh.push_back(db.last_insert_id());
    }
    keep_page.bind(1, page.path).bind(2, page.size).bind(3, page.mtime_ns).run();
  }
  for (const auto& [path, state] : stored) {
    read.changed = true;
    forget(path);
    forget_page.bind(1, path).run();
  }
  return read;
}

struct NameRow {
  std::string fqn;
  std::optional<std::int64_t> symbol;
  std::optional<std::string> miss;
};

// The names an update may link elsewhere: those read now, and those the code change names by
// their last part or their class.
std::map<std::int64_t, NameRow> names_to_link(index::Database& db, const PagesRead& read,
                                              const CodeChange& code) {
  std::map<std::int64_t, NameRow> out;
  auto collect = [&](index::Statement& st) {
    while (st.step()) {
      out[st.integer(0)] = {st.text(1), st.optional_integer(2), st.optional_text(3)};
    }
    st.reset();
  };
  auto fresh = db.prepare("SELECT id, fqn, symbol_id, miss FROM doc_names WHERE id = ?");
  for (auto id : read.fresh) {
    fresh.bind(1, id);
    collect(fresh);
  }
  auto keyed = db.prepare(
      "SELECT id, fqn, symbol_id, miss FROM doc_names WHERE last = ?1 UNION ALL "
      "SELECT id, fqn, symbol_id, miss FROM doc_names WHERE owner = ?1");
  for (const auto& name : code.names) {
    keyed.bind(1, name);
    collect(keyed);
  }
  // A module that came or went changes why the names under it link nowhere.
  auto under = db.prepare(
      "SELECT id, fqn, symbol_id, miss FROM doc_names WHERE substr(fqn, 1, length(?1)) = ?1");
  for (const auto& module : code.modules) {
    under.bind(1, module + ".");
    collect(under);
  }
  return out;
}

// Links the names again, all of them or those an update may move; writes the links that moved
// and returns the symbols they left or reached.
std::set<std::int64_t> link_names(index::Database& db, const PagesRead& read,
                                  const CodeChange& code) {
  DocLinker linker(db);
  std::vector<std::tuple<std::int64_t, std::optional<std::int64_t>, std::optional<std::string>>>
      moved;
  std::set<std::int64_t> touched;
  auto relink = [&](std::int64_t id, const std::string& fqn, const NameRow& was,
                    std::optional<std::int64_t> exact) {
    auto symbol = exact ? exact : linker.link(fqn, true);
    std::optional<std::string> miss;
    if (!symbol) miss = linker.miss(fqn);
    if (symbol == was.symbol && miss == was.miss) return;
    moved.emplace_back(id, symbol, miss);
    if (symbol == was.symbol) return;
    for (auto s : {was.symbol, symbol}) {
      if (s) touched.insert(*s);
    }
  };
  if (code.everything) {
    // The exact fqn first, for every name in one statement: most names are found so.
    auto names = db.prepare(
        "SELECT n.id, n.fqn, n.symbol_id, (SELECT s.id FROM symbols s WHERE s.fqn = n.fqn AND "
        "s.kind <> 'module' AND s.is_test = 0 ORDER BY s.start_line - s.end_line, s.id LIMIT 1), "
        "n.miss FROM doc_names n ORDER BY n.id");
    while (names.step()) {
      NameRow was{"", names.optional_integer(2), names.optional_text(4)};
      relink(names.integer(0), names.text(1), was, names.optional_integer(3));
    }
  } else {
    for (const auto& [id, row] : names_to_link(db, read, code)) {
      relink(id, row.fqn, row, linker.link(row.fqn));
    }
  }
  auto set_link = db.prepare("UPDATE doc_names SET symbol_id = ?, miss = ? WHERE id = ?");
  for (const auto& [id, symbol, miss] : moved)
    set_link.bind(1, symbol).bind(2, miss).bind(3, id).run();
  return touched;
}

// The page text of each of these symbols: the texts of the names documenting it, in page order.
std::map<std::int64_t, std::string> texts_of(index::Database& db,
                                             const std::set<std::int64_t>& symbols) {
  std::map<std::int64_t, std::string> text;
  auto names =
      db.prepare("SELECT text FROM doc_names WHERE symbol_id = ? AND text <> '' ORDER BY path, id");
  for (auto id : symbols) {
    names.bind(1, id);
    while (names.step()) {
      auto& t = text[id];
      if (!t.empty()) t.push_back(' ');
      t += names.text(0);
    }
    names.reset();
  }
  return text;
}

// Every symbol with page text, before or now; the text each had and has.
std::map<std::int64_t, std::string> all_texts(index::Database& db, std::set<std::int64_t>& symbols,
                                              std::map<std::int64_t, std::string>& before) {
  std::map<std::int64_t, std::string> text;
  auto linked = db.prepare(
      "SELECT symbol_id, text FROM doc_names WHERE symbol_id IS NOT NULL AND text <> '' "
      "ORDER BY path, id");
  while (linked.step()) {
    auto& t = text[linked.integer(0)];
    if (!t.empty()) t.push_back(' ');
    t += linked.text(1);
  }
  auto old = db.prepare("SELECT symbol_id, text FROM doc_text");
  while (old.step()) {
    symbols.insert(old.integer(0));
    before.emplace(old.integer(0), old.text(1));
  }
  for (const auto& [id, t] : text) symbols.insert(id);
  return text;
}

// The page text these symbols had.
std::map<std::int64_t, std::string> old_texts(index::Database& db,
                                              const std::set<std::int64_t>& symbols) {
  std::map<std::int64_t, std::string> before;
  auto old = db.prepare("SELECT text FROM doc_text WHERE symbol_id = ?");
  for (auto id : symbols) {
    old.bind(1, id);
    if (old.step()) before.emplace(id, old.text(0));
    old.reset();
  }
  return before;
}

// The linked symbols of the files the code batch wrote: their text rows lost the pages' words.
void add_rewritten(index::Database& db, const std::vector<std::string>& files,
                   std::set<std::int64_t>& symbols) {
  auto st = db.prepare(
      "SELECT s.id FROM files f JOIN symbols s ON s.file_id = f.id WHERE f.path = ? AND "
      "EXISTS (SELECT 1 FROM doc_names n WHERE n.symbol_id = s.id)");
  for (const auto& path : files) {
    st.bind(1, path);
    while (st.step()) symbols.insert(st.integer(0));
    st.reset();
  }
}

// Brings symbol_text.reference and doc_text of these symbols to `text` (a symbol missing there:
// its pages say nothing). Returns the files of the symbols whose page text changed.
std::set<std::string> write_text(index::Database& db, const std::set<std::int64_t>& symbols,
                                 const std::map<std::int64_t, std::string>& text,
                                 const std::map<std::int64_t, std::string>& had) {
  auto row = db.prepare(
      "SELECT t.reference, f.path, t.rowid FROM symbols s JOIN files f ON f.id = s.file_id "
      "LEFT JOIN symbol_text t ON t.rowid = s.id WHERE s.id = ?");
  auto update = db.prepare("UPDATE symbol_text SET reference = ? WHERE rowid = ?");
  auto forget = db.prepare("DELETE FROM doc_text WHERE symbol_id = ?");
  auto keep = db.prepare("INSERT OR REPLACE INTO doc_text VALUES(?, ?)");
  std::set<std::string> changed_files;
  for (auto id : symbols) {
    std::optional<std::string> want;
    if (auto it = text.find(id); it != text.end()) want = it->second;
    std::optional<std::string> before;
    if (auto it = had.find(id); it != had.end()) before = it->second;
    if (want != before) {
      if (want) {
        keep.bind(1, id).bind(2, *want).run();
      } else {
        forget.bind(1, id).run();
      }
    }
    row.bind(1, id);
    if (!row.step()) {  // the symbol is gone
      row.reset();
      continue;
    }
    if (want != before) changed_files.insert(row.text(1));
    bool has_row = !row.is_null(2);
    auto now = row.optional_text(0);
    row.reset();
    if (has_row && now != want) update.bind(1, want).bind(2, id).run();
  }
  return changed_files;
}

}  // namespace

bool has_pages(index::Database& db) {
  auto st = db.prepare("SELECT 1 FROM doc_pages LIMIT 1");
  return st.step();
}

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

PagesUpdate update_reference_docs(index::Database& db, const std::filesystem::path& root,
                                  const std::vector<WalkedFile>& pages, const CodeChange& code) {
  db.exec("BEGIN IMMEDIATE");
  try {
    auto read = store_pages(db, root, pages);
    std::set<std::string> changed_files;
    if (read.changed || code.everything || !code.names.empty() || !code.files.empty()) {
      auto symbols = link_names(db, read, code);
      symbols.insert(read.unlinked.begin(), read.unlinked.end());
      std::map<std::int64_t, std::string> text, had;
      if (code.everything) {
        text = all_texts(db, symbols, had);
      } else {
        add_rewritten(db, code.files, symbols);
        text = texts_of(db, symbols);
        had = old_texts(db, symbols);
      }
      changed_files = write_text(db, symbols, text, had);
    }
    db.exec("COMMIT");
    return {{changed_files.begin(), changed_files.end()}, read.read, read.passed_over};
  } catch (...) {
    index::rollback_if_open(db);
    throw;
  }
}

}  // namespace orvane_tamsel::indexer::reference_docs
