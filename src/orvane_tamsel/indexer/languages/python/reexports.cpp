#include "orvane_tamsel/indexer/languages/python/reexports.h"

#include <set>
#include <utility>

#include "orvane_tamsel/indexer/open_sites.h"
#include "orvane_tamsel/indexer/reexport_query.h"

namespace orvane_tamsel::indexer::python {

namespace {

// How deep a chain of re-exports is followed (`from .query import QuerySet` in a package's
// __init__.py, imported from the package by a third module, counts one).
constexpr int MAX_REEXPORTS = 3;

// The fqns `fqn` can be named by after one re-export: a module that imports it (or the class
// holding it) binds it under its own name. With `from a import X` in package p, `a.X.m` is
// also `p.X.m`; with `import a.b as c` in p, `a.b.f` is also `p.c.f`.
constexpr const char* REEXPORTERS = R"sql(
SELECT f.module || '.' || CASE WHEN i.alias <> '' THEN i.alias ELSE i.name END
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 AND i.name = ?2 AND f.module <> ''
UNION
SELECT f.module || '.' || i.alias
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 || '.' || ?2 AND i.name = '' AND i.alias <> '' AND f.module <> ''
UNION
SELECT f.module || '.' || ?2
  FROM imports i CROSS JOIN files f ON f.id = i.file_id
  WHERE i.module = ?1 AND i.name = '*' AND f.module <> '' AND substr(?2, 1, 1) <> '_'
)sql";

// Splits of an fqn where a re-export may stand: before its last name (a function or class) and
// before its last two (a class's member). Yields (module, name, rest).
template <typename F>
void each_split(const std::string& fqn, F&& f) {
  auto last = fqn.rfind('.');
  if (last == std::string::npos || last == 0) return;
  auto name_end = fqn.size();
  for (auto dot = last; dot != std::string::npos && dot > 0; dot = fqn.rfind('.', dot - 1)) {
    f(fqn.substr(0, dot), fqn.substr(dot + 1, name_end - dot - 1), fqn.substr(name_end));
    if (name_end != fqn.size()) break;
    name_end = dot;
  }
}

}  // namespace

Reexports::Reexports(index::Database& db) {
  reexport_of_ = db.prepare(REEXPORT_OF);
  reexporters_ = db.prepare(REEXPORTERS);
  symbol_by_fqn_ = db.prepare(
      "SELECT id FROM symbols WHERE fqn = ? AND kind <> 'module' "
      "ORDER BY start_line - end_line, id LIMIT 1");
}

// What appeared or vanished is also named, through re-exports, by the modules importing it:
// their sites are linked again too (and the members' sites, of a name an import bound anew).
void Reexports::before_relink(LinkingContext& ctx) {
  auto& db = ctx.database();
  std::vector<std::string> todo;
  {
    auto st = db.prepare("SELECT fqn FROM affected");
    while (st.step()) todo.push_back(st.text(0));
  }
  std::set<std::string> seen(todo.begin(), todo.end()), rebound;
  {
    auto st = db.prepare("SELECT fqn FROM rebound");
    while (st.step()) rebound.insert(st.text(0));
  }
  for (int depth = 0; depth < MAX_REEXPORTS && !todo.empty(); ++depth) {
    std::vector<std::string> next;
    for (const auto& f : todo) {
      bool rebinds = rebound.count(f) != 0;
      each_split(f,
                 [&](const std::string& module, const std::string& name, const std::string& rest) {
                   reexporters_.bind(1, module).bind(2, name);
                   while (reexporters_.step()) {
                     auto alias = reexporters_.text(0) + rest;
                     if (seen.insert(alias).second) next.push_back(alias);
                     // What a re-export of a name bound anew names is bound anew too.
                     if (rebinds) rebound.insert(alias);
                   }
                   reexporters_.reset();
                 });
    }
    for (const auto& a : next) {
      if (rebound.count(a) != 0) {
        ctx.rebind(a);
      } else {
        ctx.affect(a);
      }
    }
    todo = std::move(next);
  }
}

// Sites still unlinked whose target (or a fallback) is a name a module imported and so
// re-exports: linked to the symbol the chain of imports leads to. Sites with scope rows come
// from languages without re-exports and are left alone.
void Reexports::after_linking(LinkingContext& ctx) {
  auto& db = ctx.database();
  cache_.clear();
  importing_modules_.clear();
  {
    auto st = db.prepare(
        "SELECT DISTINCT f.module FROM files f WHERE EXISTS (SELECT 1 FROM imports i "
        "WHERE i.file_id = f.id)");
    while (st.step()) importing_modules_.insert(st.text(0));
  }
  auto open =
      open_relink_sites(db, "NOT EXISTS (SELECT 1 FROM call_scopes k WHERE k.site_id = c.id)");
  auto fallbacks = db.prepare("SELECT fqn FROM call_fallbacks WHERE site_id = ? ORDER BY rank");
  auto link = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
  for (const auto& [site, target] : open) {
    auto callee = through_reexports(target);
    if (!callee) {
      std::vector<std::string> names;
      fallbacks.bind(1, site);
      while (fallbacks.step()) names.push_back(fallbacks.text(0));
      fallbacks.reset();
      for (const auto& n : names) {
        if ((callee = through_reexports(n))) break;
      }
    }
    if (callee) link.bind(1, *callee).bind(2, site).run();
  }
}

// The symbol an fqn names through re-exports, breadth first, at most MAX_REEXPORTS deep.
std::optional<std::int64_t> Reexports::through_reexports(const std::string& fqn) {
  if (auto it = cache_.find(fqn); it != cache_.end()) return it->second;
  std::optional<std::int64_t> found;
  std::vector<std::string> todo{fqn};
  std::set<std::string> seen{fqn};
  for (int depth = 0; depth < MAX_REEXPORTS && !found && !todo.empty(); ++depth) {
    std::vector<std::string> next;
    for (const auto& f : todo) {
      each_split(f,
                 [&](const std::string& module, const std::string& name, const std::string& rest) {
                   if (found || importing_modules_.count(module) == 0) return;
                   std::vector<std::string> targets;
                   reexport_of_.bind(1, module).bind(2, name);
                   while (reexport_of_.step()) targets.push_back(reexport_of_.text(0) + rest);
                   reexport_of_.reset();
                   for (const auto& target : targets) {
                     if (found || !seen.insert(target).second) continue;
                     symbol_by_fqn_.bind(1, target);
                     if (symbol_by_fqn_.step()) found = symbol_by_fqn_.integer(0);
                     symbol_by_fqn_.reset();
                     next.push_back(target);
                   }
                 });
      if (found) break;
    }
    todo = std::move(next);
  }
  cache_.emplace(fqn, found);
  return found;
}

}  // namespace orvane_tamsel::indexer::python
