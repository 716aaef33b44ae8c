#pragma once
// The counts of an index: files, symbols, linked and unlinked calls, skipped files per reason.

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::index {

IndexStats read_stats(Database& db);
// The names the reference pages document, and how many of them were linked.
void read_documented(Database& db, IndexStats& stats);

}  // namespace orvane_tamsel::index
