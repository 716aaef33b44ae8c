#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "orvane_tamsel/indexer/extract.h"

namespace {

using namespace orvane_tamsel;
using indexer::ParsedCall;
using indexer::ParsedFile;
using indexer::ParsedSymbol;

const indexer::PackageDirs SHOP_PACKAGES = {"src/shop"};

ParsedFile parse_shop(const std::string& rel) {
  std::ifstream in(std::filesystem::path(TAMSEL_TEST_DATA) / "shop" / rel);
  std::stringstream text;
  text << in.rdbuf();
  const auto* lang = utils::language_for_path(rel);
  return indexer::extract(*lang, rel, indexer::module_name(*lang, rel, SHOP_PACKAGES), text.str());
}

const ParsedSymbol* symbol(const ParsedFile& f, const std::string& fqn) {
  for (const auto& s : f.symbols) {
    if (s.fqn == fqn) return &s;
  }
  return nullptr;
}

std::vector<ParsedCall> calls_at(const ParsedFile& f, std::int64_t line) {
  std::vector<ParsedCall> out;
  for (const auto& c : f.calls) {
    if (c.line == line) out.push_back(c);
  }
  return out;
}

const ParsedCall* call_to(const ParsedFile& f, const std::string& target) {
  for (const auto& c : f.calls) {
    if (c.target == target) return &c;
  }
  return nullptr;
}

TEST(PythonModules, SourceRootIsTheFirstFolderThatIsNotAPackage) {
  const auto& py = utils::languages().front();
  EXPECT_EQ(indexer::module_name(py, "src/shop/cart.py", SHOP_PACKAGES), "shop.cart");
  EXPECT_EQ(indexer::module_name(py, "src/shop/__init__.py", SHOP_PACKAGES), "shop");
  EXPECT_EQ(indexer::module_name(py, "tests/test_cart.py", SHOP_PACKAGES), "test_cart");
  EXPECT_EQ(indexer::module_name(py, "setup.py", {}), "setup");
  indexer::PackageDirs flat = {"shop", "shop/api"};
  EXPECT_EQ(indexer::module_name(py, "shop/api/views.py", flat), "shop.api.views");
  EXPECT_EQ(indexer::module_name(py, "shop/api/__init__.py", flat), "shop.api");
  indexer::PackageDirs checkout = {"", "db"};  // the repository root is the package `django`
  EXPECT_EQ(indexer::module_name(py, "db/models.py", checkout, "django"), "django.db.models");
}

TEST(PythonExtraction, SymbolsCarryFqnKindLinesSignatureAndDocstring) {
  auto f = parse_shop("src/shop/cart.py");
  EXPECT_EQ(f.module, "shop.cart");
  EXPECT_FALSE(f.is_test);
  ASSERT_FALSE(f.symbols.empty());
  EXPECT_EQ(f.symbols[0].kind, "module");
  EXPECT_EQ(f.symbols[0].fqn, "shop.cart");
  EXPECT_EQ(f.symbols[0].docstring, "Shopping carts.");

  const auto* cart = symbol(f, "shop.cart.Cart");
  ASSERT_NE(cart, nullptr);
  EXPECT_EQ(cart->kind, "class");
  EXPECT_EQ(cart->signature, "class Cart:");
  EXPECT_EQ(cart->docstring, "A shopping cart holding items.");
  EXPECT_EQ(cart->start_line, 10);
  EXPECT_EQ(cart->end_line, 30);

  const auto* add = symbol(f, "shop.cart.Cart.add");
  ASSERT_NE(add, nullptr);
  EXPECT_EQ(add->kind, "method");
  EXPECT_EQ(add->parent_fqn, "shop.cart.Cart");
  EXPECT_EQ(add->signature, "def add(self, name, price, quantity=1):");
  EXPECT_EQ(add->docstring, "Add an item to the cart.");
  EXPECT_FALSE(symbol(f, "shop.cart.Cart.subtotal")->docstring.has_value());

  EXPECT_EQ(symbol(f, "shop.cart.format_total")->kind, "function");
  const auto* tax = symbol(f, "shop.cart.TAX_RATE");
  ASSERT_NE(tax, nullptr);
  EXPECT_EQ(tax->kind, "variable");
  EXPECT_EQ(tax->signature, "TAX_RATE = 0.2");
  EXPECT_EQ(symbol(f, "shop.cart.GiftCart")->bases, std::vector<std::string>{"shop.cart.Cart"});

  // A decorated class starts at its decorator; a package's __init__ is the package.
  auto models = parse_shop("src/shop/models.py");
  EXPECT_EQ(symbol(models, "shop.models.Item")->start_line, 6);
  EXPECT_EQ(parse_shop("src/shop/__init__.py").symbols[0].fqn, "shop");
}

TEST(PythonExtraction, TestCodeAndImports) {
  auto t = parse_shop("tests/test_cart.py");
  EXPECT_TRUE(t.is_test);
  EXPECT_EQ(t.module, "test_cart");
  EXPECT_TRUE(symbol(t, "test_cart.TestGiftCart.test_wrapping")->is_test);
  EXPECT_TRUE(parse_shop("tests/conftest.py").is_test);
  EXPECT_FALSE(parse_shop("src/shop/pricing.py").is_test);

  // Relative imports resolve against the package; `from . import m` names the module.
  auto cart = parse_shop("src/shop/cart.py");
  ASSERT_EQ(cart.imports.size(), 3u);
  EXPECT_EQ(cart.imports[0].module, "shop");
  EXPECT_EQ(cart.imports[0].name, "pricing");
  EXPECT_EQ(cart.imports[1].module, "shop.models");
  EXPECT_EQ(cart.imports[1].name, "Item");
  auto init = parse_shop("src/shop/__init__.py");
  EXPECT_EQ(init.imports[1].module, "shop.pricing");
  EXPECT_EQ(init.imports[1].alias, "discount");
  auto cli = parse_shop("src/shop/cli_tools.py");
  EXPECT_EQ(cli.imports[1].module, "shop.pricing");
  EXPECT_EQ(cli.imports[1].name, "");
  EXPECT_EQ(cli.imports[1].alias, "prices");
}

TEST(PythonExtraction, CallsResolveOnlyOnEvidence) {
  auto cart = parse_shop("src/shop/cart.py");
  auto self_call = calls_at(cart, 27);
  ASSERT_EQ(self_call.size(), 1u);
  EXPECT_EQ(self_call[0].target, "shop.cart.Cart.subtotal");
  EXPECT_EQ(self_call[0].evidence, "self");
  EXPECT_EQ(self_call[0].caller_fqn, "shop.cart.Cart.total");
  EXPECT_EQ(call_to(cart, "shop.pricing.apply_discount")->evidence, "import");  // relative
  EXPECT_EQ(call_to(cart, "shop.pricing.with_tax")->evidence, "import");  // from . import module
  EXPECT_EQ(call_to(cart, "shop.models.Item")->evidence, "import");
  const auto* super_call = call_to(cart, "shop.cart.Cart.total");
  ASSERT_NE(super_call, nullptr);
  EXPECT_EQ(super_call->evidence, "super");
  EXPECT_EQ(super_call->caller_fqn, "shop.cart.GiftCart.total");
  // `cart.total()` on a parameter and `self.items.append` have no evidence.
  ASSERT_EQ(calls_at(cart, 44).size(), 1u);
  EXPECT_EQ(calls_at(cart, 44)[0].target, "");

  auto cli = parse_shop("src/shop/cli_tools.py");
  EXPECT_EQ(call_to(cli, "shop.pricing.parse")->evidence, "module-attribute");
  EXPECT_EQ(call_to(cli, "shop.cli_tools.parse")->evidence, "same-file");
  EXPECT_EQ(call_to(cli, "shop.cart.Cart")->caller_fqn, "shop.cli_tools.main");  // aliased import
  const auto* top = call_to(cli, "shop.cli_tools.main");
  ASSERT_NE(top, nullptr);
  EXPECT_EQ(top->caller_fqn, "shop.cli_tools");  // module-level code belongs to the module

  // `parse` exists in two modules and report.py binds neither by name: no target.
  auto report = parse_shop("src/shop/report.py");
  ASSERT_EQ(calls_at(report, 13).size(), 1u);
  EXPECT_EQ(calls_at(report, 13)[0].target, "");

  auto models = parse_shop("src/shop/models.py");
  EXPECT_EQ(call_to(models, "dataclasses.dataclass")->evidence, "decorator");
  EXPECT_EQ(call_to(models, "dataclasses.dataclass")->caller_fqn, "shop.models");

  // Calls inside a fixture and a test method belong to them.
  auto conftest = parse_shop("tests/conftest.py");
  EXPECT_EQ(call_to(conftest, "shop.cart.Cart")->caller_fqn, "conftest.cart");
  auto tests = parse_shop("tests/test_cart.py");
  EXPECT_EQ(call_to(tests, "shop.cart.format_total")->caller_fqn,
            "test_cart.TestGiftCart.test_format");
  // A local built once from a class: `cart = Cart(...)` then `cart.add(...)`, aliases included.
  EXPECT_EQ(call_to(tests, "shop.cart.Cart.add")->evidence, "instance");
  EXPECT_EQ(call_to(tests, "shop.cart.GiftCart.total")->caller_fqn,
            "test_cart.TestGiftCart.test_wrapping");
  EXPECT_EQ(call_to(cli, "shop.cart.Cart.add")->caller_fqn, "shop.cli_tools.main");
}

}  // namespace
