#pragma once
// The Python extraction's rules on the shared tag walk, shared by the files that hold them:
// python.cpp (definitions, imports, call sites) and type_evidence.cpp (what evidence says of
// types).

#include <tree_sitter/api.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "orvane_tamsel/indexer/languages/tagged.h"
#include "orvane_tamsel/indexer/parsed_file.h"
#include "orvane_tamsel/indexer/tree_sitter_handles.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::indexer::python::detail {

// `hash` ("#2", "#[]") after each alternative of a type expression: the second result, or the
// element iterated, of a start (a function) or of a last call; "" when one is neither.
std::string element_of(std::string_view expr, std::string_view hash);

std::string join_dotted(std::string_view a, std::string_view b);
// A variable's signature: its first line, cut to a bound on a character boundary.
std::string first_line(std::string_view text);

// What a capture stands for; the extractor dispatches on these instead of capture names.
enum Role : std::uint8_t {
  NAME,
  DEF_CLASS,
  DEF_FUNCTION,
  DEF_CONSTANT,
  HEADER,
  COLON,
  DECORATED,
  OUTER,
  DOCSTRING,
  DOC_OWNER,
  IMPORT,
  LOCAL,
  GLOBAL,
  INSTANCE,
  INSTANCE_CLASS,
  TYPED_NAME,
  TYPED_TYPE,
  BOUND_NAME,
  BOUND_VALUE,
  ATTRIBUTE,
  RETURNED,
  YIELDED,
  UNPACKED_LIST,
  UNPACKED_VALUE,
  ITERATED_NAME,
  ITERATED_VALUE,
  COMPREHENDED_NAME,
  COMPREHENDED_VALUE,
  NARROW,
  OTHER,
  ROLE_COUNT = OTHER
};

static_assert(ROLE_COUNT < 32, "roles are bits of Captures::present");

struct Query {
  QueryPtr query;
  std::vector<Role> roles;  // by capture id
};

// The Python queries, compiled once; a TSQuery is read-only after creation, so threads share it.
const Query& query(const utils::Language& language);

// One match's captured nodes by role.
struct Captures {
  std::array<TSNode, ROLE_COUNT + 1> node;  // read only where `present` has the role
  std::uint32_t present = 0;
  bool has(Role r) const { return (present & (1U << r)) != 0; }
  TSNode at(Role r) const {
    if (!has(r)) throw std::logic_error("Python query lacks a capture");
    return node[r];
  }
};

// What a name is bound to in one scope.
struct Binding {
  std::string fqn;
  std::string evidence;  // same-file, same-scope, import, module-attribute
  bool is_class = false;
  // An import that rebinds a function or class defined above it (`try: from _c import f`): the
  // definition, for when the imported one is not in the repository.
  std::string shadowed;
  // What the name was bound to before a binding that may not run (in a `try`, an `if` branch, a
  // loop): the call may reach those too.
  std::vector<std::string> also;
};

// What a scope says of the types of its names (or a class of its instances' attributes).
struct TypeFacts {
  std::map<std::string, std::vector<TSNode>, std::less<>> annotations;  // `type` nodes
  std::map<std::string, std::vector<TSNode>, std::less<>> values;       // what was assigned
};

struct Scope {
  std::map<std::string, Binding, std::less<>> names;
  std::map<std::string, int, std::less<>> locals;  // bound at run time: shadows outer names
  std::map<std::string, std::string, std::less<>> instances;  // name -> class fqn, if bound once
  TypeFacts facts;
};

// What evidence says of a value's type: a TypeExpr and how its last link is known.
struct Typed {
  std::string expr;
  std::string evidence;  // declared-type, result-type, constructor, attribute, fixture
  bool empty() const { return expr.empty(); }
};
inline bool is_class(TSNode n) {
  return std::strcmp(ts_node_type(n), "class_definition") == 0;
}

class Extraction : public tagged::Extraction {
 public:
  Extraction(const utils::Language& language, std::string_view path, std::string_view module,
             std::string_view content)
      : tagged::Extraction(language, path, module, content), q_(query(language)) {}

 private:
  // The walk's hooks (python.cpp).
  const TSQuery* tag_query() const override { return q_.query.get(); }
  // Sorts a match by what it says; definition tags go on to the walk as well.
  bool take(const TSQueryMatch& match) override;
  void matches_read() override;
  std::string top_prefix() const override { return module_; }
  std::optional<tagged::Definition> define(const tagged::Tag& tag) override;
  void defined(std::size_t symbol, const tagged::Tag& tag) override;
  std::string signature_of(TSNode host) const override;
  std::optional<std::string> docstring_of(TSNode host, const tagged::Frame& frame) const override;
  // A class body's calls are the class's.
  bool is_callable(const ParsedSymbol& s) const override {
    return s.kind != "variable" && s.kind != "module";
  }
  // Call sites: every call, and decorators (a decorator's call is a site once, as a decorator).
  void visit(TSNode node) override;
  void finish() override;
  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override;

  std::string string_body(TSNode s) const;
  // The definition a symbol's host holds: itself, or the one a decorated definition wraps.
  TSNode definition_of(TSNode host) const;

  // Definitions nest, so their byte ranges form a tree; walking it avoids ts_node_parent, which
  // descends from the root on every call.
  void nest_definitions();

  struct Def {
    TSNode node;
    std::uint32_t start, end;  // bytes, kept: ts_node_end_byte walks the subtree's children
    std::size_t parent;
  };

  static bool contains(const Def& outer, std::uint32_t start, std::uint32_t end, TSNode inner) {
    return outer.start <= start && end <= outer.end && !ts_node_eq(outer.node, inner);
  }

  // The innermost function or class around a node, or a null node at module level.
  TSNode enclosing_def(TSNode n) const;

  std::string fqn_of(TSNode def) const {
    if (ts_node_is_null(def)) return module_;
    auto it = def_fqn_.find(ts_node_start_byte(def));
    return it == def_fqn_.end() ? module_ : it->second;
  }

  std::uint32_t scope_key(TSNode def) const {
    return ts_node_is_null(def) ? UINT32_MAX : ts_node_start_byte(def);
  }

  void bind(TSNode scope_def, const std::string& name, Binding b) {
    scopes_[scope_key(scope_def)].names[name] = std::move(b);
  }

  // The package a relative import counts from: the module itself for an __init__.py.
  std::string relative_base(std::size_t level) const;

  void collect_imports();
  // Binds a name an import binds; one bound before stays a possibility when this may not run.
  void bind_import(TSNode stmt, TSNode scope, const std::string& name, Binding b);
  // Whether a statement in `scope` may not run each time the scope does.
  bool conditional(TSNode stmt, TSNode scope) const;
  bool defined_later(TSNode scope, const std::string& name, std::int64_t at) const;
  std::optional<Binding> lookup_here(TSNode scope, const std::string& name) const;

  void collect_locals();
  // A name `global` declares in a function is the module's: not a local there.
  bool declared_global(TSNode fn, std::string_view name) const;
  // The scope a bound name belongs to: its function's, or the module's when declared global.
  TSNode binding_scope(TSNode name) const;
  // Module names bound below the top level (in `if`/`try` blocks, or through `global` in a
  // function) are module variables too.
  void collect_module_variables();

  // Resolves a name as Python would look it up from `at`: enclosing functions, then the module.
  std::optional<Binding> lookup(TSNode at, std::string_view name) const;

  // `a.b.c` as its names, or nothing when the expression is not a plain dotted name.
  std::vector<std::string_view> dotted(TSNode n) const;

  void finish_bases();

  // A function's local assigned once from `Cls(...)` holds a Cls: its `x.m()` calls name Cls.m.
  void collect_instances();

  // The class a local name was built from in the innermost function holding `at`, if any.
  std::optional<std::string> instance_class(TSNode at, std::string_view name) const;

  // The bases of a class in lookup order, following the ones defined in this file.
  std::vector<std::string> ancestry(const std::string& cls) const;

  // The class whose method holds a node (for self / cls / super), or null.
  TSNode method_class(TSNode at) const;

  static bool is_local_function(const Binding& b) {
    return !b.is_class && (b.evidence == "same-file" || b.evidence == "same-scope");
  }

  bool is_type(TSNode n, const char* type) const {
    return !ts_node_is_null(n) && std::strcmp(ts_node_type(n), type) == 0;
  }

  // `a, b = value`: each plain name is bound to its element of the value.
  void collect_unpacked(TSNode targets, TSNode value);
  // The type of the element `index` (from 1) of a value unpacked into names.
  Typed element_type(TSNode value, std::uint32_t index, int depth) const;
  // What `for` over `value` binds: an element of a literal, of a container a name is annotated
  // with, or of what a call gives ("#[]": the function's element type, see element_result).
  Typed iterated_type(TSNode value, int depth) const;
  // The class of the elements of a name annotated as a container, looked up as name_type does.
  Typed annotated_element_of(TSNode at, std::string_view name) const;
  // What iterating a function's result gives: from its return annotation, what a generator
  // yields, or what its returns' elements agree on; "" when unknown.
  std::string element_result(TSNode fn) const;
  // A function all of whose returns are tuples of one length: the types of their elements.
  std::vector<std::pair<std::string, std::string>> tuple_results(TSNode fn) const;

  // Sorts what the type queries matched by the scope it speaks of.
  void collect_type_facts();

  // The fixture a function defines, by its name or the decorator's `name=`; "" when none.
  std::string fixture_name(TSNode def) const;
  // A generator whose callers get what it yields: a fixture, or a function decorated with
  // contextmanager (`with f() as x`).
  bool yields_value(TSNode fn) const;
  // A method read as an attribute: decorated with property or cached_property.
  bool is_property(TSNode def) const;
  // Whether a decorator of `def` names what `named` accepts (the decorator's expression text).
  bool decorated_by(TSNode def, bool (*named)(std::string_view)) const;

  // A class an annotation names, resolved as the names at `at` are: "T:fqn", or "".
  std::string annotated_type(TSNode annotation, TSNode at, bool yielded = false) const;
  std::string named_class(const std::string& name, TSNode at) const;

  // The one type all of `nodes` agree on (None assignments aside), or nothing.
  Typed agree(const std::vector<TSNode>& nodes, bool annotations, int depth) const;

  // A name's type from what its scope binds it to: a declaration first, then the values it is
  // given, when all of the scope's bindings of it are such values and agree.
  Typed bound_type(const TypeFacts& facts, std::string_view name, int bindings, int depth) const;

  // The type of a class's attribute `name`, from its body and the methods assigning self.name.
  Typed attribute_type(TSNode cls, std::string_view name, int depth) const;
  // The types a value may have, of those evidence gives ("&": the writer makes them agree).
  Typed possible(const std::vector<TSNode>& values, int depth) const;

  const TypeFacts* scope_facts(TSNode def) const {
    auto s = scopes_.find(scope_key(def));
    return s == scopes_.end() ? nullptr : &s->second.facts;
  }
  const TypeFacts* attribute_facts(TSNode cls) const {
    auto a = attributes_.find(scope_key(cls));
    return a == attributes_.end() ? nullptr : &a->second;
  }

  bool is_parameter(TSNode fn, std::string_view name) const;
  TSNode parameter_default(TSNode fn, std::string_view name) const;

  // pytest hands a test (or a fixture) the value of the fixture its parameter is named after:
  // one of this file (the test's class first), else one of the conftest.py files up the folders,
  // the nearest that defines it.
  Typed fixture_type(TSNode fn, std::string_view name) const;

  // The type of a name at `at`, looked up as Python would: locals of enclosing functions, then
  // the module's names.
  Typed name_type(TSNode at, std::string_view name, int depth) const;
  // Where an isinstance test makes a name or attribute an instance of its classes, or rules
  // them out: the parts of a statement or expression that tests (`if`, `elif`, `while`,
  // `assert`, `and` / `or`, `... if ... else ...`, a comprehension's `if`) where its test holds
  // or fails.
  void collect_narrowing(TSNode node);
  // `test` is known to be `holds` from `start` to `end`.
  void narrow(TSNode test, std::uint32_t start, std::uint32_t end, bool holds);
  // The classes an isinstance test around `at` gives `receiver` (a dotted name) there: "T:fqn",
  // "T:a&T:b" for a tuple of classes, or "".
  std::string narrowed_type(TSNode at, std::string_view receiver) const;
  Typed local_type(TSNode def, const Scope& scope, TSNode at, std::string_view name, int bindings,
                   int depth) const;
  Typed scope_type(TSNode def, const Scope& scope, std::string_view name, int bindings,
                   int depth) const;
  Typed module_name_type(std::string_view name, int depth) const;
  // A module name assigned differing known types in several places: the alternatives ("+").
  Typed alternatives(const TypeFacts& facts, std::string_view name, int depth) const;
  Typed nearest_binding_type(TSNode def, TSNode at, std::string_view name, int depth) const;
  bool always_rebinds(TSNode n, TSNode at, const std::vector<TSNode>& reaching) const;

  // A name bound to a class is that class; an imported name is whatever the name is there.
  static Typed binding_type(const Binding& b) {
    if (b.is_class) return {"S:" + b.fqn, "constructor"};
    if (b.evidence == "import") return {"S:" + b.fqn, "attribute"};
    return {};  // a function or a module as a value has no class
  }

  // What local evidence says of the type of an expression's value.
  Typed value_type(TSNode e, int depth) const;
  Typed either_type(TSNode e, int depth) const;
  Typed entered_type(TSNode pattern, int depth) const;
  // A method whose every return is `self` (or annotated `-> Self`).
  bool returns_self(TSNode fn) const;
  Typed new_instance_type(TSNode call, int depth) const;
  Typed named_type(const Binding& b, const std::vector<std::string_view>& parts, bool call) const;
  Typed called_name_type(TSNode head, int depth) const;

  // A function's result: its return annotation, else the one type all its returns agree on; a
  // generator has none, but a fixture that yields gives what it yields.
  std::string result_type(TSNode fn) const;

  // Symbols' types, and the typed attributes of classes (not symbols of their own) as fields.
  void collect_types();

  // Names the callee where local evidence does. Where the method may live on a base in another
  // file, or only the receiver's type is known, the receiver's type goes along for the writer.
  void resolve(TSNode callee, ParsedCall& call) const;
  // A local name bound to a method read off a typed value, called.
  void method_alias(TSNode callee, std::string_view name, ParsedCall& call) const;
  // A name bound nowhere in the file, named through the modules it star-imports.
  bool star_import(TSNode at, std::string_view name, ParsedCall& call) const;

  const Query& q_;
  std::unordered_map<std::uint32_t, std::string> signatures_, docstrings_, def_fqn_;
  std::unordered_map<std::uint32_t, Scope> scopes_;
  std::vector<Def> defs_;
  struct Named {
    TSNode node, name;
    Role role;
  };
  std::vector<Named> tags_;  // definitions, in document order
  std::vector<TSNode> imports_, locals_, globals_;
  std::unordered_map<std::uint32_t, std::unordered_set<std::string>> global_names_;  // by def
  std::unordered_set<std::uint32_t> decorator_calls_;  // by the callee's start byte
  std::set<std::string> variables_;                    // module constants' fqns, bound once
  std::vector<std::pair<TSNode, TSNode>> instances_;   // local name, what it was built from
  std::vector<std::pair<TSNode, std::size_t>> class_nodes_;
  std::map<std::string, std::vector<std::string>> bases_;
  // Type evidence: what the type queries matched, then sorted by scope (a def's start byte).
  struct Fact {
    TSNode target;  // a name, or an attribute `self.x`
    TSNode what;    // its annotation or its value
    bool typed;     // an annotation
  };
  std::vector<Fact> name_facts_, attribute_facts_;
  std::vector<TSNode> returned_, yielded_;
  // Names bound by unpacking (by start byte): the value unpacked and the element's index, 0 for
  // a `for` loop's name (an element of what it iterates).
  std::unordered_map<std::uint32_t, std::pair<TSNode, std::uint32_t>> unpacked_;
  // Where an `isinstance(x, C)` test holds, by start (see collect_narrowing).
  struct Narrowed {
    std::uint32_t start, end;
    std::string name;  // dotted: `x`, `self.conn`
    std::vector<TSNode> classes;
    bool negated;  // where the test fails: none of the classes
  };
  std::vector<Narrowed> narrowed_;
  std::optional<Narrowed> isinstance_test(TSNode test) const;
  // Names a comprehension binds: where (its bytes) and what it iterates, innermost last.
  struct Comprehended {
    std::uint32_t start, end;
    TSNode value;
  };
  std::unordered_map<std::string, std::vector<Comprehended>> comprehended_;
  std::unordered_map<std::uint32_t, TSNode> decorators_;  // definition -> decorated_definition
  std::unordered_map<std::uint32_t, std::vector<TSNode>> returns_, yields_;  // by function
  std::unordered_map<std::uint32_t, TypeFacts> attributes_;  // by class: self.x bindings
  std::unordered_map<std::uint32_t, std::map<std::string, std::string, std::less<>>>
      fixtures_;                                               // by scope: fixture name -> fqn
  std::vector<std::pair<TSNode, std::size_t>> typed_symbols_;  // functions and variables
  mutable std::map<std::pair<std::uint32_t, std::string>, Typed> local_types_;
  // For names bound to values of differing types: each function's bindings of a name, the value
  // each binding assigns (by the bound name's start byte), and the types of those values.
  mutable std::map<std::pair<std::uint32_t, std::string>, std::vector<TSNode>> binding_sites_;
  mutable std::unordered_map<std::uint32_t, TSNode> bound_values_;
  mutable std::unordered_map<std::uint32_t, Typed> value_types_;
  // The fqns of this file's symbols, once every symbol is known (hides the walk's own map).
  std::unordered_set<std::string> defined_;
};

}  // namespace orvane_tamsel::indexer::python::detail
