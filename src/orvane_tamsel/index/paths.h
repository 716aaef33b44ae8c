#pragma once
// How the index names files: stems, and the component that holds a file.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::index {

// The path without its extension: the last "." of the last component that follows at least one
// character other than "." (cart.py -> cart, archive.tar.gz -> archive.tar, .env -> .env).
std::string path_stem(std::string_view path);

// The last component of a path.
std::string_view last_component(std::string_view path);

// The component of a file, the unit a developer would name, by its language's layout:
//  - Python (and any language not named below):
//    1. a file of a package (a dotted module of two parts or more) is in its top-level package:
//       src/shop/cart.py (shop.cart) -> shop, packages/api/src/api/views.py (api.views) -> api;
//    2. otherwise the first folder of its path after the last "src" folder, or from the root when
//       there is none: tests/test_cart.py -> tests, scripts/run.py -> scripts;
//    3. otherwise (a file at the root) its own module, or its stem when it has none: cli.py -> cli.
//  - Java and Rust: the module's first part; the writer then moves each file below the package
//    root of its language's files (see package_root and component_below).
//  - Go: the package folder: net/http/server.go -> net/http; a file at the root its module.
//  - C, C++, JavaScript, TypeScript: the first folder below the last source root (src, and for
//    C and C++ include): src/store/cart.c -> store; a source root below the repository's root
//    names its project: web/src/cart/view.ts -> web; for JavaScript and TypeScript a workspace
//    folder of a monorepo names its package: packages/cart/lib/total.js -> cart; otherwise as
//    for Python, rules 2 and 3.
std::string component_of(std::string_view path, std::string_view module,
                         std::string_view language = "python");

// Whether a language's components come from its package tree (package_root).
bool tree_components(std::string_view language);

// The deepest package holding DOMINANT_SHARE of the given modules (one per file): the prefix a
// repository's packages share, com.acme.shop for Java under src/main/java/com/acme/shop, crate
// for a Rust crate. Empty when none does.
std::string package_root(const std::vector<std::string>& modules);

// The component of a module under a package root: the part right after what the two share
// (com.acme.shop.cart.Line -> cart), or the module's last part when it is the root itself or
// one of its ancestors (com.acme.shop -> shop).
std::string component_below(std::string_view module, std::string_view root);

// A Python package that holds most of a repository's Python production files (DOMINANT_SHARE of
// them) would be one component for everything, so it is split into its subpackages: with django/
// holding nearly all, django/db/models/base.py is in django.db while django/shortcuts.py stays in
// django.
inline constexpr double DOMINANT_SHARE = 0.8;
// The subpackage component of a module inside the dominant package, or "" when none applies.
std::string split_component(std::string_view module, std::string_view dominant);

}  // namespace orvane_tamsel::index
