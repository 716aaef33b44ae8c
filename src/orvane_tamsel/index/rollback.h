#pragma once
// Undoing a failed write transaction without hiding why it failed.

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

// Rolls back the open transaction, if one is still open: SQLite ends some on its own when a
// statement fails (a full disk, an I/O error), and a ROLLBACK then would raise "no transaction
// is active" in place of the error that matters. Never throws, so the caller can rethrow.
void rollback_if_open(Database& db) noexcept;

}  // namespace orvane_tamsel::index
