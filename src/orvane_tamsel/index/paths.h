#pragma once
// How the index names files: stems, and the component that holds a file.

#include <string>
#include <string_view>

namespace orvane_tamsel::index {

// The path without its extension: the last "." of the last component that follows at least one
// character other than "." (cart.py -> cart, archive.tar.gz -> archive.tar, .env -> .env).
std::string path_stem(std::string_view path);

// The last component of a path.
std::string_view last_component(std::string_view path);

// The component of a file, the unit a developer would name:
//  1. a file of a package (a dotted module of two parts or more) is in its top-level package:
//     src/shop/cart.py (shop.cart) -> shop, packages/api/src/api/views.py (api.views) -> api;
//  2. otherwise the first folder of its path after the last "src" folder, or from the root when
//     there is none: tests/test_cart.py -> tests, scripts/run.py -> scripts;
//  3. otherwise (a file at the root) its own module, or its stem when it has none: cli.py -> cli.
std::string component_of(std::string_view path, std::string_view module);

// A package that holds most of a repository's production files (DOMINANT_SHARE of them) would be
// one component for everything, so it is split into its subpackages: with django/ holding nearly
// all, django/db/models/base.py is in django.db while django/shortcuts.py stays in django.
inline constexpr double DOMINANT_SHARE = 0.8;
// The subpackage component of a module inside the dominant package, or "" when none applies.
std::string split_component(std::string_view module, std::string_view dominant);

}  // namespace orvane_tamsel::index
