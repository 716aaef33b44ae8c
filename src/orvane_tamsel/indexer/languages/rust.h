#pragma once
// Rust: `crate::module::Type::method` fqns as dots; calls resolve through `use`, paths, `self` and
// `Self`, typed locals and same-file items.

#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/extract.h"

namespace orvane_tamsel::indexer::rust {

// A crate is named by the folder holding its `src/` (`-` read as `_`); the repository's own root
// crate is `crate`. Below `src/`, `lib.rs` and `main.rs` are the crate itself, `a/mod.rs` is `a`,
// `a/b.rs` is `a.b`: `src/cart.rs` gives `crate.cart`. Files under `tests/`, `benches/` and
// `examples/` are crates of their own, `crate.tests.<file>`.
std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);

}  // namespace orvane_tamsel::indexer::rust
