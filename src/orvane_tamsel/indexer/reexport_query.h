#pragma once
// The one query that says where a name a module re-exports leads, for linking and type facts.

namespace orvane_tamsel::indexer {

// Where `module.name` (?1, ?2) leads: the module's own imports binding `name`, in file order (of
// `try: from _c import f` / `except ImportError: from _py import f`, the one that exists here
// counts), then, for a public name, each module it star-imports (a star import binds every public
// name of its module); the first that names a symbol counts.
inline constexpr const char* REEXPORT_OF = R"sql(
SELECT * FROM (SELECT i.module || CASE WHEN i.name <> '' THEN '.' || i.name ELSE '' END
  FROM files f CROSS JOIN imports i ON i.file_id = f.id WHERE f.module = ?1
  AND (i.alias = ?2 OR (i.alias = '' AND i.name = ?2)) ORDER BY length(f.path), f.path, i.line)
UNION ALL
SELECT * FROM (SELECT i.module || '.' || ?2
  FROM files f CROSS JOIN imports i ON i.file_id = f.id WHERE f.module = ?1 AND i.name = '*'
  AND substr(?2, 1, 1) <> '_' ORDER BY length(f.path), f.path, i.line)
)sql";

}  // namespace orvane_tamsel::indexer
