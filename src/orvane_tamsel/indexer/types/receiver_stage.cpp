#include "orvane_tamsel/indexer/types/receiver_stage.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/types/sql_type_facts.h"
#include "orvane_tamsel/indexer/types/type_resolution.h"

namespace orvane_tamsel::indexer::types {

namespace {

constexpr const char* ALL_SITES =
    "SELECT id, file_id, receiver, member, receiver_evidence, target_fqn, evidence, 1, '' "
    "FROM call_sites WHERE receiver <> ''";
// Sites to link (new ones), then every receiver site of a file whose evaluations consulted an
// affected name or a member of a rebound one: that file's dependencies are written anew.
constexpr const char* CHANGED_SITES = R"sql(
SELECT c.id, c.file_id, c.receiver, c.member, c.receiver_evidence, c.target_fqn, c.evidence, 1,
       ''
  FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id WHERE c.receiver <> ''
UNION ALL
SELECT c.id, c.file_id, c.receiver, c.member, c.receiver_evidence, c.target_fqn, c.evidence, 0,
       coalesce((SELECT k.module FROM call_scopes k WHERE k.site_id = c.id), '')
  FROM (SELECT d.file_id FROM affected a CROSS JOIN type_deps d ON d.fqn = a.fqn
        UNION SELECT d.file_id FROM rebound a CROSS JOIN type_deps d
          ON d.fqn > a.fqn || '.' AND d.fqn < a.fqn || '/') x
  CROSS JOIN call_sites c ON c.file_id = x.file_id WHERE c.receiver <> ''
)sql";

struct Site {
  std::int64_t id = 0, file_id = 0;
  std::string receiver, member, evidence, target, linked_evidence, scope;
  bool to_link = false;  // in `relink`: written and linked whatever it evaluates to
};

// One evaluation per distinct (receiver, member, evidence): sites share most of them.
class Evaluations {
 public:
  struct Result {
    std::vector<Resolution> found;
    bool too_wide = false;
    std::vector<const std::string*> consulted;  // interned
  };

  explicit Evaluations(TypeFacts& facts) : resolver_(facts) {}

  const Result& of(const Site& s) {
    auto key = s.receiver;
    key.append("\n").append(s.member).append("\n").append(s.evidence);
    auto [it, fresh] = results_.try_emplace(std::move(key));
    if (fresh) {
      it->second.found = resolver_.resolve(s.receiver, s.member, s.evidence);
      it->second.too_wide = resolver_.too_wide();
      for (const auto& fqn : resolver_.consulted())
        it->second.consulted.push_back(&*names_.insert(fqn).first);
    }
    return it->second;
  }

 private:
  TypeResolver resolver_;
  std::unordered_map<std::string, Result> results_;
  std::set<std::string> names_;
};

// A site whose receiver backs its target (`self.m()`, `Cls.m()`): when neither the target nor a
// fallback names a symbol, what the receiver's type finds joins its fallbacks, last.
class TargetBacking {
 public:
  explicit TargetBacking(index::Database& db)
      : fallbacks_(db.prepare("SELECT fqn FROM call_fallbacks WHERE site_id = ? AND rank < ?")),
        clear_(db.prepare("DELETE FROM call_fallbacks WHERE site_id = ? AND rank >= ?")),
        add_(db.prepare("INSERT OR REPLACE INTO call_fallbacks VALUES(?, ?, ?)")) {}

  // False when the receiver was not evaluated (the parsed names hold a symbol).
  bool back(std::int64_t id, const std::string& target, const std::string& receiver,
            const std::string& member, TypeResolver& resolver, TypeFacts& facts, bool bulk) {
    if (!bulk) clear_.bind(1, id).bind(2, RECEIVER_RANK).run();
    if (!facts.lookup(target).empty()) return false;
    fallbacks_.bind(1, id).bind(2, RECEIVER_RANK);
    bool named = false;
    while (!named && fallbacks_.step()) named = !facts.lookup(fallbacks_.text(0)).empty();
    fallbacks_.reset();
    if (named) return false;
    // One fallback: a receiver of several types backs no target.
    if (auto found = resolver.resolve(receiver, member, {}); found.size() == 1) {
      add_.bind(1, id).bind(2, RECEIVER_RANK).bind(3, found.front().target).run();
    }
    return true;
  }

 private:
  index::Statement fallbacks_, clear_, add_;
};

}  // namespace

void resolve_receivers(index::Database& db, bool bulk) {
  std::vector<Site> sites;
  std::map<std::int64_t, bool> files;  // file id -> all its receiver sites are evaluated
  {
    std::set<std::int64_t> seen;
    auto st = db.prepare(bulk ? ALL_SITES : CHANGED_SITES);
    while (st.step()) {
      auto file_id = st.integer(1);
      bool whole = st.integer(7) == 0 || bulk;
      files[file_id] = files[file_id] || whole;
      if (!seen.insert(st.integer(0)).second) continue;  // a new site of an affected file
      sites.push_back({st.integer(0), file_id, st.text(2), st.text(3), st.text(4), st.text(5),
                       st.text(6), st.text(8), st.integer(7) != 0});
    }
  }
  if (sites.empty()) return;
  // An update reads facts by fqn as asked: even thousands of sites ask far fewer names than
  // the index holds.
  SqlTypeFacts facts(db, bulk);
  Evaluations evaluations(facts);
  auto set_target = db.prepare("UPDATE call_sites SET target_fqn = ?, evidence = ? WHERE id = ?");
  auto clear_scopes = db.prepare("DELETE FROM call_scopes WHERE site_id = ?");
  auto add_scope = db.prepare("INSERT OR IGNORE INTO call_scopes VALUES(?, ?)");
  auto clear_deps = db.prepare("DELETE FROM type_deps WHERE file_id = ?");
  auto add_dep = db.prepare("INSERT OR IGNORE INTO type_deps VALUES(?, ?)");
  auto relink = db.prepare("INSERT OR IGNORE INTO relink VALUES(?)");
  auto clear_members = db.prepare("DELETE FROM call_fallbacks WHERE site_id = ? AND rank >= ?");
  auto add_member = db.prepare("INSERT OR REPLACE INTO call_fallbacks VALUES(?, ?, ?)");
  // What each file's sites consulted: a file is evaluated again when one of them changes.
  std::map<std::int64_t, std::set<const std::string*>> deps;
  // A full build has listed every site that names a target already: most receiver sites.
  auto listed = [bulk](const Site& s) { return bulk && !s.target.empty(); };
  TargetBacking backing(db);
  TypeResolver backing_resolver(facts);
  std::set<std::string> backed_names;
  for (const auto& s : sites) {
    if (s.evidence == BACKS_TARGET) {
      if (backing.back(s.id, s.target, s.receiver, s.member, backing_resolver, facts, bulk)) {
        for (const auto& fqn : backing_resolver.consulted())
          deps[s.file_id].insert(&*backed_names.insert(fqn).first);
      }
      if (!listed(s)) relink.bind(1, s.id).run();
      continue;
    }
    const auto& result = evaluations.of(s);
    deps[s.file_id].insert(result.consulted.begin(), result.consulted.end());
    const auto& found = result.found;
    // Unlinked, the site says why when it is known: the receiver may be one of too many types.
    const std::string& unlinked_evidence = result.too_wide ? UNION_TOO_WIDE : s.evidence;
    if (!bulk && !s.to_link) {
      // Evaluated again for an affected name: only a changed result is written and linked. A
      // union's other members are not read back: it is written again.
      const auto& scope = s.scope;
      bool same = found.size() == 1
                      ? s.target == found[0].target && s.linked_evidence == found[0].evidence &&
                            scope == found[0].module
                  : found.empty()
                      ? s.target.empty() && s.linked_evidence == unlinked_evidence && scope.empty()
                      : false;
      if (same) continue;
    }
    if (!bulk) {
      clear_scopes.bind(1, s.id).run();
      clear_members.bind(1, s.id).bind(2, UNION_RANK).run();
    }
    for (std::size_t i = 0; i < found.size(); ++i) {
      add_scope.bind(1, s.id).bind(2, found[i].module).run();
      if (i == 0) {
        set_target.bind(1, found[i].target).bind(2, found[i].evidence).bind(3, s.id).run();
      } else {
        add_member.bind(1, s.id)
            .bind(2, UNION_RANK + static_cast<std::int64_t>(i))
            .bind(3, found[i].target)
            .run();
      }
    }
    if (found.empty() && (!bulk || result.too_wide)) {
      set_target.bind(1, "").bind(2, unlinked_evidence).bind(3, s.id).run();
    }
    if ((!found.empty() || !bulk) && !listed(s)) relink.bind(1, s.id).run();
  }
  for (const auto& [file_id, fqns] : deps) {
    if (!bulk && files[file_id]) clear_deps.bind(1, file_id).run();
    for (const auto* fqn : fqns) add_dep.bind(1, file_id).bind(2, *fqn).run();
  }
}

}  // namespace orvane_tamsel::indexer::types
