// C++ names brought in by a using in a header: `using namespace no_adl;` in gmock-matchers.h
// makes `Pointer(...)` in a file including it call `testing::no_adl::Pointer`. A file's own
// usings the extractor applies; those of the files it includes are applied here, as fallbacks
// of the sites whose names find no symbol.

#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/indexer/languages/c_family/linking.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

// Fallback ranks from here (below ALSO_RANK) were added through an included file's usings; they
// count as equally near (EQUALLY_NEAR_RANK): two of them that name symbols make no edge.
constexpr std::int64_t USING_RANK = 1400000;

// Relinked C++ sites whose name and fallbacks name no symbol, with the usings of the files their
// file includes.
constexpr const char* UNFOUND = R"sql(
WITH unfound AS MATERIALIZED (
  SELECT c.id, c.file_id, c.target_fqn FROM relink r
    CROSS JOIN call_sites c ON c.id = r.site_id
    CROSS JOIN files f ON f.id = c.file_id
  WHERE f.language = 'cpp' AND c.target_fqn <> '' AND c.receiver = ''
    AND NOT EXISTS (SELECT 1 FROM symbols s WHERE s.fqn = c.target_fqn)
    AND NOT EXISTS (SELECT 1 FROM call_fallbacks b CROSS JOIN symbols s ON s.fqn = b.fqn
                    WHERE b.site_id = c.id AND b.rank NOT BETWEEN 1400000 AND 1499999))
SELECT n.id, n.target_fqn, u.scope, u.target, u.name FROM unfound n
  CROSS JOIN reach_files rf ON rf.origin = n.file_id
  CROSS JOIN usings u ON u.file_id = rf.file_id
ORDER BY n.id
)sql";

// What a name looked up from `scope` may stand for through one using there, or "": the name
// as written is the candidate's part after the using's scope.
std::string through(const std::string& candidate, const std::string& scope,
                    const std::string& target, const std::string& name) {
  std::string rest;
  if (scope.empty()) {
    rest = candidate;
  } else if (candidate.size() > scope.size() && candidate.starts_with(scope) &&
             candidate[scope.size()] == '.') {
    rest = candidate.substr(scope.size() + 1);
  } else {
    return {};
  }
  // a using-declaration brings in one name (and what it holds: `Foo::bar`)
  if (!name.empty() && rest != name && !rest.starts_with(name + ".")) return {};
  return target + "." + rest;
}

}  // namespace

static_assert(USING_RANK == 1400000 && ALSO_RANK == 1500000 && USING_RANK > EQUALLY_NEAR_RANK,
              "the ranks written in UNFOUND and add_using_fallbacks");

void Linking::prepare_usings(index::Database& db) {
  old_usings_ = db.prepare("SELECT scope, target, name FROM usings WHERE file_id = ?");
  clear_usings_ = db.prepare("DELETE FROM usings WHERE file_id = ?");
  insert_using_ = db.prepare("INSERT INTO usings VALUES(?, ?, ?, ?)");
}

// A header whose usings changed relinks the files including it, as a changed #include does.
void Linking::store_usings(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id) {
  std::vector<ParsedUsing> before;
  if (!ctx.full_build()) {
    old_usings_.bind(1, file_id);
    while (old_usings_.step())
      before.push_back({old_usings_.text(0), old_usings_.text(1), old_usings_.text(2)});
    old_usings_.reset();
  }
  if (before == file.usings) return;
  clear_usings_.bind(1, file_id).run();
  for (const auto& u : file.usings)
    insert_using_.bind(1, file_id).bind(2, u.scope).bind(3, u.target).bind(4, u.name).run();
  if (!ctx.full_build()) mark_include_changed_.bind(1, file_id).run();
}

void Linking::add_using_fallbacks(index::Database& db) {
  db.exec(
      "DELETE FROM call_fallbacks WHERE rank BETWEEN 1400000 AND 1499999 AND site_id IN "
      "(SELECT site_id FROM relink)");
  auto fallbacks = db.prepare("SELECT fqn FROM call_fallbacks WHERE site_id = ? ORDER BY rank");
  auto insert = db.prepare("INSERT OR IGNORE INTO call_fallbacks VALUES(?, ?, ?)");
  auto st = db.prepare(UNFOUND);
  std::int64_t site = -1, rank = 0;
  std::vector<std::string> names;
  std::set<std::string> added;
  while (st.step()) {
    if (st.integer(0) != site) {
      site = st.integer(0);
      rank = USING_RANK;
      names = {st.text(1)};
      added.clear();
      fallbacks.bind(1, site);
      while (fallbacks.step()) names.push_back(fallbacks.text(0));
      fallbacks.reset();
    }
    for (const auto& n : names) {
      auto fqn = through(n, st.text(2), st.text(3), st.text(4));
      if (!fqn.empty() && added.insert(fqn).second)
        insert.bind(1, site).bind(2, rank++).bind(3, fqn).run();
    }
  }
}

}  // namespace orvane_tamsel::indexer::c_family
