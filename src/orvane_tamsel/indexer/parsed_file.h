#pragma once
// What parsing one source file yields: the hand-off from the parser to the index writer.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane_tamsel::indexer {

// What local evidence says about the type of a value, resolved by the writer against the whole
// index (the facts it needs may live in other files). Written as text so that it can be stored
// and compared: a start, then steps.
//   "T:fqn"   the type (class, struct, interface) named fqn
//   "S:fqn"   what the symbol fqn gives: a function's or method's result type, a variable's or
//             field's type, and for a class (called as a constructor) the class itself
//   "B:fqn"   the bases of the type fqn, for a member looked up past fqn itself (`super()`);
//             takes no steps
// followed by any number of
//   "/name"   the attribute or field `name` of the type so far (its declared or inferred type)
//   "/name()" the result of calling method `name` on the type so far
//   "/name()#2" the second result of that call (a Python method returning a tuple)
//   "/[]"     an element of the slice, array or map (its value) so far; "T:[]fqn" is a slice,
//             array or map of fqn values (one "[]" per level)
// e.g. "S:gin.CreateTestContext" or "T:flask.app.Flask/json/dumps()". "S:fqn#2" is the second
// result of the function fqn, which keeps its results after the first as fields "#2", "#3", ...
// (a Python function returning tuples keeps each element, "#1" too). A
// start may be qualified by the modules whose files may hold it, as ParsedCall::scope_modules does
// for a target: "S:gin.New@github.com.gin-gonic.gin" (several modules joined by ","). An entry
// starting with
// ":" names one file instead, its path with ":" for "/" (":tests:conftest.py"): for names
// that several files share by module, such as pytest's conftest.py files outside packages.
// Alternatives are joined by "|", nearest first: the first whose start names a symbol counts
// (a pytest fixture of the nearest conftest.py that defines it, e.g.
// "S:conftest.client@:tests:api:conftest.py|S:conftest.client@:tests:conftest.py").
// Values joined by "&" (each a list of alternatives) are what a function may return, or what
// the bindings of a name that reach a use hold: the value is one of those the writer can
// evaluate, the others are passed over ("T:a.Box&S:a.f" is a Box when f's result is unknown or
// a Box, and a Box or a Bag when f gives a Bag); a call on it links the member of each type.
// Types joined by "+" (binding loosest) are alternatives a value is one of (a module name
// assigned a different class per platform): each must evaluate, and the value has the nearest
// base they all share (evidence "common-base").
// Empty: unknown. A start with no symbol of its fqn (and no scope) may name one through a module
// that re-exports it (`S:pkg.Thing` for `from .impl import Thing` in pkg/__init__.py).
// The writer finds "/name" as a symbol `type.name` with a type_of, or as one of the type's
// `fields`; either also on the type's bases (nearest first; two at one depth: unknown).
// Several symbols of a start's fqn must all give the same type, or the expression is unknown.
// Fqns and names hold no "/", "@" or ","; an expression holds no blank, tab or newline.
using TypeExpr = std::string;

struct ParsedSymbol {
  std::string fqn;  // dotted: module path, enclosing classes, name
  std::string name;
  std::string kind;             // module, class, function, method, variable, ...
  std::int64_t start_line = 0;  // 1-based
  std::int64_t end_line = 0;
  std::optional<std::string> signature;
  std::optional<std::string> docstring;
  bool is_test = false;
  std::string parent_fqn;  // enclosing symbol (the module for top-level ones)
  std::vector<std::string>
      bases;  // classes: base classes as fqns, as far as evidence resolves them
  // Functions and methods: the type of their (first) result; variables, fields, constants and
  // attributes: their declared or inferred type. Empty when nothing says.
  TypeExpr type_of;
  // Classes and structs: members with a type that are not symbols of their own (a Go struct's
  // fields, embedded ones under their type's name; attributes set in a constructor), as
  // (name, type). A member symbol with a type_of says the same. A method listed here too is read
  // as an attribute (a Python property) of that type; a field holding a class ("S:" of a class),
  // called, gives an instance of it.
  std::vector<std::pair<std::string, TypeExpr>> fields;
  // What the symbol says in words besides its docstring (the strings it holds itself), searched
  // as text; "" when nothing does.
  std::string words;
};

// The field a function or method defined more than once in its file on branches that exclude
// each other (`if win32: def f` / `else: def f`) lists: a call of its fqn reaches every one so
// marked.
inline constexpr const char* ON_BRANCHES = "#branches";

struct ParsedImport {
  std::int64_t line = 0;
  std::string module;  // absolute dotted module (relative imports already resolved)
  std::string name;    // the imported name for `from m import name`; empty for `import m`;
                       // a C or C++ #include as written (`<a.h>`, `"a.h"`)
  std::string alias;   // the bound name when `as` is used
};

// A call site resolved by local evidence to the fqn it names. The writer links it to a symbol
// when one with that fqn exists (else the first existing fallback); otherwise it stays unresolved.
// When fqns are not unique across files (C's global names, Go packages of one name, a C++
// declaration in a header and its definition in a source file), `scope_modules` holds the
// evidence: only symbols in files whose module is one of them, or whose module is a dotted tail
// of one (`github.com.x.pkg` admits `pkg`), count; among those a definition with a body (the
// longest) wins over a declaration. Empty: any file counts.
struct ParsedCall {
  std::string caller_fqn;  // the enclosing function/method/class, or the module for top level
  std::int64_t line = 0;
  std::string target;                      // empty when nothing local names the callee
  std::vector<std::string> fallbacks;      // e.g. the same method on the bases, in lookup order
  std::string evidence;                    // same-scope, same-file, import, self, cls, super,
                                           // constructor, module-attribute, decorator, include,
                                           // same-package, receiver, this, unique-name
  std::vector<std::string> scope_modules;  // the own file's module, Go packages; for C and C++
                                           // the writer adds what the file's #includes reach
  // A call `<receiver>.member(...)` whose target local evidence cannot name: the receiver's type
  // as an expression, resolved by the writer to a type T, after which the site links to
  // T.member, or to member on T's bases or embedded types (evidence "inherited"; "common-base"
  // when T is what the alternatives of "+" share). `evidence`
  // then says how the receiver's type was known: declared-type, result-type, constructor,
  // attribute, fixture; left empty, the writer derives it from the expression: a start naming a
  // type or a variable, declared-type; a class called, constructor; a function called,
  // result-type; a last step "/name()", result-type, "/name", attribute. Beside a `target`
  // (`self.m()`, `Cls.m()`, `super().m()`), the receiver backs it: when neither the target nor
  // a fallback names a symbol, member found on the receiver's type (or its bases, in any file)
  // is the last fallback, and the site keeps its evidence.
  TypeExpr receiver;
  std::string member;
  // Fallbacks from this index on are equally near (a C++ global name and what using-directives
  // bring in beside it): when the site sees two of them, it makes no edge.
  std::size_t equally_near = static_cast<std::size_t>(-1);
  // Fallbacks from this index on are what the call may reach as well (a name bound on either
  // branch of a `try` or an `if`): the site links each of them that names a symbol.
  std::size_t also = static_cast<std::size_t>(-1);
  // C and C++: how many arguments the call passes, -1 when not counted. Among candidates of
  // one name (overloads, or two libraries' functions), those whose parameters fit win.
  std::int64_t arguments = -1;
  // C++: the template arguments written on the class that holds the target (`int&` of
  // `DefaultValue<int&>::Exists()`): the index links the specialization they fit.
  std::string template_args;
  // C and C++: the kinds of the arguments the call's text shows (see call_sites.argument_kinds).
  std::string argument_kinds;
  // C and C++: the names a macro's use passes (see call_sites.argument_names).
  std::string argument_names;
};

// A C or C++ function-like macro: its parameters and the calls its body makes, in the stored
// forms of languages/c_family/macro_bodies.h.
struct ParsedMacro {
  std::string name;
  std::string params;
  std::string calls;
};

// A C++ using-directive or -declaration at namespace scope: in `scope` (dotted), the names of
// `target` (a directive, `name` empty) or `target.name` (a declaration) are known as
// `scope.<name>`. A relative name's target is written once for each scope it may resolve from.
struct ParsedUsing {
  std::string scope, target, name;
  bool operator==(const ParsedUsing&) const = default;
};

struct ParsedFile {
  std::string path;  // relative to the repository root, "/" separators
  std::string language;
  std::string module;  // dotted module path of the file ("" when none)
  bool is_test = false;
  std::int64_t line_count = 0;
  // Far from what a user of the repository calls: written by a program, or built only for
  // another platform (Go's `_windows.go`, `//go:build plan9`).
  bool generated = false;
  bool builds_elsewhere = false;
  std::vector<ParsedSymbol> symbols;  // the module symbol first
  std::vector<ParsedImport> imports;
  std::vector<ParsedCall> calls;  // unresolved sites included, with an empty target
  std::vector<ParsedMacro> macros;
  std::vector<ParsedUsing> usings;
};

}  // namespace orvane_tamsel::indexer
