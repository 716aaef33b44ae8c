#include "orvane_tamsel/indexer/types/receiver_stage.h"

#include <string>
#include <tuple>
#include <vector>

#include "orvane_tamsel/indexer/types/sql_type_facts.h"
#include "orvane_tamsel/indexer/types/type_resolution.h"

namespace orvane_tamsel::indexer::types {

namespace {

constexpr const char* ALL_SITES =
    "SELECT id, receiver, member, receiver_evidence, target_fqn FROM call_sites "
    "WHERE receiver <> ''";
constexpr const char* CHANGED_SITES = R"sql(
SELECT c.id, c.receiver, c.member, c.receiver_evidence, c.target_fqn
  FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id WHERE c.receiver <> ''
UNION
SELECT c.id, c.receiver, c.member, c.receiver_evidence, c.target_fqn
  FROM affected a CROSS JOIN type_deps d ON d.fqn = a.fqn CROSS JOIN call_sites c ON c.id = d.site_id
)sql";

// Below this many sites, facts are read by fqn as asked rather than all at once.
constexpr std::size_t PRELOAD_SITES = 2000;

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
    if (auto found = resolver.resolve(receiver, member, {})) {
      add_.bind(1, id).bind(2, RECEIVER_RANK).bind(3, found->target).run();
    }
    return true;
  }

 private:
  index::Statement fallbacks_, clear_, add_;
};

}  // namespace

void resolve_receivers(index::Database& db, bool bulk) {
  std::vector<std::tuple<std::int64_t, std::string, std::string, std::string, std::string>> sites;
  {
    auto st = db.prepare(bulk ? ALL_SITES : CHANGED_SITES);
    while (st.step())
      sites.emplace_back(st.integer(0), st.text(1), st.text(2), st.text(3), st.text(4));
  }
  if (sites.empty()) return;
  SqlTypeFacts facts(db, bulk || sites.size() >= PRELOAD_SITES);
  TypeResolver resolver(facts);
  auto set_target = db.prepare("UPDATE call_sites SET target_fqn = ?, evidence = ? WHERE id = ?");
  auto clear_scopes = db.prepare("DELETE FROM call_scopes WHERE site_id = ?");
  auto add_scope = db.prepare("INSERT OR IGNORE INTO call_scopes VALUES(?, ?)");
  auto clear_deps = db.prepare("DELETE FROM type_deps WHERE site_id = ?");
  auto add_dep = db.prepare("INSERT OR IGNORE INTO type_deps VALUES(?, ?)");
  auto relink = db.prepare("INSERT OR IGNORE INTO relink VALUES(?)");
  TargetBacking backing(db);
  for (const auto& [id, receiver, member, evidence, target] : sites) {
    if (evidence == BACKS_TARGET) {
      if (!bulk) clear_deps.bind(1, id).run();
      if (backing.back(id, target, receiver, member, resolver, facts, bulk)) {
        for (const auto& fqn : resolver.consulted()) add_dep.bind(1, id).bind(2, fqn).run();
      }
      relink.bind(1, id).run();
      continue;
    }
    auto found = resolver.resolve(receiver, member, evidence);
    if (!bulk) {
      clear_scopes.bind(1, id).run();
      clear_deps.bind(1, id).run();
    }
    if (found) {
      set_target.bind(1, found->target).bind(2, found->evidence).bind(3, id).run();
      add_scope.bind(1, id).bind(2, found->module).run();
    } else if (!bulk) {
      set_target.bind(1, "").bind(2, evidence).bind(3, id).run();
    }
    for (const auto& fqn : resolver.consulted()) add_dep.bind(1, id).bind(2, fqn).run();
    if (found || !bulk) relink.bind(1, id).run();
  }
}

}  // namespace orvane_tamsel::indexer::types
