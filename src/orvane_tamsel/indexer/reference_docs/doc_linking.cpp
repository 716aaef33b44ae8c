#include "orvane_tamsel/indexer/reference_docs/doc_linking.h"

namespace orvane_tamsel::indexer::reference_docs {

DocLinker::DocLinker(index::Database& db)
    : facts_(db, false),
      by_fqn_(
          db.prepare("SELECT id FROM symbols WHERE fqn = ? AND kind <> 'module' AND is_test = 0 "
                     "ORDER BY start_line - end_line, id LIMIT 1")),
      by_name_(db.prepare(
          "SELECT id, fqn FROM symbols WHERE name = ? AND kind <> 'module' AND is_test = 0")) {}

std::optional<std::int64_t> DocLinker::exact(const std::string& fqn) {
  by_fqn_.bind(1, fqn);
  std::optional<std::int64_t> id;
  if (by_fqn_.step()) id = by_fqn_.integer(0);
  by_fqn_.reset();
  return id;
}

const std::vector<std::pair<std::int64_t, std::string>>& DocLinker::named(const std::string& name) {
  auto [it, added] = named_.try_emplace(name);
  if (added) {
    by_name_.bind(1, name);
    while (by_name_.step()) it->second.emplace_back(by_name_.integer(0), by_name_.text(1));
    by_name_.reset();
  }
  return it->second;
}

std::optional<std::int64_t> DocLinker::link(const std::string& fqn, bool exact_tried) {
  if (auto id = exact_tried ? std::nullopt : exact(fqn)) return id;
  if (auto target = facts_.reexported(fqn); !target.empty()) {
    if (auto id = exact(target)) return id;
  }
  // The documented class and name, inside the documented top package.
  auto last = fqn.rfind('.');
  if (last == std::string::npos) return std::nullopt;
  auto before = fqn.rfind('.', last - 1);
  auto top = fqn.substr(0, fqn.find('.'));
  // `a.B.m` ends with `.B.m`; a name right under its package, `json.dumps`, with `.dumps`.
  auto tail = fqn.substr(before == std::string::npos ? last : before);
  std::optional<std::int64_t> found;
  bool several = false;
  for (const auto& [id, candidate] : named(fqn.substr(last + 1))) {
    bool in_package = candidate.compare(0, top.size() + 1, top + ".") == 0;
    bool ends = candidate.size() > tail.size() &&
                candidate.compare(candidate.size() - tail.size(), tail.size(), tail) == 0;
    if (!in_package || !ends) continue;
    several = found.has_value();
    found = id;
    if (several) break;
  }
  return several ? std::nullopt : found;
}

}  // namespace orvane_tamsel::indexer::reference_docs
