#pragma once
// The sites chosen to link again that the common rules left without a callee.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer {

// (site id, target fqn) of each open site of `relink` that names a target; `where` narrows them
// further (the site is `c`, its file `f`).
inline std::vector<std::pair<std::int64_t, std::string>> open_relink_sites(index::Database& db,
                                                                           std::string_view where) {
  std::vector<std::pair<std::int64_t, std::string>> open;
  auto st = db.prepare(
      "SELECT c.id, c.target_fqn FROM relink r CROSS JOIN call_sites c ON c.id = r.site_id "
      "CROSS JOIN files f ON f.id = c.file_id WHERE c.callee_id IS NULL AND c.target_fqn <> '' "
      "AND " +
      std::string(where));
  while (st.step()) open.emplace_back(st.integer(0), st.text(1));
  return open;
}

}  // namespace orvane_tamsel::indexer
