#pragma once
// A small shop repository as the parser would hand it to the index writer.

#include <filesystem>
#include <string>
#include <vector>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/parsed_file.h"

namespace shop_batch {

using orvane_tamsel::indexer::ParsedCall;
using orvane_tamsel::indexer::ParsedFile;
using orvane_tamsel::indexer::ParsedImport;
using orvane_tamsel::indexer::ParsedSymbol;

inline ParsedSymbol sym(const std::string& fqn, const std::string& kind, int start, int end,
                        bool is_test = false, std::string doc = "") {
  ParsedSymbol s;
  s.fqn = fqn;
  auto dot = fqn.rfind('.');
  s.name = dot == std::string::npos ? fqn : fqn.substr(dot + 1);
  s.parent_fqn = dot == std::string::npos ? "" : fqn.substr(0, dot);
  s.kind = kind;
  s.start_line = start;
  s.end_line = end;
  s.signature = kind == "module" ? std::string() : "def " + s.name + "(self)";
  if (!doc.empty()) s.docstring = doc;
  s.is_test = is_test;
  return s;
}

inline ParsedCall call(const std::string& caller, int line, const std::string& target,
                       std::vector<std::string> fallbacks = {}, std::string evidence = "import") {
  return {caller, line, target, std::move(fallbacks), std::move(evidence)};
}

inline ParsedFile file(const std::string& path, const std::string& module, bool is_test = false) {
  ParsedFile f;
  f.path = path;
  f.language = "python";
  f.module = module;
  f.is_test = is_test;
  f.line_count = 40;
  f.symbols.push_back(sym(module, "module", 1, 40));
  return f;
}

inline ParsedFile cart() {
  auto f = file("src/shop/cart.py", "shop.cart");
  f.symbols.push_back(sym("shop.cart.Cart", "class", 3, 20, false, "A shopping cart."));
  f.symbols.push_back(sym("shop.cart.Cart.__init__", "method", 4, 6));
  f.symbols.push_back(sym("shop.cart.Cart.add", "method", 7, 10, false, "Add an item."));
  f.symbols.push_back(sym("shop.cart.Cart.total", "method", 11, 15));
  f.symbols.push_back(
      sym("shop.cart.applyDiscount", "function", 22, 25, false, "Apply discounts to a total."));
  f.symbols.push_back(sym("shop.cart.TAX_RATE", "variable", 2, 2));
  f.calls.push_back(call("shop.cart.Cart.total", 13, "shop.cart.applyDiscount", {}, "same-file"));
  f.calls.push_back(call("shop.cart.Cart.add", 9, "shop.cart.Cart.total", {}, "self"));
  f.calls.push_back(call("shop.cart.Cart.add", 10, ""));  // nothing names it
  f.imports.push_back({1, "shop.pricing", "", ""});
  return f;
}

inline ParsedFile pricing() {
  auto f = file("src/shop/pricing.py", "shop.pricing");
  f.symbols.push_back(sym("shop.pricing.applyDiscount", "function", 3, 6));
  f.symbols.push_back(sym("shop.pricing.price", "function", 8, 12));
  f.calls.push_back(call("shop.pricing.price", 10, "shop.cart.applyDiscount"));
  f.calls.push_back(call("shop.pricing", 14, "shop.pricing.price", {}, "same-file"));  // top level
  f.imports.push_back({1, "shop.cart", "applyDiscount", "disc"});
  return f;
}

inline ParsedFile test_cart() {
  auto f = file("tests/test_cart.py", "test_cart", true);
  f.symbols.push_back(sym("test_cart.test_add", "function", 5, 9, true));
  f.symbols.push_back(sym("test_cart.test_total", "function", 11, 16, true));
  f.calls.push_back(call("test_cart.test_add", 6, "shop.cart.Cart", {}, "constructor"));
  f.calls.push_back(call("test_cart.test_add", 7, "shop.cart.Cart.add"));
  f.calls.push_back(call("test_cart.test_add", 8, "shop.cart.Cart.add"));
  f.calls.push_back(call("test_cart.test_total", 12, "shop.cart.Cart", {}, "constructor"));
  f.calls.push_back(call("test_cart.test_total", 13, "shop.cart.Cart.total"));
  f.calls.push_back(call("test_cart.test_total", 14, "shop.cart.applyDiscount"));
  f.imports.push_back({1, "shop.cart", "Cart", ""});
  f.imports.push_back({2, "shop.cart", "applyDiscount", ""});
  return f;
}

inline ParsedFile helpers() {
  auto f = file("tests/helpers.py", "helpers", true);
  f.symbols.push_back(sym("helpers.make_cart", "function", 3, 6));
  f.calls.push_back(call("helpers.make_cart", 4, "shop.cart.Cart", {}, "constructor"));
  return f;
}

inline ParsedFile test_checkout() {
  auto f = file("tests/test_checkout.py", "test_checkout", true);
  f.symbols.push_back(sym("test_checkout.test_checkout", "function", 4, 9, true));
  f.calls.push_back(call("test_checkout.test_checkout", 5, "helpers.make_cart"));
  f.calls.push_back(call("test_checkout.test_checkout", 6, "shop.pricing.price"));
  f.imports.push_back({1, "shop.pricing", "", ""});
  return f;
}

// A subclass whose inherited call falls back to the base method.
inline ParsedFile special() {
  auto f = file("src/shop/special.py", "shop.special");
  auto cls = sym("shop.special.SpecialCart", "class", 3, 10);
  cls.bases = {"shop.cart.Cart"};
  f.symbols.push_back(cls);
  f.symbols.push_back(sym("shop.special.SpecialCart.checkout", "method", 5, 8));
  f.calls.push_back(call("shop.special.SpecialCart.checkout", 6, "shop.special.SpecialCart.total",
                         {"shop.cart.Cart.total"}, "self"));
  return f;
}

inline std::vector<ParsedFile> all() {
  return {cart(), pricing(), test_cart(), helpers(), test_checkout(), special()};
}

inline orvane_tamsel::indexer::FileState state(int mtime = 1) {
  return {mtime, 100, "h"};
}

inline void write(orvane_tamsel::indexer::IndexWriter& writer,
                  const std::vector<ParsedFile>& files) {
  writer.begin();
  for (const auto& f : files) writer.put_file(f, state());
  writer.commit();
}

using TempRepo = indexer_test::TempRepo;

}  // namespace shop_batch
