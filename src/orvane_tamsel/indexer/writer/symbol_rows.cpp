// Writing a file's symbols: rows kept, updated or added, and their text rows.

#include <algorithm>
#include <set>
#include <utility>

#include "orvane_tamsel/index/name_split.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/indexer/types/sql_type_facts.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::indexer::writer {

namespace {

// A Python module's only class or function, undocumented, is searched with the module's
// docstring: a file holding one backend or one command says at its top what that is. The
// symbol's own docstring stays as written.
#define TAMSEL_LONE_KINDS "('class', 'function')"
constexpr const char* TEXT_DOCSTRING =
    "CASE WHEN coalesce(s.docstring, '') = '' AND f.language = 'python' AND s.kind "
    "IN " TAMSEL_LONE_KINDS
    " THEN coalesce((SELECT m.docstring FROM symbols m WHERE m.id = s.parent_id "
    "AND m.kind = 'module' AND coalesce(m.docstring, '') <> '' AND (SELECT count(*) FROM (SELECT 1 "
    "FROM symbols o WHERE o.file_id = s.file_id AND o.parent_id = m.id AND o.kind "
    "IN " TAMSEL_LONE_KINDS " LIMIT 2)) = 1), s.docstring) ELSE s.docstring END";

// What a text row is written from (insert_text_from reads them in this order).
const std::string TEXT_COLUMNS = std::string("SELECT s.id, s.name, s.fqn, s.signature, ") +
                                 TEXT_DOCSTRING +
                                 ", f.path, s.words, f.language, s.file_id, f.module, s.parent_id ";

bool lone_kind(const std::string& kind) {
  return kind == "class" || kind == "function";
}

// What decides the text docstring of a file's lone definition: its fqn ("" when the file holds
// none) and the module's docstring.
using Lone = std::pair<std::string, std::optional<std::string>>;

Lone lone_now(const ParsedFile& file) {
  if (file.language != "python" || file.symbols.empty() || file.symbols[0].kind != "module") {
    return {};
  }
  const auto& module = file.symbols[0];
  std::string fqn;
  int count = 0;
  for (const auto& s : file.symbols) {
    if (s.parent_fqn == module.fqn && lone_kind(s.kind) && ++count == 1) fqn = s.fqn;
  }
  return {count == 1 ? fqn : "", module.docstring};
}

Lone lone_before(const ParsedFile& file,
                 const std::unordered_map<std::int64_t, StoredSymbol>& old_by_id) {
  if (file.language != "python") return {};
  auto module = std::find_if(old_by_id.begin(), old_by_id.end(),
                             [](const auto& old) { return old.second.kind == "module"; });
  if (module == old_by_id.end()) return {};
  std::string fqn;
  int count = 0;
  for (const auto& [id, s] : old_by_id) {
    if (s.parent_id == module->first && lone_kind(s.kind) && ++count == 1) fqn = s.fqn;
  }
  return {count == 1 ? fqn : "", module->second.docstring};
}

}  // namespace

void BatchWriter::write_symbols(FileWrite& w) {
  // The lone definitions whose text docstring may change although their own text did not.
  auto before = lone_before(w.file, w.old_by_id);
  auto now = lone_now(w.file);
  std::set<std::string> lone_rewritten;
  if (before != now) lone_rewritten = {before.first, now.first};
  for (const auto& s : w.file.symbols) {
    std::optional<std::int64_t> id;
    if (auto it = w.reusable.find(s.fqn); it != w.reusable.end() && !it->second.empty()) {
      id = it->second.front();
      it->second.pop_front();
    }
    std::optional<std::int64_t> parent;
    if (auto it = w.ids.find(s.parent_fqn); it != w.ids.end()) parent = it->second;
    std::string bases;
    for (const auto& b : s.bases) bases += (bases.empty() ? "" : " ") + b;
    bool is_test = s.is_test || w.file.is_test;
    if (!id) {
      if (auto kept = kept_merged(w, s, is_test, parent, bases)) {
        w.ids.emplace(s.fqn, *kept);
        continue;
      }
    }
    const StoredSymbol* old = nullptr;
    if (id) old = &w.old_by_id.find(*id)->second;
    if (holds_context(w.file.language, s.kind) &&
        (old ? old->docstring != s.docstring || old->kind != s.kind : s.docstring.has_value())) {
      context_changed(w.file.language, w.id, w.file.module, s.kind, s.fqn);
    }
    if (id) {
      update_symbol_row(*old, s, is_test, parent, bases);
    } else {
      id = insert_symbol_row(w.id, s, is_test, parent, bases);
    }
    w.ids.emplace(s.fqn, *id);
    bool same_text = false;
    if (old) {
      same_text = old->kind != "module" && s.kind != "module" && old->name == s.name &&
                  old->signature == s.signature && old->docstring == s.docstring &&
                  old->words == s.words && lone_rewritten.count(s.fqn) == 0;
      if (!same_text) delete_text_rows(*id);
      w.old_by_id.erase(*id);
    }
    if (s.kind == "module") {
      if (!w.module_id) w.module_id = id;
      continue;
    }
    // A first build writes every text row once all names are known (insert_all_text).
    if (!same_text && !bulk) mark_new_text.bind(1, *id).run();
  }
  for (const auto& [fqn, left] : w.reusable) {
    if (!left.empty()) affect(fqn);
  }
  for (const auto& [old_id, old] : w.old_by_id) {
    if (holds_context(w.file.language, old.kind) && old.docstring) {
      context_changed(w.file.language, w.id, w.file.module, old.kind, old.fqn);
    }
    delete_text_rows(old_id);
    delete_symbol.bind(1, old_id).run();
  }
}

std::optional<std::int64_t> BatchWriter::kept_merged(FileWrite& w, const ParsedSymbol& s,
                                                     bool is_test,
                                                     std::optional<std::int64_t> parent,
                                                     const std::string& bases) {
  for (auto* p : w.plugins) {
    if (auto kept = p->keep_merged(*this, s, is_test, parent, bases)) return kept;
  }
  return std::nullopt;
}

// A symbol that keeps its row: only what changed is written.
void BatchWriter::update_symbol_row(const StoredSymbol& old, const ParsedSymbol& s, bool is_test,
                                    std::optional<std::int64_t> parent, const std::string& bases) {
  // What linking reads of a symbol: a site of this file kept as it was must be linked
  // again where another candidate may now come first. No site links to a module symbol.
  // So is what type evaluation reads of it: receiver sites that consulted it are evaluated again.
  auto fields = types::encode_fields(s.fields);
  if (old.kind != s.kind ||
      (s.kind != "module" && (old.signature != s.signature ||
                              old.end_line - old.start_line != s.end_line - s.start_line)) ||
      old.type_of != s.type_of || old.fields != fields || old.bases != bases) {
    affect(s.fqn);
  }
  if (old.name != s.name) {
    rename_symbol.bind(1, s.name).bind(2, utils::lower(s.name)).bind(3, old.id).run();
  }
  if (old.kind != s.kind || old.start_line != s.start_line || old.end_line != s.end_line ||
      old.signature != s.signature || old.docstring != s.docstring || old.is_test != is_test ||
      old.parent_id != parent || old.parent_fqn != s.parent_fqn || old.bases != bases ||
      old.type_of != s.type_of || old.fields != fields || old.words != s.words) {
    update_symbol
        .bind_all(s.kind, s.start_line, s.end_line, s.signature, s.docstring, is_test, parent,
                  s.parent_fqn, bases, s.type_of, fields, s.words, old.id)
        .run();
  }
}

std::int64_t BatchWriter::insert_symbol_row(std::int64_t file_id, const ParsedSymbol& s,
                                            bool is_test, std::optional<std::int64_t> parent,
                                            const std::string& bases) {
  insert_symbol
      .bind_all(std::optional<std::int64_t>{}, file_id, s.fqn, s.name, utils::lower(s.name), s.kind,
                s.start_line, s.end_line, s.signature, s.docstring, is_test, parent, s.parent_fqn,
                bases, s.type_of, types::encode_fields(s.fields), s.words)
      .run();
  auto id = db.last_insert_id();
  affect(s.fqn);
  return id;
}

void BatchWriter::insert_text_rows(std::int64_t id, const std::string& name, const std::string& fqn,
                                   const std::optional<std::string>& signature,
                                   const std::optional<std::string>& docstring,
                                   const std::string& path, const std::string& words,
                                   const DocContext& context) {
  insert_text.bind(1, id)
      .bind(2, index::name_text(name, &name_splitter()))
      .bind(3, fqn)
      .bind(4, signature)
      .bind(5, docstring)
      .bind(6, path)
      .bind(7, words)
      .bind(8, context.mentions)
      .bind(9, context.context)
      .run();
  insert_name_gram.bind(1, id).bind(2, name).run();
}

// The splitter of one-run names: a first build learns the repository's name parts from all its
// names and keeps them; an update splits with the kept ones, so that a file's text rows do not
// depend on which other files changed since.
const index::NameSplitter& BatchWriter::name_splitter() {
  if (!splitter) {
    splitter =
        std::make_unique<index::NameSplitter>(index::stored_name_words(db), index::english_words());
  }
  return *splitter;
}

void BatchWriter::insert_all_text() {
  std::vector<std::string> names;
  auto distinct = db.prepare("SELECT DISTINCT name FROM symbols");
  while (distinct.step()) names.push_back(distinct.text(0));
  auto words = index::repository_words(names);
  db.exec("DELETE FROM name_words");
  auto keep = db.prepare("INSERT INTO name_words VALUES(?)");
  for (const auto& word : words) keep.bind(1, word).run();
  dictionary =
      std::make_unique<index::EnglishWords>(index::EnglishWords::default_dictionary(), true);
  splitter = std::make_unique<index::NameSplitter>(words, *dictionary);
  auto st = db.prepare(std::string(TEXT_COLUMNS) +
                       "FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
                       "WHERE s.kind <> 'module' ORDER BY s.id");
  insert_text_from(st);
  splitter.reset();
  dictionary.reset();
}

// An update writes the text rows of its new symbols once the merge has taken back the
// declarations it re-extracted: those would be written, deleted and merged in again.
void BatchWriter::insert_new_text() {
  auto st = db.prepare(std::string(TEXT_COLUMNS) +
                       "FROM new_text n CROSS JOIN symbols s ON s.id = n.id "
                       "CROSS JOIN files f ON f.id = s.file_id WHERE s.kind <> 'module'");
  insert_text_from(st);
}

void BatchWriter::insert_text_from(index::Statement& st) {
  ContextReader context(db);
  while (st.step()) {
    auto name = st.text(1), fqn = st.text(2), language = st.text(7), module = st.text(9);
    auto doc = context.of({name, fqn, language, st.integer(8), module, st.optional_integer(10)});
    insert_text_rows(st.integer(0), name, fqn, st.optional_text(3), st.optional_text(4), st.text(5),
                     st.text(6), doc);
  }
}

void BatchWriter::delete_text_rows(std::int64_t symbol_id) {
  delete_text.bind(1, symbol_id).run();
  delete_name_gram.bind(1, symbol_id).run();
}

}  // namespace orvane_tamsel::indexer::writer
