#include "orvane_tamsel/indexer/reference_docs/code_change.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace orvane_tamsel::indexer::reference_docs {

namespace {

std::string last_part(const std::string& dotted) {
  auto dot = dotted.rfind('.');
  return dot == std::string::npos ? dotted : dotted.substr(dot + 1);
}

// Classes whose bases differ between the two sides, or that exist on one side only.
std::set<std::string> classes_rebased(const CodeSnapshot& before, const CodeSnapshot& after) {
  auto bases = [](const CodeSnapshot& s) {
    std::map<std::string, std::string> out;
    for (const auto& row : s.symbols) {
      if (row.kind == "class") out[row.path + "\t" + row.fqn] = row.bases;
    }
    return out;
  };
  auto was = bases(before), now = bases(after);
  std::set<std::string> out;
  for (const auto* side : {&was, &now}) {
    const auto& other = side == &was ? now : was;
    for (const auto& [key, b] : *side) {
      auto it = other.find(key);
      if (it == other.end() || it->second != b) out.insert(last_part(key));
    }
  }
  return out;
}

// Adds every class deriving, at any depth, from one named in `names` (bases are matched by their
// last part, which may take a namesake too: relinking more names than needed costs only time).
void add_subclasses(index::Database& db, std::set<std::string>& names,
                    const std::set<std::string>& roots) {
  std::multimap<std::string, std::string> derived;  // a base's last part -> subclass names
  auto st = db.prepare("SELECT name, bases FROM symbols WHERE kind = 'class' AND bases <> ''");
  while (st.step()) {
    auto list = st.text(1);
    for (std::size_t at = 0; at < list.size();) {
      auto end = std::min(list.find(' ', at), list.size());
      derived.emplace(last_part(list.substr(at, end - at)), st.text(0));
      at = end + 1;
    }
  }
  std::vector<std::string> todo(roots.begin(), roots.end());
  std::set<std::string> seen(roots.begin(), roots.end());
  while (!todo.empty()) {
    auto name = std::move(todo.back());
    todo.pop_back();
    auto [from, to] = derived.equal_range(name);
    for (auto it = from; it != to; ++it) {
      if (seen.insert(it->second).second) todo.push_back(it->second);
    }
  }
  names.insert(seen.begin(), seen.end());
}

// The name an import binds in its module, which re-exports are looked up by.
std::string bound(const std::string& name, const std::string& alias) {
  return alias.empty() ? name : alias;
}

// Adds the names imports bind the names under (`from x import a as b`, `import x.a as b`): a page
// may document `b`. When imports moved, a lookup by module and name that now leads elsewhere may
// sit deeper in a chain of re-exports, below a module's own name (`os.path` of `os.path.join`):
// the names every import from such a module binds are added too.
void add_aliases(index::Database& db, std::set<std::string>& names, bool imports_moved) {
  std::multimap<std::string, std::string> aliases;
  auto st = db.prepare(
      imports_moved ? "SELECT DISTINCT module, name, alias FROM imports WHERE name <> '' OR "
                      "alias <> ''"
                    : "SELECT DISTINCT module, name, alias FROM imports WHERE alias <> '' AND "
                      "alias <> name");
  while (st.step()) {
    auto module = st.text(0), name = st.text(1), alias = st.text(2);
    auto to = bound(name, alias);
    if (name.empty() || imports_moved) aliases.emplace(last_part(module), to);
    if (!name.empty() && name != to) aliases.emplace(name, to);
  }
  // Re-exports are followed three deep.
  std::set<std::string> todo = names;
  for (int depth = 0; depth < 3 && !todo.empty(); ++depth) {
    std::set<std::string> next;
    for (const auto& name : todo) {
      auto [from, to] = aliases.equal_range(name);
      for (auto it = from; it != to; ++it) {
        if (names.insert(it->second).second) next.insert(it->second);
      }
    }
    todo = std::move(next);
  }
}

}  // namespace

CodeSnapshot snapshot(index::Database& db, const std::vector<std::string>& paths) {
  CodeSnapshot out;
  auto symbols = db.prepare(
      "SELECT s.fqn, s.name, s.kind, s.bases, s.is_test, s.end_line - s.start_line FROM files f "
      "JOIN symbols s ON s.file_id = f.id WHERE f.path = ? AND s.kind <> 'module'");
  // A plain `import x` binds no name a re-export is looked up by.
  auto imports = db.prepare(
      "SELECT f.module, i.module, i.name, i.alias FROM files f JOIN imports i ON i.file_id = f.id "
      "WHERE f.path = ? AND (i.name <> '' OR i.alias <> '') ORDER BY i.line, i.id");
  auto module = db.prepare("SELECT module FROM files WHERE path = ?");
  for (const auto& path : paths) {
    module.bind(1, path);
    if (module.step()) out.modules.insert(module.text(0));
    module.reset();
    symbols.bind(1, path);
    while (symbols.step()) {
      out.symbols.insert({path, symbols.text(0), symbols.text(1), symbols.text(2), symbols.text(3),
                          symbols.integer(4), symbols.integer(5)});
    }
    symbols.reset();
    imports.bind(1, path);
    for (std::int64_t order = 0; imports.step(); ++order) {
      out.imports.insert(
          {imports.text(0), imports.text(1), imports.text(2), imports.text(3), order});
    }
    imports.reset();
  }
  return out;
}

CodeChange compare(index::Database& db, const CodeSnapshot& before, const CodeSnapshot& after,
                   std::vector<std::string> files) {
  CodeChange change;
  change.files = std::move(files);
  // An import that came, went or moved changes what its module's name leads to; a star import,
  // what any public name of the module does.
  std::vector<ImportRow> imports;
  std::set_symmetric_difference(before.imports.begin(), before.imports.end(), after.imports.begin(),
                                after.imports.end(), std::back_inserter(imports));
  for (const auto& row : imports) {
    if (row.name == "*") {
      change.everything = true;
      return change;
    }
    change.names.insert(bound(row.name, row.alias));
  }
  std::set_symmetric_difference(before.modules.begin(), before.modules.end(), after.modules.begin(),
                                after.modules.end(),
                                std::inserter(change.modules, change.modules.end()));
  std::vector<SymbolRow> moved;
  std::set_symmetric_difference(before.symbols.begin(), before.symbols.end(), after.symbols.begin(),
                                after.symbols.end(), std::back_inserter(moved));
  for (const auto& row : moved) {
    change.names.insert(row.name);
    change.names.insert(last_part(row.fqn));
  }
  if (auto roots = classes_rebased(before, after); !roots.empty()) {
    add_subclasses(db, change.names, roots);
  }
  if (!change.names.empty()) add_aliases(db, change.names, !imports.empty());
  return change;
}

}  // namespace orvane_tamsel::indexer::reference_docs
