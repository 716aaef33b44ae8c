#include "orvane_tamsel/indexer/types/sql_type_facts.h"

namespace orvane_tamsel::indexer::types {

namespace {

#define TAMSEL_TYPE_FACTS                                                        \
  "SELECT s.fqn, s.kind, f.module, s.type_of, s.bases, s.fields FROM symbols s " \
  "CROSS JOIN files f ON f.id = s.file_id WHERE s.kind <> 'module'"

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
  TypeSymbol s{st.text(1), st.text(2), st.text(3), {}, decode_fields(st.text(5))};
  auto bases = st.text(4);
  for (std::size_t at = 0; at < bases.size();) {
    auto end = std::min(bases.find(' ', at), bases.size());
    if (end > at) s.bases.push_back(bases.substr(at, end - at));
    at = end + 1;
  }
  return s;
}

SqlTypeFacts::SqlTypeFacts(index::Database& db, bool preload)
    : by_fqn_(db.prepare(TAMSEL_TYPE_FACTS " AND s.fqn = ?")), complete_(preload) {
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

}  // namespace orvane_tamsel::indexer::types
