#pragma once
// The writer's stage that links receiver call sites (`x.m()` with x's type an expression) by
// evaluating their types against the whole index.

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::types {

// Resolves the receiver sites of the batch: on a full build (`bulk`) all of them; otherwise the
// new ones (in the `relink` table) and those of files whose last evaluations consulted an fqn in
// `affected`. Each gets its target, evidence and scope (or none), and joins `relink` to be
// linked by name (on an update, only when that changed or it was there already); what a file's
// sites consulted is kept in `type_deps`.
void resolve_receivers(index::Database& db, bool bulk);

}  // namespace orvane_tamsel::indexer::types
