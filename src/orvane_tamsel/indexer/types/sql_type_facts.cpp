#include "orvane_tamsel/indexer/types/sql_type_facts.h"

#include "orvane_tamsel/indexer/reexport_query.h"

#include <set>

namespace orvane_tamsel::indexer::types {

namespace {

#define TAMSEL_TYPE_FACTS                                                                \
  "SELECT s.fqn, s.kind, f.module, s.type_of, s.bases, s.fields, f.path FROM symbols s " \
  "CROSS JOIN files f ON f.id = s.file_id WHERE s.kind <> 'module'"

// How many re-exports deep a name is followed.
constexpr int MAX_REEXPORTS = 3;

}  // namespace

std::string encode_fields(const std::vector<std::pair<std::string, TypeExpr>>& fields) {
  std::string out;
  for (const auto& [name, type] : fields) {
    if (name.empty() || type.empty()) continue;
    if (!out.empty()) out.push_back('\n');
    out.append(name).append("\t").append(type);
  }
  return out;
}

std::vector<std::pair<std::string, TypeExpr>> decode_fields(const std::string& text) {
  std::vector<std::pair<std::string, TypeExpr>> out;
  for (std::size_t at = 0; at < text.size();) {
    auto end = std::min(text.find('\n', at), text.size());
    auto tab = text.find('\t', at);
    if (tab < end) out.emplace_back(text.substr(at, tab - at), text.substr(tab + 1, end - tab - 1));
    at = end + 1;
  }
  return out;
}

TypeSymbol SqlTypeFacts::row(const index::Statement& st) {
  TypeSymbol s{st.text(1), st.text(2), st.text(3), {}, decode_fields(st.text(5)), st.text(6)};
  auto bases = st.text(4);
  for (std::size_t at = 0; at < bases.size();) {
    auto end = std::min(bases.find(' ', at), bases.size());
    if (end > at) s.bases.push_back(bases.substr(at, end - at));
    at = end + 1;
  }
  return s;
}

SqlTypeFacts::SqlTypeFacts(index::Database& db, bool preload)
    : by_fqn_(db.prepare(TAMSEL_TYPE_FACTS " AND s.fqn = ?")),
      reexport_of_(db.prepare(REEXPORT_OF)),
      complete_(preload) {
  if (!preload) return;
  auto st = db.prepare(TAMSEL_TYPE_FACTS);
  while (st.step()) symbols_[st.text(0)].push_back(row(st));
}

const std::vector<TypeSymbol>& SqlTypeFacts::lookup(const std::string& fqn) {
  if (auto it = symbols_.find(fqn); it != symbols_.end()) return it->second;
  if (complete_) return none_;
  auto& found = symbols_[fqn];
  by_fqn_.bind(1, fqn);
  while (by_fqn_.step()) found.push_back(row(by_fqn_));
  by_fqn_.reset();
  return found;
}

// Breadth first over the splits of the name where a re-export may stand: before its last name
// and before its last two (a class's member).
std::string SqlTypeFacts::reexported(const std::string& fqn) {
  if (auto it = reexports_.find(fqn); it != reexports_.end()) return it->second;
  std::string found;
  std::vector<std::string> todo{fqn};
  std::set<std::string> seen{fqn};
  for (int depth = 0; depth < MAX_REEXPORTS && found.empty() && !todo.empty(); ++depth) {
    std::vector<std::string> next;
    for (const auto& f : todo) {
      auto name_end = f.size();
      for (auto dot = f.rfind('.'); found.empty() && dot != std::string::npos && dot > 0;
           dot = f.rfind('.', dot - 1)) {
        auto rest = f.substr(name_end);
        reexport_of_.bind(1, f.substr(0, dot)).bind(2, f.substr(dot + 1, name_end - dot - 1));
        std::vector<std::string> targets;
        while (reexport_of_.step()) targets.push_back(reexport_of_.text(0) + rest);
        reexport_of_.reset();
        for (auto& t : targets) {
          if (!found.empty() || !seen.insert(t).second) continue;
          if (!lookup(t).empty()) found = t;
          next.push_back(std::move(t));
        }
        if (name_end != f.size()) break;
        name_end = dot;
      }
      if (!found.empty()) break;
    }
    todo = std::move(next);
  }
  return reexports_[fqn] = found;
}

}  // namespace orvane_tamsel::indexer::types
