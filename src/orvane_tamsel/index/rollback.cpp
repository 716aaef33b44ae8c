#include "orvane_tamsel/index/rollback.h"

#include <sqlite3.h>

namespace orvane_tamsel::index {

void rollback_if_open(Database& db) noexcept {
  if (sqlite3_get_autocommit(db.handle()) == 0) {
    sqlite3_exec(db.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

}  // namespace orvane_tamsel::index
