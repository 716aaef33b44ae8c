// End to end: the callers that typed receivers in a Python package give, resolved by the writer.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexed_fixture.h"

namespace {

// Receivers typed by a result, an attribute, a constructor, an annotation and a pytest fixture
// reach methods defined in other files, on bases too; a namespace folder inside the package
// links its base class.
TEST(PythonTypesEndToEnd, TypedReceiversFindTheirCallees) {
  indexer_test::IndexedFixture repo("py_types");
  auto edges = repo.rows(
      "SELECT r.fqn || ' -> ' || e.fqn FROM edges g JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id");
  std::set<std::string> seen(edges.begin(), edges.end());
  for (const char* edge : {
           "kite.app.App.dispatch -> kite.adapters.Adapter.send",
           "kite.app.App.dispatch -> kite.json.JSONProvider.dumps",
           "kite.app.App.dispatch -> kite.wrappers.Request.prepare",
           "kite.app.App.dispatch -> kite.sansio.scaffold.Scaffold.route",
           "kite.app.handle -> kite.wrappers.Request.prepare",
           "kite.app.handle -> kite.app.App.dispatch",
           "kite.app.Client.get -> kite.app.App.dispatch",
           "kite.sansio.scaffold.Scaffold.__init__ -> kite.helpers.Base.__init__",
           // fixtures of conftest.py, a classmethod on a base in another file
           "test_app.test_dispatch -> kite.app.App.dispatch",
           "test_app.test_get -> kite.app.Client.get",
           "test_app.test_response -> kite.wrappers.Response.close",
           "test_app.test_build -> kite.sansio.scaffold.Scaffold.build",
       }) {
    EXPECT_EQ(seen.count(edge), 1u) << edge;
  }
}

// isinstance narrows a receiver to its classes (of a tuple, those bound here) where the test
// holds: the block it guards, the operands after it under `and` (after `not isinstance` under
// `or`), the branch of a conditional expression, a comprehension's element and later clauses, a
// `while` body, a guarded `case`, after a test whose body always leaves (also `not ... or ...`) or
// an assert, the `elif` and `else` of an `if not`; on an attribute until it is assigned (`x =
// x.m()` reads it first). Not after an `if not` with an `else`, nor past the block, nor where the
// test may fail; where it fails (`if not` body, `else` branch, later `elif`), the classes it tests
// are left out.
TEST(PythonTypesEndToEnd, NarrowedReceivers) {
  indexer_test::IndexedFixture repo("py_types");
  auto rows = repo.rows(
      "SELECT r.fqn || ' -> ' || e.fqn || ' ' || g.line FROM edges g JOIN symbols r ON "
      "r.id = g.caller_id JOIN symbols e ON e.id = g.callee_id JOIN files f ON f.id = g.file_id "
      "WHERE f.path = 'src/kite/narrowing.py' AND e.kind = 'method'");
  EXPECT_EQ(
      std::set<std::string>(rows.begin(), rows.end()),
      (std::set<std::string>{"kite.narrowing.either -> kite.adapters.Adapter.send 15",
                             "kite.narrowing.either -> kite.narrowing.Pipe.send 15",
                             "kite.narrowing.either -> kite.adapters.Adapter.send 17",
                             "kite.narrowing.either -> kite.narrowing.Pipe.send 18",
                             "kite.narrowing.either -> kite.narrowing.Pipe.close 19",
                             "kite.narrowing.early -> kite.adapters.Adapter.send 27",
                             "kite.narrowing.early -> kite.narrowing.Pipe.close 31",
                             "kite.narrowing.early -> kite.wrappers.Response.close 34",
                             "kite.narrowing.loop -> kite.narrowing.Pipe.close 41",
                             "kite.narrowing.Holder.run -> kite.narrowing.Pipe.close 52",
                             "kite.narrowing.Holder.run -> kite.wrappers.Response.__init__ 53",
                             "kite.narrowing.Holder.run -> kite.wrappers.Response.close 54",
                             "kite.narrowing.expressions -> kite.narrowing.Pipe.send 58",
                             "kite.narrowing.expressions -> kite.narrowing.Pipe.close 59",
                             "kite.narrowing.expressions -> kite.adapters.Adapter.send 60",
                             "kite.narrowing.expressions -> kite.narrowing.Pipe.close 61",
                             "kite.narrowing.expressions -> kite.wrappers.Response.close 63",
                             "kite.narrowing.expressions -> kite.wrappers.Response.close 64",
                             "kite.narrowing.expressions -> kite.narrowing.Pipe.close 66",
                             "kite.narrowing.expressions -> kite.narrowing.Pipe.close 68",
                             "kite.narrowing.expressions -> kite.adapters.Adapter.send 69",
                             "kite.narrowing.expressions -> kite.adapters.Adapter.send 73",
                             "kite.narrowing.expressions -> kite.adapters.Adapter.send 76",
                             "kite.narrowing.matched -> kite.narrowing.Pipe.close 82"}));
}

// What Python code says of a value beyond a single assignment: properties, a field holding a
// class, a parameter's default, a chained assignment, the nearest of differing bindings,
// `a or b`, `x.__class__`, `object.__new__`, several returns, star imports and an import that
// may shadow a definition.
TEST(PythonTypesEndToEnd, ValuesOfManyBindingsAndForms) {
  indexer_test::IndexedFixture repo("");
  repo.write("box/__init__.py", "");
  repo.write("box/parts.py",
             "class A:\n    def a(self):\n        pass\n\n\nclass B:\n    def b(self):\n"
             "        pass\n\n\ndef make():\n    s = object.__new__(A)\n    return s\n\n\n"
             "def load(flag, other):\n    if flag:\n        return A()\n"
             "    return other.open()\n\n\ndef star():\n    pass\n");
  repo.write("box/use.py",
             "from box.parts import *\nfrom box.parts import A, B, make, load\n\n\n"
             "def helper():\n    pass\n\n\ntry:\n    from _speedups import helper\n"
             "except ImportError:\n    pass\n\n\n"
             "class Holder:\n    kind = A\n\n    def __init__(self, part=None, spare=B()):\n"
             "        self.part = A()\n        self.spare = spare\n"
             "        self.other = self.more = B()\n\n"
             "    def set(self, part):\n        self.part = part\n\n"
             "    @property\n    def current(self):\n        return self.part\n\n"
             "    def run(self, x=None):\n        self.current.a()\n        self.kind().a()\n"
             "        self.spare.b()\n        (x or B()).b()\n        self.__class__().run()\n"
             "        y = A()\n        y.a()\n        y = B()\n        y.b()\n"
             "        make().a()\n        load(1, x).a()\n        star()\n        helper()\n"
             "        self.other.b()\n");
  repo.update();
  auto rows = repo.rows(
      "SELECT e.fqn || ' x' || count(*) FROM edges g JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id WHERE r.fqn = 'box.use.Holder.run' GROUP BY e.fqn");
  std::set<std::string> seen(rows.begin(), rows.end());
  EXPECT_EQ(seen,
            (std::set<std::string>{"box.parts.A x1", "box.parts.B x2", "box.parts.A.a x5",
                                   "box.parts.B.b x4", "box.use.Holder.run x1", "box.parts.make x1",
                                   "box.parts.load x1", "box.parts.star x1", "box.use.helper x1"}));
}

// Module names bound away from the top level: a class chosen per platform under `if` (the
// receiver has what the choices share), a name a function binds through `global` (a lazy
// `__getattr__`), and a module's variable reached through the module; names bound by unpacking
// a tuple a function or method returns, or a context manager yields.
TEST(PythonTypesEndToEnd, ModuleNamesChosenAtImportTime) {
  indexer_test::IndexedFixture repo("");
  repo.write("sel/__init__.py",
             "class Base:\n    def register(self):\n        pass\n\n\n"
             "class Impl(Base):\n    def register(self):\n        pass\n\n\n"
             "class PollLike(Impl):\n    def register(self):\n        pass\n\n\n"
             "class Poll(PollLike):\n    pass\n\n\n"
             "class Select(Impl):\n    def register(self):\n        pass\n\n\n"
             "class Other:\n    def register(self):\n        pass\n\n\n"
             "if hasattr(Base, 'poll'):\n    Default = Poll\nelse:\n    Default = Select\n"
             "try:\n    Loose = Poll\nexcept ImportError:\n    Loose = Other\n"
             "Unknown = Poll if hasattr(Base, 'x') else Select\nif Base:\n    Unknown = make()\n"
             "chosen = Select()\n\n\n"
             "def __getattr__(name):\n    global Lazy\n    from sel.lazy import Lazy as k\n"
             "    Lazy = k\n    return k\n");
  repo.write("sel/lazy.py", "class Lazy:\n    def close(self):\n        pass\n");
  repo.write("use.py",
             "import contextlib\nimport sel\n\n\nif sel:\n    Mine = sel.Poll\nelse:\n    Mine = "
             "sel.Select\n\n\n"
             "class Server:\n    def __init__(self):\n        self.s = sel.Default()\n\n"
             "    def serve(self):\n        self.s.register()\n\n\n"
             "def run():\n    with Mine() as m:\n        m.register()\n\n\n"
             "def others():\n    sel.Loose().register()\n    sel.Unknown().register()\n"
             "    sel.chosen.register()\n    sel.Lazy().close()\n\n\n"
             "def pair():\n    if sel:\n        return sel.Select(), sel.lazy.Lazy()\n"
             "    return None, sel.lazy.Lazy()\n\n\n"
             "class Client:\n    def setup(self):\n        return self, sel.Select()\n\n"
             "    def close(self):\n        pass\n\n"
             "    def run(self):\n        c, s = self.setup()\n        c.close()\n"
             "        s.register()\n\n\n"
             "def unpack():\n    a, b = pair()\n    a.register()\n    b.close()\n"
             "    (x, y) = sel.Select(), Client()\n    y.run()\n    x, y = 1, 2\n"
             "    y.setup()\n\n\n"
             "def indexed():\n    pair()[1].close()\n    pair()[0].setup()\n\n\n"
             "@contextlib.contextmanager\ndef opened():\n    yield Client(), sel.Select()\n\n\n"
             "def managed():\n    with opened() as (c, s):\n        c.close()\n\n\n"
             "@contextlib.contextmanager\ndef one():\n    yield sel.Select()\n\n\n"
             "def managed_one():\n    with one() as s:\n        s.register()\n");
  repo.update();
  auto rows = repo.rows(
      "SELECT r.fqn || ' -> ' || e.fqn || ' ' || c.evidence FROM edges g "
      "JOIN call_sites c ON c.id = g.site_id JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id WHERE r.fqn LIKE 'use.%' AND e.kind = 'method'");
  std::set<std::string> seen(rows.begin(), rows.end());
  // Poll and Select override register apart: the call names Impl's, which both inherit from.
  // Loose may be a class outside the hierarchy and Unknown something unknown: no edge.
  EXPECT_EQ(seen, (std::set<std::string>{
                      "use.Server.serve -> sel.Impl.register common-base",
                      "use.run -> sel.Impl.register common-base",
                      "use.others -> sel.Select.register module-attribute",
                      "use.others -> sel.lazy.Lazy.close constructor",
                      // tuples returned and unpacked; y rebound to an int: no edge after
                      "use.Client.run -> use.Client.setup self",
                      "use.Client.run -> use.Client.close result-type",
                      "use.Client.run -> sel.Select.register result-type",
                      "use.unpack -> sel.Select.register result-type",
                      "use.unpack -> sel.lazy.Lazy.close result-type",
                      "use.unpack -> use.Client.run constructor",
                      "use.indexed -> sel.lazy.Lazy.close result-type",
                      // `with` a context manager: what it yields
                      "use.managed -> use.Client.close result-type",
                      "use.managed_one -> sel.Select.register result-type",
                  }));
  auto variables = repo.rows("SELECT fqn FROM symbols WHERE kind = 'variable' ORDER BY fqn");
  EXPECT_EQ(variables, (std::vector<std::string>{"sel.Default", "sel.Lazy", "sel.Loose",
                                                 "sel.Unknown", "sel.chosen", "use.Mine"}));
}

// Names bound by `for` or a comprehension (an element of an annotated container, a generator's
// yields, a literal, a builtin passing elements on), a method read into a name or an attribute and
// called later, what `with` binds (what `__enter__` returns, an inherited `return self` giving the
// subclass, the instance itself when no `__enter__` is known) and a base's `return self` on a
// subclass.
TEST(PythonTypesEndToEnd, LoopsAliasesAndEnteredValues) {
  indexer_test::IndexedFixture repo("");
  repo.write("pkg/__init__.py", "");
  repo.write("pkg/parts.py", R"(from typing import Self


class Part:
    def fit(self):
        pass

    def chain(self):
        return self

    def me(self) -> Self:
        return self


class Special(Part):
    def special(self):
        pass


class Box:
    def parts(self) -> list[Part]:
        return []

    def each(self):
        for p in self.parts():
            yield p

    def pair(self):
        return [Part(), Part()]

    def __enter__(self):
        return Part()


class Plain:
    def close(self):
        pass

    def __enter__(self):
        return self


class Loose(Plain):
    def loosen(self):
        pass


class Unentered:
    def done(self):
        pass
)");
  repo.write("use.py", R"(from pkg.parts import Box, Part, Loose, Unentered, Special


def loops(box: Box, given: list[Part], many: "Optional[Sequence[Part]]"):
    for a in box.parts():
        a.fit()
    for b in box.each():
        b.fit()
    for c in given:
        c.fit()
    for d in (Part(), Part()):
        d.fit()
    for e in sorted(box.pair()):
        e.fit()
    for f in many:
        f.fit()
    for g in [Part(), Box()]:
        g.fit()
    return [h.fit() for h in given if h]


def aliases(box: Box, flag):
    fit = Part().fit
    fit()
    parts = box.parts
    parts()


class Holder:
    def __init__(self):
        self.run = Part().fit

    def go(self):
        self.run()


def entered():
    with Box() as x:
        x.fit()
    with Loose() as y:
        y.loosen()
    with Unentered() as z:
        z.done()
    Special().chain().special()
    Special().me().special()
)");
  repo.update();
  auto rows = repo.rows(
      "SELECT r.name || ':' || c.line || ' ' || e.fqn FROM edges g "
      "JOIN call_sites c ON c.id = g.site_id JOIN symbols r ON r.id = g.caller_id "
      "JOIN symbols e ON e.id = g.callee_id WHERE r.fqn LIKE 'use.%' AND e.kind = 'method'");
  std::set<std::string> seen(rows.begin(), rows.end());
  EXPECT_EQ(seen, (std::set<std::string>{
                      "loops:5 pkg.parts.Box.parts",
                      "loops:6 pkg.parts.Part.fit",
                      "loops:7 pkg.parts.Box.each",
                      "loops:8 pkg.parts.Part.fit",
                      "loops:10 pkg.parts.Part.fit",
                      "loops:12 pkg.parts.Part.fit",
                      "loops:13 pkg.parts.Box.pair",
                      "loops:14 pkg.parts.Part.fit",
                      "loops:16 pkg.parts.Part.fit",  // `g` may be a Box too: no edge at 18
                      "loops:19 pkg.parts.Part.fit",
                      "aliases:24 pkg.parts.Part.fit",
                      "aliases:26 pkg.parts.Box.parts",
                      "go:34 pkg.parts.Part.fit",  // the attribute's method, the method's own
                      "entered:39 pkg.parts.Part.fit",
                      "entered:41 pkg.parts.Loose.loosen",
                      "entered:43 pkg.parts.Unentered.done",
                      "entered:44 pkg.parts.Part.chain",
                      "entered:44 pkg.parts.Special.special",
                      "entered:45 pkg.parts.Part.me",
                      "entered:45 pkg.parts.Special.special"}));
}

// A call that may reach several callees links each: a receiver one of several classes (returns
// that disagree, a name bound on branches), a method read on either branch (the same or two),
// an import tried before another, a function defined on either branch (not one defined twice
// in a row). More classes than a
// union links: none, and the site says why. An edit that takes the method from one class
// unlinks the call from that one.
TEST(PythonTypesEndToEnd, CallsThatMayReachSeveralCallees) {
  indexer_test::IndexedFixture repo("");
  std::string shapes;
  for (const char* c : {"Leaf", "Node", "Star", "Not", "Extra"}) {
    shapes += std::string("class ") + c + ":\n    def match(self, node):\n        pass\n\n\n";
  }
  shapes +=
      "def compile(kind):\n    if kind == 1:\n        return Leaf()\n    if kind == 2:\n"
      "        return Node()\n    return Star()\n\n\n"
      "def compile_more(kind):\n    if kind:\n        return compile(kind)\n"
      "    return Not() if kind is None else Extra()\n";
  repo.write("pkg/__init__.py", "");
  repo.write("pkg/shapes.py", shapes);
  repo.write("pkg/fast.py",
             "import sys\n\n\ndef loads(s):\n    pass\n\n\nif sys.platform == 'win32':\n"
             "    def dump(s):\n        pass\nelse:\n    def dump(s):\n        return s\n\n\n"
             "def again(s):\n    pass\n\n\ndef again(s):\n    return s\n");
  repo.write("pkg/slow.py", "def loads(s):\n    pass\n");
  repo.write(
      "pkg/use.py",
      "from pkg.shapes import compile, compile_more, Leaf, Node, Star\n"
      "try:\n    from pkg.fast import loads, dump, again\nexcept ImportError:\n"
      "    from pkg.slow import loads\n\n\n"
      "def run(flag, node):\n    compile(flag).match(node)\n"
      "    compile_more(flag).match(node)\n    loads(node)\n    dump(node)\n    again(node)\n"
      "    if flag:\n        f = Leaf().match\n    else:\n        f = Node().match\n"
      "    f(node)\n    x = Star()\n    if flag:\n        x = Leaf()\n    x.match(node)\n"
      "    y = Star()\n    if flag:\n        y = Leaf()\n    else:\n        y = Node()\n"
      "    y.match(node)\n\n\n"
      "class Runner:\n    def a(self):\n        pass\n\n    def b(self):\n        pass\n\n"
      "    def go(self, flag):\n        if flag:\n            step = self.a\n        else:\n"
      "            step = self.b\n        step()\n");
  repo.update();
  auto methods = [&] {
    auto rows = repo.rows(
        "SELECT e.fqn || ' x' || count(*) FROM edges g JOIN symbols r ON r.id = g.caller_id "
        "JOIN symbols e ON e.id = g.callee_id WHERE r.fqn = 'pkg.use.run' AND e.kind <> 'class' "
        "GROUP BY e.fqn");
    return std::set<std::string>(rows.begin(), rows.end());
  };
  EXPECT_EQ(methods(),
            (std::set<std::string>{"pkg.shapes.Leaf.match x4", "pkg.shapes.Node.match x3",
                                   "pkg.shapes.Star.match x2", "pkg.shapes.compile x1",
                                   "pkg.shapes.compile_more x1", "pkg.fast.loads x1",
                                   "pkg.slow.loads x1", "pkg.fast.dump x2", "pkg.fast.again x1"}));
  EXPECT_EQ(repo.callees("pkg.use.Runner.go"),
            (std::set<std::string>{"pkg.use.Runner.a", "pkg.use.Runner.b"}));
  EXPECT_EQ(repo.rows("SELECT line FROM call_sites WHERE evidence = 'union-too-wide'"),
            std::vector<std::string>{"10"});
  repo.write("pkg/shapes.py", shapes.replace(shapes.find("Star:\n") + 6, 39, "    pass\n"));
  repo.update();
  EXPECT_EQ(methods(),
            (std::set<std::string>{"pkg.shapes.Leaf.match x4", "pkg.shapes.Node.match x3",
                                   "pkg.shapes.compile x1", "pkg.shapes.compile_more x1",
                                   "pkg.fast.loads x1", "pkg.slow.loads x1", "pkg.fast.dump x2",
                                   "pkg.fast.again x1"}));
}

// Unions declared in annotations: of parameters, returns, attributes and class bodies, written
// with `|`, Optional, Union or in a string. None drops out, each class with the method links, one
// without is passed over, and a union wider than the writer links says so at its site; an
// isinstance test narrows it until the name is bound again. A value that may be one of three
// classes of a family, a factory's products, calls the family's method; of two, each one's; a
// class the code builds itself, its own.
TEST(PythonTypesEndToEnd, DeclaredUnionsAndFamilies) {
  indexer_test::IndexedFixture repo("");
  std::string shapes = "class Plain:\n    def other(self):\n        pass\n\n\n";
  for (const char* c : {"Leaf", "Node", "Star", "Not", "Extra"}) {
    shapes += std::string("class ") + c + ":\n    def match(self, node):\n        pass\n\n\n";
  }
  repo.write("pkg/__init__.py", "");
  repo.write("pkg/shapes.py", shapes);
  repo.write("pkg/use.py",
             "from typing import Optional, Union\n"
             "from pkg.shapes import Extra, Leaf, Node, Not, Plain, Star\n\n\n"
             "def pick(flag) -> Optional[Leaf]:\n    pass\n\n\n"
             "def either(flag) -> \"Union[Leaf, Node]\":\n    pass\n\n\n"
             "class Holder:\n    slot: Leaf | Node | None\n\n"
             "    def __init__(self):\n        self.spare: \"Node | None\" = None\n\n"
             "    def run(self, node):\n        self.slot.match(node)\n"
             "        self.spare.match(node)\n\n\n"
             "def check(a: Leaf | Node, b: Union[Leaf, Plain, None], c: int | Node, node):\n"
             "    a.match(node)\n    b.match(node)\n    c.match(node)\n"
             "    pick(1).match(node)\n    either(1).match(node)\n\n\n"
             "def wide(w: Leaf | Node | Star | Not | Extra, node):\n    w.match(node)\n\n\n"
             "def narrow(a: Leaf | Node, node):\n    if isinstance(a, Leaf):\n"
             "        a.match(node)\n    elif isinstance(a, Node):\n        a.match(node)\n"
             "    if isinstance(a, Leaf):\n        a = Star()\n        a.match(node)\n");
  repo.write(
      "pkg/family.py",
      "class Pattern:\n    def match(self, node):\n        pass\n\n\n"
      "class Leaf(Pattern):\n    def match(self, node):\n        pass\n\n\n"
      "class Node(Pattern):\n    pass\n\n\n"
      "class Star(Pattern):\n    def match(self, node):\n        pass\n\n\n"
      "def compile(kind):\n    if kind == 1:\n        return Leaf()\n"
      "    return Node() if kind else Star()\n\n\n"
      "def pair(kind):\n    return Leaf() if kind else Node()\n\n\n"
      "def run(kind, node):\n    compile(kind).match(node)\n    pair(kind).match(node)\n\n\n"
      "def mixed(kind, node):\n    p = Star() if kind else compile(kind)\n    p.match(node)\n"
      "    if kind == 1:\n        q = Leaf()\n    elif kind:\n        q = Node()\n"
      "    else:\n        q = Star()\n    q.match(node)\n");
  repo.update();
  auto methods = [&](const char* caller) {
    auto rows = repo.rows(
        "SELECT e.fqn || ' x' || count(*) FROM edges g JOIN symbols r ON r.id = g.caller_id "
        "JOIN symbols e ON e.id = g.callee_id WHERE r.fqn = '" +
        std::string(caller) + "' AND e.kind = 'method' GROUP BY e.fqn");
    return std::set<std::string>(rows.begin(), rows.end());
  };
  EXPECT_EQ(methods("pkg.use.check"),
            (std::set<std::string>{"pkg.shapes.Leaf.match x4", "pkg.shapes.Node.match x3"}));
  EXPECT_EQ(methods("pkg.use.Holder.run"),
            (std::set<std::string>{"pkg.shapes.Leaf.match x1", "pkg.shapes.Node.match x2"}));
  EXPECT_EQ(methods("pkg.use.wide"), std::set<std::string>{});
  EXPECT_EQ(methods("pkg.use.narrow"),
            (std::set<std::string>{"pkg.shapes.Leaf.match x2", "pkg.shapes.Node.match x2"}));
  EXPECT_EQ(methods("pkg.family.run"),
            (std::set<std::string>{"pkg.family.Pattern.match x2", "pkg.family.Leaf.match x1"}));
  EXPECT_EQ(methods("pkg.family.mixed"),
            (std::set<std::string>{"pkg.family.Pattern.match x2", "pkg.family.Star.match x2",
                                   "pkg.family.Leaf.match x1"}));
  EXPECT_EQ(repo.rows("SELECT DISTINCT line FROM call_sites s JOIN files f ON f.id = s.file_id "
                      "WHERE evidence = 'union' AND f.path = 'pkg/use.py' ORDER BY line"),
            (std::vector<std::string>{"20", "25", "29", "43"}));
  EXPECT_EQ(repo.rows("SELECT line FROM call_sites WHERE evidence = 'union-too-wide'"),
            std::vector<std::string>{"33"});
  EXPECT_EQ(repo.rows("SELECT s.line || ' ' || s.evidence FROM call_sites s JOIN files f ON "
                      "f.id = s.file_id WHERE f.path = 'pkg/family.py' AND s.member = 'match'"),
            (std::vector<std::string>{"31 common-base", "32 union", "37 union", "44 union"}));
}

}  // namespace
