#pragma once
// The Go extraction's rules: definitions, imports, receivers, embedded structs and how a call
// resolves (type_evidence.cpp holds what declarations say of types).

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/tagged.h"
#include "orvane_tamsel/indexer/languages/type_steps.h"

namespace orvane_tamsel::indexer::go::detail {

// Types the language declares: nothing of the index can resolve through them.
inline constexpr std::array<std::string_view, 22> PREDECLARED = {
    "any",     "bool",  "byte",   "comparable", "complex64", "complex128", "error", "float32",
    "float64", "int",   "int8",   "int16",      "int32",     "int64",      "rune",  "string",
    "uint",    "uint8", "uint16", "uint32",     "uint64",    "uintptr"};

// `clear`, `max` and `min` are left out: code written before they were built in defines its own.
inline constexpr std::array<std::string_view, 15> BUILTINS = {
    "append", "cap", "close", "complex", "copy",    "delete", "imag",   "len",
    "make",   "new", "panic", "print",   "println", "real",   "recover"};

inline bool is_builtin(std::string_view name) {
  return std::find(BUILTINS.begin(), BUILTINS.end(), name) != BUILTINS.end();
}

// An import path or folder with dots for slashes.
std::string dotted_path(std::string_view path);
// The name an import binds without an alias: the last element that is not a major version.
std::string package_of_import(std::string_view path);
bool is_test_function(std::string_view name);

struct Import {
  std::string module;   // dotted import path
  std::string package;  // the package name its symbols' fqns start with
};

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::string top_prefix() const override { return package_; }

  // The type a receiver or declared type names: `*Server`, `Server[T]` give Server.
  std::string type_name(TSNode type) const {
    while (is(type, "pointer_type") || is(type, "generic_type")) {
      type = is(type, "pointer_type") ? ts_node_named_child(type, 0)
                                      : ts_node_child_by_field_name(type, "type", 4);
    }
    return is(type, "type_identifier") || is(type, "qualified_type") ? std::string(text(type))
                                                                     : std::string();
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    tagged::Definition def;
    def.name = text(tag.name);
    def.host = tag.node;
    if (tag.role == "function") {
      def.kind = "function";
      def.is_test = out_.is_test && is_test_function(def.name);
      return def;
    }
    if (tag.role == "method") {
      def.kind = "method";
      TSNode recv = ts_node_child_by_field_name(tag.node, "receiver", 8);
      if (ts_node_named_child_count(recv) == 0) return std::nullopt;
      TSNode param = ts_node_named_child(recv, 0);
      auto type = type_name(ts_node_child_by_field_name(param, "type", 4));
      if (type.empty()) return std::nullopt;
      def.qualifier = {type};
      auto var = field_text(param, "name");
      if (!var.empty()) receivers_[join(join(package_, type), def.name)] = var;
      return def;
    }
    // a lone type_spec takes its declaration, where its doc comment stands
    TSNode parent = frames_.size() >= 2 ? frames_[frames_.size() - 2].node : TSNode{};
    if (!ts_node_is_null(parent) && ts_node_named_child_count(parent) == 1) def.host = parent;
    if (tag.role == "type") {
      TSNode type = ts_node_child_by_field_name(tag.node, "type", 4);
      def.kind = is(type, "struct_type")      ? "struct"
                 : is(type, "interface_type") ? "interface"
                                              : "type";
      return def;
    }
    if (tag.role == "constant") {
      def.kind = "variable";
      return def;
    }
    return std::nullopt;
  }

  // A type's header, as a function's: `type Client struct`, `type List[T any] interface`,
  // `type ID = string`, `type HandlerFunc func(w Writer)`. Fields and methods are its body.
  std::string signature_of(TSNode host) const override {
    TSNode named = host;
    for (std::uint32_t i = 0; is(named, "type_declaration") && i < ts_node_named_child_count(host);
         ++i) {
      TSNode c = ts_node_named_child(host, i);
      if (is(c, "type_spec") || is(c, "type_alias")) named = c;
    }
    if (!is(named, "type_spec") && !is(named, "type_alias"))
      return tagged::Extraction::signature_of(host);
    TSNode type = ts_node_child_by_field_name(named, "type", 4);
    bool body = is(type, "struct_type") || is(type, "interface_type");
    auto head = flatten(ts_node_start_byte(named),
                        body ? ts_node_start_byte(type) : ts_node_end_byte(named));
    if (body) head += is(type, "struct_type") ? " struct" : " interface";
    return bounded("type " + head);
  }

  void visit(TSNode node) override {
    if (!ts_node_is_named(node)) return;
    std::string_view type = ts_node_type(node);  // once: most nodes are none of these
    if (type == "function_declaration" || type == "method_declaration") {
      if (auto sym = frames_.back().symbol; sym != NONE)
        record_results(out_.symbols[sym], ts_node_child_by_field_name(node, "result", 6));
    } else if (type == "parameter_declaration") {
      record_parameters(node);
    } else if (type == "range_clause") {
      record_range(node);
    } else if (type == "receive_statement") {
      record_receive(node);
    } else if (type == "type_switch_statement") {
      record_type_switch(node);
    } else if (type == "field_declaration") {
      record_field(node);
      if (ts_node_is_null(ts_node_child_by_field_name(node, "name", 4))) record_embedded(node);
    } else if (type == "package_clause") {
      if (ts_node_named_child_count(node) > 0) package_ = text(ts_node_named_child(node, 0));
      // The package's doc: its members are searched with what it says of them.
      out_.symbols.front().docstring = docstring_of(node, frames_.back());
    } else if (type == "import_spec") {
      auto raw = field_text(node, "path");
      if (raw.size() < 2) return;
      std::string path = raw.substr(1, raw.size() - 2);
      std::string alias = field_text(node, "name");
      out_.imports.push_back({line(node), dotted_path(path), "", alias});
      if (alias == ".") dot_imports_.push_back({dotted_path(path), package_of_import(path)});
      if (alias == "_" || alias == ".") return;
      imports_[alias.empty() ? package_of_import(path) : alias] = {dotted_path(path),
                                                                   package_of_import(path)};
    } else if (type == "short_var_declaration" || type == "var_spec") {
      record_local(node);
    }
  }

  // `struct { *Base; ... }`: Base's methods are promoted to the struct. One of another package
  // (`*bufio.Writer`) is a base that only receiver types follow.
  void record_embedded(TSNode field) {
    auto type = type_name(ts_node_child_by_field_name(field, "type", 4));
    if (type.empty()) return;
    std::string base = join(package_, type);
    if (auto dot = type.find('.'); dot != std::string::npos) {
      auto imp = imports_.find(std::string_view(type).substr(0, dot));
      if (imp == imports_.end()) return;
      base = join(imp->second.package, type.substr(dot + 1));
    }
    for (std::size_t i = frames_.size(); i-- > 0;) {
      auto sym = frames_[i].symbol;
      if (sym == NONE) continue;
      if (out_.symbols[sym].kind == "struct") {
        if (type.find('.') == std::string::npos) {
          embeds_[out_.symbols[sym].fqn].push_back(base);
        } else {
          embeds_foreign_.insert(out_.symbols[sym].fqn);
        }
        // the index follows them for a method that another file of the package defines
        out_.symbols[sym].bases.push_back(base);
      }
      return;
    }
  }

  // The method as promoted from embedded structs, nearest first, a few levels deep.
  std::vector<std::string> promoted(const std::string& type, const std::string& method) const {
    std::vector<std::string> out, level{type};
    for (int depth = 0; depth < 3 && !level.empty(); ++depth) {
      std::vector<std::string> next;
      for (const auto& t : level) {
        auto e = embeds_.find(t);
        if (e == embeds_.end()) continue;
        for (const auto& inner : e->second) {
          out.push_back(join(inner, method));
          next.push_back(inner);
        }
      }
      level = std::move(next);
    }
    return out;
  }

  // `x := T{...}`, `x := &T{...}` and `var x T` tell x's type for `x.M()`; other declarations
  // give it as an expression (see typed_).
  void record_local(TSNode node) {
    auto fn = current_callable();
    record_typed(node, fn);
    if (fn == 0) return;
    bool short_var = is(node, "short_var_declaration");
    TSNode names = short_var ? ts_node_child_by_field_name(node, "left", 4)
                             : ts_node_child_by_field_name(node, "name", 4);
    if (ts_node_is_null(names)) return;
    TSNode name = is(names, "identifier") ? names : ts_node_named_child(names, 0);
    std::string type;
    if (short_var) {
      TSNode right = ts_node_child_by_field_name(node, "right", 5);
      TSNode value =
          ts_node_named_child_count(right) > 0 ? ts_node_named_child(right, 0) : TSNode{};
      if (is(value, "unary_expression")) value = ts_node_child_by_field_name(value, "operand", 7);
      if (is(value, "composite_literal"))
        type = type_name(ts_node_child_by_field_name(value, "type", 4));
    } else {
      type = type_name(ts_node_child_by_field_name(node, "type", 4));
    }
    if (!type.empty() && is(name, "identifier")) locals_[fn][std::string(text(name))] = type;
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(callee, "identifier")) {
      std::string name(text(callee));
      if (is_builtin(name)) return;
      call.target = join(package_, name);
      call.evidence = defined_.count(call.target) != 0 ? "same-file" : "same-package";
      call.scope_modules = {module_};
      if (call.evidence == "same-package") {
        // `import . "pkg"` brings pkg's names in: after the package's own
        for (const auto& imp : dot_imports_) {
          call.fallbacks.push_back(join(imp.package, name));
          call.scope_modules.push_back(imp.module);
        }
      }
      return;
    }
    if (!is(callee, "selector_expression")) return;
    TSNode operand = ts_node_child_by_field_name(callee, "operand", 7);
    std::string field = field_text(callee, "field");
    if (field.empty()) return;
    if (!is(operand, "identifier")) return resolve_typed(operand, field, pending.caller, call);
    std::string var(text(operand));
    const auto& caller = out_.symbols[pending.caller];
    // the receiver or a local of a known type, unless an inner declaration shadows it
    auto declared_as = [&](const std::string& type) {
      const auto* seen = local(pending.caller, var, operand);
      return seen != nullptr && *seen == type;
    };
    const auto& own = prefix_of(pending.caller);
    if (auto r = receivers_.find(caller.fqn);
        r != receivers_.end() && r->second == var &&
        declared_as(package_level("T:", std::string_view(own).substr(own.rfind('.') + 1)))) {
      if (embeds_foreign_.count(prefix_of(pending.caller)) != 0) {
        // a method of another package's embedded struct: found through the receiver's type
        call.receiver = "T:" + prefix_of(pending.caller) + "@" + module_;
        call.member = field;
        call.evidence = "receiver";
        return;
      }
      call.target = join(prefix_of(pending.caller), field);
      call.fallbacks = promoted(prefix_of(pending.caller), field);
      call.evidence = "receiver";
      call.scope_modules = {module_};
      return;
    }
    if (auto l = locals_.find(pending.caller); l != locals_.end()) {
      if (auto t = l->second.find(var); t != l->second.end()) {
        auto dot = t->second.find('.');
        auto imp =
            dot == std::string::npos ? imports_.end() : imports_.find(t->second.substr(0, dot));
        // a dot import's type of the same name is the type evaluation's to tell apart
        if (dot == std::string::npos
                ? !dot_imports_.empty() || !declared_as(package_level("T:", t->second))
                : imp == imports_.end() ||
                      !declared_as("T:" + join(imp->second.package, t->second.substr(dot + 1)) +
                                   "@" + imp->second.module)) {
          return resolve_typed(operand, field, pending.caller, call);
        }
        call.evidence = "instance";
        if (dot == std::string::npos) {
          call.target = join(join(package_, t->second), field);
          call.fallbacks = promoted(join(package_, t->second), field);
          call.scope_modules = {module_};
        } else {
          call.target = join(join(imp->second.package, t->second.substr(dot + 1)), field);
          call.scope_modules = {imp->second.module};
        }
        return;
      }
    }
    if (auto imp = imported(operand, pending.caller); imp != nullptr) {
      call.target = join(imp->package, field);
      call.evidence = "import";
      call.scope_modules = {imp->module};
      return;
    }
    resolve_typed(operand, field, pending.caller, call);
  }

  // What declarations say of types (type_evidence.cpp).
  // A package-level name as the start of an expression: the package's own, then what dot
  // imports bring in.
  TypeExpr package_level(const char* start, std::string_view name) const;
  // A container of `inner` values: "T:[]" before each alternative's type.
  static TypeExpr elements_of(const TypeExpr& inner);
  // The type a type node names, as an expression: `*T`, `T[X]` give T; predeclared types and
  // composite ones (slices, maps, functions) give nothing.
  TypeExpr type_expr(TSNode type) const;
  // A function's first result type is its type_of; of a function (not a method) with more, the
  // others are its fields "#2", "#3", ...
  void record_results(ParsedSymbol& fn, TSNode result) const;
  // The n-th result of what `call` (a function's first result, "S:f@m") names: "S:f#n@m".
  static TypeExpr nth_result(const TypeExpr& call, std::size_t n);
  // What a value expression's type is known as, with the locals of callable `fn`; empty when
  // unknown. A name no local declares is a package-level variable.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const;
  // `for i, v := range xs`: v is an element of xs (of a map, a value); i or a lone variable is
  // an index or key, whose type is not kept.
  void record_range(TSNode clause);
  // `x.name` or `x.name()`: a package's function or variable, or a step on x's type.
  TypeExpr member_type(TSNode selector, std::size_t fn, bool call, int depth) const;
  // The import an operand names, unless a local of `fn` shadows it.
  const Import* imported(TSNode operand, std::size_t fn) const;
  // The scope a local declared by the node being visited lives in: the innermost block, clause
  // or statement (`if x := f(); ...`) around it, or the function whose parameter it is.
  TSNode scope_of_local() const;
  // A local of `fn` with its type as an expression ("" when unknown), seen from `visible_from`
  // to the end of the scope around `at`. Declared again in the same scope (`x, err := ...`), a
  // name keeps its first type, as Go assigns rather than declares it.
  void declare(std::size_t fn, TSNode name, const TypeExpr& type, std::uint32_t visible_from,
               TSNode scope = TSNode{});
  // The type of the local `name` of `fn` that a use at `use` sees (innermost scope); null when
  // no local of that name is in sight there.
  const TypeExpr* local(std::size_t fn, const std::string& name, TSNode use) const;
  void declare_unknown(TSNode list, std::uint32_t visible_from);
  // `case v, ok := <-ch:` v is an element of ch.
  void record_receive(TSNode node);
  // `switch x := v.(type) { case *T: ... }`: in a clause of one type x has it; elsewhere its
  // type is unknown.
  void record_type_switch(TSNode node);
  // Parameters of functions, methods (the receiver too) and function literals are locals of
  // the callable around them; those of a function type are not.
  void record_parameters(TSNode param);
  // `x := v`, `x, err := F()`, `var x T`, `var x = v`: inside a callable a local, at package
  // level the variable symbol's type_of.
  void record_typed(TSNode node, std::size_t fn);
  // A struct's named and embedded fields, with their types, for chains like `c.engine.pool`.
  void record_field(TSNode field);
  // A call whose receiver local evidence cannot name: its type as an expression.
  void resolve_typed(TSNode operand, const std::string& member, std::size_t fn, ParsedCall& call);

 private:
  std::string package_;
  std::map<std::string, Import, std::less<>> imports_;      // bound name -> import
  std::vector<Import> dot_imports_;                         // `import . "path"`
  std::unordered_map<std::string, std::string> receivers_;  // method fqn -> receiver variable
  std::unordered_map<std::size_t, std::map<std::string, std::string>> locals_;  // by caller
  std::unordered_map<std::string, std::vector<std::string>> embeds_;  // struct fqn -> embedded
  std::set<std::string> embeds_foreign_;  // structs of this file embedding another package's
  // By callable: each local's type as an expression ("" when declared but unknown).
  struct Local {
    std::uint32_t scope_from = 0, scope_to = 0;  // bytes of the scope it is declared in
    std::uint32_t visible_from = 0;              // the byte from which uses see it
    TypeExpr type;
  };
  std::unordered_map<std::size_t, std::map<std::string, std::vector<Local>>> typed_;
  mutable std::vector<TSSymbol> scope_symbols_;  // node types that open a scope for locals
};

}  // namespace orvane_tamsel::indexer::go::detail
