#pragma once
// The writer's stage that links receiver call sites (`x.m()` with x's type an expression) by
// evaluating their types against the whole index.

#include <cstdint>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::types {

// The receiver_evidence of a site whose receiver only backs the target it was parsed with.
inline constexpr const char* BACKS_TARGET = "target";
// The fallback rank of what such a receiver finds: after every fallback the parser gave.
inline constexpr std::int64_t RECEIVER_RANK = 2000000;
// Fallback ranks from here on are the members of the other types of a receiver that is one of
// several (the target is the first type's): each links as well.
inline constexpr std::int64_t UNION_RANK = 3000000;

// Resolves the receiver sites of the batch: on a full build (`bulk`) all of them; otherwise the
// new ones (in the `relink` table) and those of files whose last evaluations consulted an fqn in
// `affected`. Each gets its target, evidence and scope (or none), and joins `relink` to be
// linked by name (on an update, only when that changed or it was there already); what a file's
// sites consulted is kept in `type_deps`.
void resolve_receivers(index::Database& db, bool bulk);

}  // namespace orvane_tamsel::indexer::types
