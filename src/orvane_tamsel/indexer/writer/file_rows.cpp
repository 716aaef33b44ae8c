// Writing and removing file rows, and the names a changed file's imports affect.

#include <algorithm>
#include <iterator>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer::writer {

BatchWriter::BatchWriter(const std::filesystem::path& root) : Connection(root) {
  db.exec("PRAGMA temp_store = MEMORY");
  db.exec("PRAGMA cache_size = -65536");
}

void BatchWriter::prepare() {
  if (prepared) return;
  Statements::prepare(db);
  plugins = make_linking_plugins(db);
  for (const auto& p : plugins) {
    for (const auto& language : p->languages()) plugins_of[language].push_back(p.get());
  }
  prepared = true;
}

const std::vector<LinkingPlugin*>& BatchWriter::plugins_for(const std::string& language) const {
  static const std::vector<LinkingPlugin*> none;
  auto it = plugins_of.find(language);
  return it == plugins_of.end() ? none : it->second;
}

void BatchWriter::affect(const std::string& fqn) {
  if (bulk) return;  // everything is linked anyway
  auto dot = fqn.rfind('.');
  std::string head = dot == std::string::npos ? "" : fqn.substr(0, dot);
  std::string tail = dot == std::string::npos ? fqn : fqn.substr(dot + 1);
  mark_affected.bind(1, fqn).bind(2, head).bind(3, tail).run();
  // sites that name a class also reach its __init__
  if (tail == "__init__" && !head.empty()) affect(head);
}

void BatchWriter::rebind(const std::string& fqn) {
  if (bulk) return;
  affect(fqn);
  mark_rebound.bind(1, fqn).run();
}

// The names an import binds in `module`, which other modules may import from it in turn.
void BatchWriter::affect_binding(const Binding& b) {
  const auto& [module, from, name, alias] = b;
  ParsedImport imp{0, from, name, alias};
  if (bulk || module.empty()) return;
  if (imp.name == "*") {
    std::vector<std::string> names;
    public_names.bind(1, imp.module);
    while (public_names.step()) names.push_back(public_names.text(0));
    public_names.reset();
    for (const auto& n : names) rebind(module + "." + n);
  } else if (!imp.alias.empty() || !imp.name.empty()) {
    rebind(module + "." + (imp.alias.empty() ? imp.name : imp.alias));
  }
}

std::optional<std::int64_t> BatchWriter::file_id_of(const std::string& path) {
  find_file.bind(1, path);
  std::optional<std::int64_t> id;
  if (find_file.step()) {
    id = find_file.integer(0);
    find_file_component = find_file.optional_text(1);
    find_file_is_test = find_file.integer(2) != 0;
    find_file_module = find_file.text(3);
  }
  find_file.reset();
  return id;
}

// Removes what a file holds (unless `keep_rows`: its imports, sites, symbols and their text
// rows) and returns its old symbols; `bound` receives the bindings its imports made.
std::vector<StoredSymbol> BatchWriter::clear_file(std::int64_t file_id, std::set<Binding>& bound,
                                                  bool keep_rows) {
  if (!bulk) {
    old_bindings.bind(1, file_id);
    while (old_bindings.step()) {
      bound.emplace(old_bindings.text(0), old_bindings.text(1), old_bindings.text(2),
                    old_bindings.text(3));
    }
    old_bindings.reset();
  }
  std::vector<StoredSymbol> old;
  old_symbols.bind(1, file_id);
  while (old_symbols.step()) {
    auto& o = old.emplace_back(StoredSymbol{
        old_symbols.integer(0), old_symbols.text(1), old_symbols.text(2), old_symbols.text(3),
        old_symbols.optional_text(4), old_symbols.optional_text(5), old_symbols.integer(6),
        old_symbols.integer(7), old_symbols.integer(8) != 0, std::nullopt, old_symbols.text(10),
        old_symbols.text(11)});
    if (!old_symbols.is_null(9)) o.parent_id = old_symbols.integer(9);
    o.type_of = old_symbols.text(12);
    o.fields = old_symbols.text(13);
    o.words = old_symbols.text(14);
  }
  old_symbols.reset();
  if (stored_calls && !keep_rows) {
    file_sites.bind(1, file_id).step();
    resolved_delta -= file_sites.integer(0);
    unresolved_delta -= file_sites.integer(1) - file_sites.integer(0);
    file_sites.reset();
  }
  if (!keep_rows) {
    clear_imports.bind(1, file_id).run();
    for (auto& st : clear_contents) st.bind(1, file_id).run();
    for (const auto& s : old) delete_text_rows(s.id);
    delete_file_symbols.bind(1, file_id).run();
  }
  return old;
}

void BatchWriter::put_file(const ParsedFile& file, const FileState& state) {
  ensure_batch();
  if (index::tree_components(file.language)) tree_languages.insert(file.language);
  FileWrite w{file, plugins_for(file.language)};
  auto file_id = file_id_of(file.path);
  w.is_new = !file_id;
  if (file_id) {
    for (auto* p : w.plugins) p->before_put_file(*this, file, *file_id);
    w.id = *file_id;
    read_kept_rows(w);
  }
  write_file_row(w, state, file_id);
  write_symbols(w);
  write_sites(w);
  write_imports(w);
  // Only a binding that came or went changes what other modules reach through this one.
  std::vector<Binding> changed;
  std::set_symmetric_difference(w.bound_before.begin(), w.bound_before.end(), w.bound_now.begin(),
                                w.bound_now.end(), std::back_inserter(changed));
  for (const auto& b : changed) affect_binding(b);
  for (auto* p : w.plugins) p->after_put_file(*this, {file, w.id, w.is_new, !changed.empty()});
}

// The sites and imports of a file about to be written again, by what makes them equal.
void BatchWriter::read_kept_rows(FileWrite& w) {
  old_sites.bind(1, w.id);
  while (old_sites.step()) {
    auto key =
        site_key(old_sites.is_null(1) ? std::nullopt : std::optional(old_sites.integer(1)),
                 old_sites.text(3), old_sites.text(4), old_sites.optional_text(6).value_or(""),
                 old_sites.optional_text(7).value_or(""), old_sites.text(8), old_sites.text(9),
                 old_sites.text(10), old_sites.integer(11), old_sites.text(12), old_sites.text(13),
                 old_sites.text(14));
    w.kept_sites[key].push_back(
        {old_sites.integer(0), old_sites.integer(2), old_sites.integer(5) != 0});
  }
  old_sites.reset();
  old_imports.bind(1, w.id);
  while (old_imports.step()) {
    w.kept_imports[old_imports.text(2) + '\x1f' + old_imports.text(3) + '\x1f' +
                   old_imports.text(4)]
        .emplace_back(old_imports.integer(0), old_imports.integer(1));
  }
  old_imports.reset();
}

void BatchWriter::write_file_row(FileWrite& w, const FileState& state,
                                 std::optional<std::int64_t> file_id) {
  const auto& file = w.file;
  auto component = index::component_of(file.path, file.module, file.language);
  if (file_id) {
    components_changed |= find_file_component != component || find_file_is_test != file.is_test;
    for (auto& s : clear_file(*file_id, w.bound_before, true)) {
      w.reusable[s.fqn].push_back(s.id);
      w.old_by_id.emplace(s.id, std::move(s));
    }
    update_file
        .bind_all(file.language, state.size, state.mtime_ns, state.hash, file.is_test, component,
                  file.line_count, file.generated, file.builds_elsewhere, *file_id)
        .run();
    if (find_file_module != file.module) rename_module.bind(1, file.module).bind(2, *file_id).run();
  } else {
    components_changed = true;
    auto stem = index::path_stem(file.path);
    insert_file
        .bind_all(file.path, stem, std::string(index::last_component(stem)), file.language,
                  state.size, state.mtime_ns, state.hash, file.is_test, file.module, component,
                  file.line_count, file.generated, file.builds_elsewhere)
        .run();
    file_id = db.last_insert_id();
    insert_path_gram.bind(1, *file_id).bind(2, file.path).run();
  }
  w.id = *file_id;
  mark_changed.bind(1, w.id).run();
  // An edited file keeps its path: the imports and #includes naming its module find it as
  // before, unless a package came or went above it.
  if (!file.module.empty() && (w.is_new || find_file_module != file.module)) affect(file.module);
}

void BatchWriter::remove_file(const std::string& path) {
  ensure_batch();
  auto file_id = file_id_of(path);
  if (!file_id) return;
  std::string language, module;
  file_language.bind(1, *file_id);
  if (file_language.step()) {
    language = file_language.text(0);
    module = file_language.text(1);
  }
  file_language.reset();
  if (index::tree_components(language)) tree_languages.insert(language);
  for (auto* p : plugins_for(language)) p->before_remove_file(*this, *file_id, path, module);
  std::set<Binding> bound;
  for (auto& s : clear_file(*file_id, bound)) {
    affect(s.fqn);
    if (holds_context(language, s.kind) && s.docstring) {
      context_changed(language, *file_id, module, s.kind, s.fqn);
    }
  }
  for (const auto& b : bound) affect_binding(b);
  components_changed = true;
  delete_file.bind(1, *file_id).run();
  delete_path_gram.bind(1, *file_id).run();
  db.prepare("INSERT OR IGNORE INTO gone_files VALUES(?)").bind(1, *file_id).run();
}

}  // namespace orvane_tamsel::indexer::writer
