#include "orvane_tamsel/indexer/reference_docs/doc_linking.h"

#include <algorithm>
#include <set>

namespace orvane_tamsel::indexer::reference_docs {

namespace {

// How many classes up a documented member is looked for.
constexpr int MAX_BASE_DEPTH = 6;

}  // namespace

DocLinker::DocLinker(index::Database& db)
    : facts_(db, false),
      by_fqn_(
          db.prepare("SELECT id FROM symbols WHERE fqn = ? AND kind <> 'module' AND is_test = 0 "
                     "ORDER BY start_line - end_line, id LIMIT 1")),
      by_name_(db.prepare(
          "SELECT id, fqn FROM symbols WHERE name = ? AND kind <> 'module' AND is_test = 0")),
      bases_(db.prepare("SELECT bases FROM symbols WHERE id = ? AND kind = 'class'")),
      module_(db.prepare("SELECT 1 FROM files WHERE module = ? LIMIT 1")) {}

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
  if (auto id = direct(fqn, exact_tried)) return id;
  return inherited(fqn);
}

std::vector<std::string> DocLinker::bases(std::int64_t id) {
  std::vector<std::string> out;
  bases_.bind(1, id);
  if (bases_.step()) {
    auto list = bases_.text(0);
    for (std::size_t at = 0; at < list.size();) {
      auto end = std::min(list.find(' ', at), list.size());
      if (end > at) out.push_back(list.substr(at, end - at));
      at = end + 1;
    }
  }
  bases_.reset();
  return out;
}

// Pages document inherited members on the class users meet (`.. method:: Derived.m`), where the
// code defines them once, on a base.
std::optional<std::int64_t> DocLinker::inherited(const std::string& fqn) {
  auto last = fqn.rfind('.');
  if (last == std::string::npos) return std::nullopt;
  auto owner = this->owner(fqn);
  if (!owner) return std::nullopt;
  auto member = fqn.substr(last);
  std::vector<std::string> todo = bases(*owner);
  std::set<std::string> seen;
  // Breadth first: the nearest base's member hides those further up.
  for (int depth = 0; depth < MAX_BASE_DEPTH && !todo.empty(); ++depth) {
    std::vector<std::string> next;
    for (const auto& base : todo) {
      if (!seen.insert(base).second) continue;
      const auto& cls = base_class(base);
      if (cls.fqn.empty()) continue;
      if (auto id = exact(cls.fqn + member)) return id;
      next.insert(next.end(), cls.bases.begin(), cls.bases.end());
    }
    todo = std::move(next);
  }
  return std::nullopt;
}

std::optional<std::int64_t> DocLinker::owner(const std::string& fqn) {
  auto last = fqn.rfind('.');
  if (last == std::string::npos) return std::nullopt;
  // Pages document many members of one class.
  auto [known, added] = owners_.try_emplace(fqn.substr(0, last));
  if (added) known->second = direct(known->first, false);
  return known->second;
}

bool DocLinker::has_module(const std::string& module) {
  auto [known, added] = modules_.try_emplace(module);
  if (added) {
    module_.bind(1, module);
    known->second = module_.step();
    module_.reset();
  }
  return known->second;
}

bool DocLinker::is_class(std::int64_t id) {
  bases_.bind(1, id);
  bool found = bases_.step();
  bases_.reset();
  return found;
}

std::string DocLinker::miss(const std::string& fqn) {
  bool coded = false;
  for (auto dot = fqn.find('.'); !coded && dot != std::string::npos; dot = fqn.find('.', dot + 1)) {
    coded = has_module(fqn.substr(0, dot));
  }
  if (!coded) return "no code";
  auto cls = owner(fqn);
  return cls && is_class(*cls) ? "member" : "none";
}

const DocLinker::BaseClass& DocLinker::base_class(const std::string& fqn) {
  auto [it, added] = base_classes_.try_emplace(fqn);
  if (!added) return it->second;
  auto id = exact(fqn);
  auto resolved = fqn;
  if (!id) {
    resolved = facts_.reexported(fqn);
    if (!resolved.empty()) id = exact(resolved);
  }
  if (id) it->second = {resolved, bases(*id)};
  return it->second;
}

std::optional<std::int64_t> DocLinker::direct(const std::string& fqn, bool exact_tried) {
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
  if (found || several) return several ? std::nullopt : found;
  // A member documented outside its class's directive (`.. method:: union` after `.. class::
  // QuerySet` ended) stands in the module: the one class of the module that has it.
  auto scope = fqn.substr(0, last + 1);
  for (const auto& [id, candidate] : named(fqn.substr(last + 1))) {
    if (candidate.size() <= scope.size() + (fqn.size() - last) ||
        candidate.compare(0, scope.size(), scope) != 0 ||
        candidate.find('.', scope.size()) != candidate.size() - (fqn.size() - last)) {
      continue;
    }
    if (found) return std::nullopt;
    found = id;
  }
  return found;
}

}  // namespace orvane_tamsel::indexer::reference_docs
