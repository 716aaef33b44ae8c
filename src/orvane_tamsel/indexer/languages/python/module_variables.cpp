// Module variables bound below a module's top level: in `if`/`try` blocks, or through `global`.

#include <unordered_set>

#include "orvane_tamsel/indexer/languages/python/extraction.h"

namespace orvane_tamsel::indexer::python::detail {

bool Extraction::declared_global(TSNode fn, std::string_view name) const {
  auto g = global_names_.find(scope_key(fn));
  return g != global_names_.end() && g->second.count(std::string(name)) != 0;
}

TSNode Extraction::binding_scope(TSNode name) const {
  TSNode def = enclosing_def(name);
  if (!ts_node_is_null(def) && !is_class(def) && declared_global(def, text(name))) return {};
  return def;
}

// A name the module binds by assignment anywhere outside its functions and classes (a class or
// function chosen per platform, `DefaultSelector = EpollSelector` under an `if`), or a function
// binds after declaring it `global`, is a variable of the module, as one at the top level is.
// A name the module also defines or imports stays what that says.
void Extraction::collect_module_variables() {
  std::unordered_set<std::string> known;
  for (const auto& s : out_.symbols) known.insert(s.fqn);
  const auto* module_names = [&]() -> const std::map<std::string, Binding, std::less<>>* {
    auto m = scopes_.find(UINT32_MAX);
    return m == scopes_.end() ? nullptr : &m->second.names;
  }();
  for (const auto& f : name_facts_) {
    if (!ts_node_is_null(binding_scope(f.target))) continue;
    TSNode stmt = ts_node_parent(f.target);
    if (!is_type(stmt, "assignment")) continue;  // `with open() as f` at module level
    std::string name(text(f.target));
    if (module_names != nullptr && module_names->count(name) != 0) continue;
    auto fqn = join_dotted(module_, name);
    if (!known.insert(fqn).second) continue;
    ParsedSymbol s;
    s.kind = "variable";
    s.name = name;
    s.parent_fqn = module_;
    s.fqn = std::move(fqn);
    s.start_line = line(stmt);
    s.end_line = end_line(stmt);
    s.signature = first_line(text(stmt));
    s.is_test = out_.is_test;
    typed_symbols_.emplace_back(f.target, out_.symbols.size());
    out_.symbols.push_back(std::move(s));
  }
}

}  // namespace orvane_tamsel::indexer::python::detail
