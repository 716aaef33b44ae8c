#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/indexer/languages/python/annotations.h"

namespace {

using namespace orvane_tamsel;
using indexer::ParsedCall;
using indexer::ParsedFile;
using indexer::ParsedSymbol;

const indexer::PackageDirs SHOP_PACKAGES = {"src/shop"};

ParsedFile parse_repo(const std::string& repo, const std::string& rel,
                      const indexer::PackageDirs& packages) {
  std::ifstream in(std::filesystem::path(TAMSEL_TEST_DATA) / repo / rel);
  std::stringstream text;
  text << in.rdbuf();
  const auto* lang = utils::language_for_path(rel);
  return indexer::extract(*lang, rel, indexer::module_name(*lang, rel, packages), text.str());
}

ParsedFile parse_shop(const std::string& rel) {
  return parse_repo("shop", rel, SHOP_PACKAGES);
}

ParsedFile parse_kite(const std::string& rel) {
  return parse_repo("py_types", rel, {"src/kite"});
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
  // A folder without __init__.py inside a package is a namespace package: it keeps its place.
  indexer::PackageDirs kite = {"src/kite", "src/kite/sansio/deep"};
  EXPECT_EQ(indexer::module_name(py, "src/kite/sansio/app.py", kite), "kite.sansio.app");
  EXPECT_EQ(indexer::module_name(py, "src/kite/sansio/deep/x.py", kite), "kite.sansio.deep.x");
  EXPECT_EQ(indexer::module_name(py, "src/kite/sansio/deep/__init__.py", kite), "kite.sansio.deep");
  EXPECT_EQ(indexer::module_name(py, "src/other/x.py", kite), "x");
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
  EXPECT_EQ(cart->signature, "class Cart");
  EXPECT_EQ(cart->docstring, "A shopping cart holding items.");
  EXPECT_EQ(cart->start_line, 10);
  EXPECT_EQ(cart->end_line, 30);

  const auto* add = symbol(f, "shop.cart.Cart.add");
  ASSERT_NE(add, nullptr);
  EXPECT_EQ(add->kind, "method");
  EXPECT_EQ(add->parent_fqn, "shop.cart.Cart");
  EXPECT_EQ(add->signature, "def add(self, name, price, quantity=1)");
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

  // `parse` exists in two modules; report.py binds it only through `from .pricing import *`.
  auto report = parse_shop("src/shop/report.py");
  ASSERT_EQ(calls_at(report, 13).size(), 1u);
  EXPECT_EQ(calls_at(report, 13)[0].target, "shop.pricing.parse");
  EXPECT_EQ(calls_at(report, 13)[0].evidence, "import");

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

// What a receiver's type is, as local evidence says: `call` names the member called.
const ParsedCall* receiver_of(const ParsedFile& f, const std::string& caller,
                              const std::string& member) {
  for (const auto& c : f.calls) {
    if (c.caller_fqn == caller && c.member == member) return &c;
  }
  return nullptr;
}

TEST(PythonTypes, AnnotationsNameOneClass) {
  using indexer::python::annotated_class;
  EXPECT_EQ(annotated_class("Response"), "Response");
  EXPECT_EQ(annotated_class("\"wrappers.Response\""), "wrappers.Response");
  EXPECT_EQ(annotated_class("t.Optional[Response]"), "Response");
  EXPECT_EQ(annotated_class("Response | None"), "Response");
  EXPECT_EQ(annotated_class("Union[None, \"Response\"]"), "Response");
  EXPECT_EQ(annotated_class("Annotated[Request, Depends(x)]"), "Request");
  EXPECT_EQ(annotated_class("Union[Request, Response]"), "");
  EXPECT_EQ(annotated_class("list[Request]"), "");
  EXPECT_EQ(annotated_class("None"), "");
  EXPECT_EQ(annotated_class("Iterator[Client]"), "");
  EXPECT_EQ(annotated_class("queue.Queue[Item]"), "queue.Queue");
  EXPECT_EQ(annotated_class("t.Mapping[str, Client]"), "");
  EXPECT_EQ(annotated_class("Generator[Client, None, None]", true), "Client");
  EXPECT_EQ(annotated_class("Response | list[int]"), "Response");
  using indexer::python::annotated_classes;
  using V = std::vector<std::string>;
  EXPECT_EQ(annotated_classes("Union[Request, Response]"), (V{"Request", "Response"}));
  EXPECT_EQ(annotated_classes("\"Request | None\" | Response"), (V{"Request", "Response"}));
  EXPECT_EQ(annotated_classes("Optional[Union[Request, 'Response', Request]]"),
            (V{"Request", "Response"}));
  EXPECT_EQ(annotated_classes("type[Request] | Literal[False] | None"), V{"Request"});
  EXPECT_EQ(annotated_classes("Iterator[Request | Response]", true), (V{"Request", "Response"}));
  EXPECT_EQ(annotated_classes("list[Request | Response]"), V{});
  using indexer::python::annotated_element;
  EXPECT_EQ(annotated_element("list[Request]"), "Request");
  EXPECT_EQ(annotated_element("t.Optional[t.Sequence[\"Request\"]]"), "Request");
  EXPECT_EQ(annotated_element("Dict[Request, int]"), "Request");
  EXPECT_EQ(annotated_element("tuple[Request, ...]"), "Request");
  EXPECT_EQ(annotated_element("tuple[Request, Response]"), "");
  EXPECT_EQ(annotated_element("list[Request] | set[Response]"), "");
  EXPECT_EQ(annotated_element("Request"), "");
}

TEST(PythonTypes, SymbolsCarryTheTypeOfTheirValue) {
  auto app = parse_kite("src/kite/app.py");
  EXPECT_EQ(symbol(app, "kite.app.App.make_response")->type_of, "T:kite.wrappers.Response");
  EXPECT_EQ(symbol(app, "kite.app.App.get_adapter")->type_of, "S:kite.adapters.Adapter");
  EXPECT_EQ(symbol(app, "kite.app.App.test_client")->type_of, "S:kite.app.Client");
  EXPECT_EQ(symbol(app, "kite.app.App.dispatch")->type_of, "T:kite.app.App/make_response()");
  EXPECT_EQ(symbol(app, "kite.app.create_app")->type_of, "T:kite.app.App");
  EXPECT_EQ(symbol(app, "kite.app.default_app")->type_of, "S:kite.app.create_app");
  EXPECT_EQ(symbol(app, "kite.app.handle")->type_of, "");
  // Class attributes and those set on self are fields of the class, not symbols.
  using Fields = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(symbol(app, "kite.app.App")->fields,
            (Fields{{"adapter", "S:kite.adapters.Adapter"},
                    {"default_request", "T:kite.wrappers.Request"},
                    {"json", "T:kite.json.JSONProvider"}}));
  EXPECT_EQ(symbol(app, "kite.app.Client")->fields, (Fields{{"app", "T:kite.app.App"}}));
  EXPECT_EQ(symbol(app, "kite.app.App.json"), nullptr);

  // A fixture's type is what it returns or yields; one fixture may take another.
  auto conftest = parse_kite("tests/conftest.py");
  EXPECT_EQ(symbol(conftest, "conftest.app")->type_of, "S:kite.create_app");
  EXPECT_EQ(symbol(conftest, "conftest.client")->type_of, "S:conftest.app/test_client()");
}

TEST(PythonTypes, ReceiversSayHowTheirTypeIsKnown) {
  auto app = parse_kite("src/kite/app.py");
  auto expect = [](const ParsedCall* c, const std::string& receiver, const std::string& evidence,
                   const std::string& target = "") {
    ASSERT_NE(c, nullptr) << receiver;
    EXPECT_EQ(c->receiver, receiver);
    EXPECT_EQ(c->evidence, evidence) << receiver;
    EXPECT_EQ(c->target, target) << receiver;
  };
  const std::string dispatch = "kite.app.App.dispatch";
  expect(receiver_of(app, dispatch, "send"), "T:kite.app.App/get_adapter()", "result-type");
  expect(receiver_of(app, dispatch, "dumps"), "T:kite.app.App/json", "attribute");
  expect(receiver_of(app, dispatch, "prepare"), "S:kite.wrappers.Request", "constructor");
  expect(receiver_of(app, "kite.app.handle", "prepare"), "T:kite.wrappers.Request",
         "declared-type");
  expect(receiver_of(app, "kite.app.handle", "dispatch"), "S:kite.app.create_app", "result-type");
  expect(receiver_of(app, "kite.app.Client.get", "dispatch"), "T:kite.app.Client/app", "attribute");
  // Where a target is named in the file, the receiver rides along for bases in other files.
  expect(receiver_of(app, dispatch, "setup_finished"), "T:kite.app.App", "self",
         "kite.app.App.setup_finished");
  expect(receiver_of(app, "kite.app.App.__init__", "__init__"), "B:kite.app.App", "super",
         "kite.sansio.scaffold.Scaffold.__init__");
  auto scaffold = parse_kite("src/kite/sansio/scaffold.py");
  EXPECT_EQ(scaffold.module, "kite.sansio.scaffold");
  EXPECT_EQ(symbol(scaffold, "kite.sansio.scaffold.Scaffold")->bases,
            std::vector<std::string>{"kite.helpers.Base"});

  // Fixtures: a test's parameter is the nearest conftest.py's fixture of its name.
  auto tests = parse_kite("tests/test_app.py");
  const std::string conftest_app = "S:conftest.app@:tests:conftest.py|S:conftest.app@:conftest.py";
  expect(receiver_of(tests, "test_app.test_dispatch", "dispatch"), conftest_app, "fixture");
  expect(receiver_of(tests, "test_app.test_response", "close"),
         "S:conftest.app@:tests:conftest.py/make_response()|"
         "S:conftest.app@:conftest.py/make_response()",
         "result-type");
  expect(receiver_of(tests, "test_app.test_build", "build"), "S:kite.app.App", "import",
         "kite.app.App.build");
  const auto* py = utils::language_for_path("x.py");
  auto nested = indexer::extract(*py, "tests/unit/test_x.py", "tests.unit.test_x",
                                 "import pytest\n\n@pytest.fixture\ndef tmp():\n    pass\n\n"
                                 "def test_x(app, tmp):\n    app.run()\n    tmp.stop()\n");
  expect(receiver_of(nested, "tests.unit.test_x.test_x", "run"),
         "S:tests.unit.conftest.app@:tests:unit:conftest.py|"
         "S:tests.conftest.app@:tests:conftest.py|S:conftest.app@:conftest.py",
         "fixture");
  expect(receiver_of(nested, "tests.unit.test_x.test_x", "stop"), "S:tests.unit.test_x.tmp",
         "fixture");
}

}  // namespace
