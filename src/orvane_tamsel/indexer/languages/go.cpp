#include "orvane_tamsel/indexer/languages/go.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <unordered_map>

#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::go {

namespace {

// Types the language declares: nothing of the index can resolve through them.
constexpr std::array<std::string_view, 22> PREDECLARED = {
    "any",     "bool",  "byte",   "comparable", "complex64", "complex128", "error", "float32",
    "float64", "int",   "int8",   "int16",      "int32",     "int64",      "rune",  "string",
    "uint",    "uint8", "uint16", "uint32",     "uint64",    "uintptr"};

// Longer receiver expressions are not worth keeping (generated code chains).
constexpr std::size_t MAX_EXPR = 300;

// `clear`, `max` and `min` are left out: code written before they were built in defines its own.
constexpr std::array<std::string_view, 15> BUILTINS = {
    "append", "cap", "close", "complex", "copy",    "delete", "imag",   "len",
    "make",   "new", "panic", "print",   "println", "real",   "recover"};

bool is_builtin(std::string_view name) {
  return std::find(BUILTINS.begin(), BUILTINS.end(), name) != BUILTINS.end();
}

// `step` ("/name", "/[]") appended to each alternative of `base`; empty when too long.
TypeExpr append_step(const TypeExpr& base, std::string_view step) {
  if (base.empty()) return {};
  TypeExpr out;
  for (std::size_t at = 0; at <= base.size();) {
    auto bar = std::min(base.find('|', at), base.size());
    if (!out.empty()) out.push_back('|');
    out.append(base, at, bar - at).append(step);
    at = bar + 1;
  }
  return out.size() > MAX_EXPR ? TypeExpr{} : out;
}

std::string dotted_path(std::string_view path) {
  std::string out(path);
  std::replace(out.begin(), out.end(), '/', '.');
  return out;
}

// The name an import binds without an alias: the last element that is not a major version.
std::string package_of_import(std::string_view path) {
  auto slash = path.rfind('/');
  auto last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (last.size() >= 2 && last[0] == 'v' && std::isdigit(static_cast<unsigned char>(last[1])) &&
      slash != std::string_view::npos) {
    return package_of_import(path.substr(0, slash));
  }
  if (last.starts_with("go-")) last.remove_prefix(3);
  auto dot = last.find('.');
  return std::string(last.substr(0, dot));
}

bool is_test_function(std::string_view name) {
  for (std::string_view prefix : {"Test", "Benchmark", "Example", "Fuzz"}) {
    if (name.starts_with(prefix) &&
        (name.size() == prefix.size() ||
         !std::islower(static_cast<unsigned char>(name[prefix.size()])))) {
      return true;
    }
  }
  return false;
}

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

  // A package-level name as the start of an expression: the package's own, then what dot
  // imports bring in.
  TypeExpr package_level(const char* start, std::string_view name) const {
    TypeExpr out = start + join(package_, name) + "@" + module_;
    for (const auto& imp : dot_imports_)
      out.append("|").append(start).append(join(imp.package, name)).append("@").append(imp.module);
    return out;
  }

  // A container of `inner` values: "T:[]" before each alternative's type.
  static TypeExpr elements_of(const TypeExpr& inner) {
    TypeExpr out;
    for (std::size_t at = 0; at < inner.size();) {
      auto bar = std::min(inner.find('|', at), inner.size());
      out.append(out.empty() ? "T:[]" : "|T:[]").append(inner, at + 2, bar - at - 2);
      at = bar + 1;
    }
    return out;
  }

  // The type a type node names, as an expression: `*T`, `T[X]` give T; predeclared types and
  // composite ones (slices, maps, functions) give nothing.
  TypeExpr type_expr(TSNode type) const {
    while (is(type, "pointer_type") || is(type, "generic_type") || is(type, "parenthesized_type")) {
      type = is(type, "generic_type") ? ts_node_child_by_field_name(type, "type", 4)
                                      : ts_node_named_child(type, 0);
    }
    if (is(type, "channel_type"))  // what a receive gives, as an element
      return elements_of(type_expr(ts_node_child_by_field_name(type, "value", 5)));
    if (is(type, "slice_type") || is(type, "array_type") || is(type, "map_type")) {
      return elements_of(type_expr(ts_node_child_by_field_name(
          type, is(type, "map_type") ? "value" : "element", is(type, "map_type") ? 5 : 7)));
    }
    if (is(type, "type_identifier")) {
      auto name = text(type);
      if (std::find(PREDECLARED.begin(), PREDECLARED.end(), name) != PREDECLARED.end()) return {};
      return package_level("T:", name);
    }
    if (!is(type, "qualified_type")) return {};
    auto imp = imports_.find(field_text(type, "package"));
    if (imp == imports_.end()) return {};
    return "T:" + join(imp->second.package, field_text(type, "name")) + "@" + imp->second.module;
  }

  // A function's first result type is its type_of; of a function (not a method) with more, the
  // others are its fields "#2", "#3", ...
  void record_results(ParsedSymbol& fn, TSNode result) const {
    if (!is(result, "parameter_list")) {
      fn.type_of = type_expr(result);
      return;
    }
    int n = 0;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(result); ++i) {
      TSNode decl = ts_node_named_child(result, i);
      if (!is(decl, "parameter_declaration")) return;
      auto type = type_expr(ts_node_child_by_field_name(decl, "type", 4));
      int names = 0;
      for (std::uint32_t k = 0; k < ts_node_named_child_count(decl); ++k)
        names += is(ts_node_named_child(decl, k), "identifier") ? 1 : 0;
      for (int k = 0; k < std::max(names, 1); ++k) {
        if (++n == 1) {
          fn.type_of = type;
        } else if (!type.empty() && fn.kind == "function") {
          fn.fields.emplace_back("#" + std::to_string(n), type);
        }
      }
    }
  }

  // The n-th result of what `call` (a function's first result, "S:f@m") names: "S:f#n@m".
  static TypeExpr nth_result(const TypeExpr& call, std::size_t n) {
    TypeExpr out;
    for (std::size_t at = 0; at < call.size();) {
      auto bar = std::min(call.find('|', at), call.size());
      auto one = call.substr(at, bar - at);
      if (!one.starts_with("S:") || one.find('/') != std::string::npos) return {};
      one.insert(std::min(one.find('@'), one.size()), "#" + std::to_string(n));
      out.append(out.empty() ? "" : "|").append(one);
      at = bar + 1;
    }
    return out;
  }

  // What a value expression's type is known as, with the locals of callable `fn`; empty when
  // unknown. A name no local declares is a package-level variable.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const {
    if (ts_node_is_null(e) || depth > 12) return {};
    if (is(e, "parenthesized_expression"))
      return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
    if (is(e, "unary_expression")) {
      auto op = ts_node_child(e, 0);
      auto operand = expr_type(ts_node_child_by_field_name(e, "operand", 7), fn, depth + 1);
      if (is(op, "&") || is(op, "*")) return operand;
      return is(op, "<-") ? append_step(operand, "/[]") : TypeExpr{};  // a channel's element
    }
    if (is(e, "composite_literal")) return type_expr(ts_node_child_by_field_name(e, "type", 4));
    if (is(e, "type_assertion_expression"))
      return type_expr(ts_node_child_by_field_name(e, "type", 4));
    if (is(e, "identifier")) {
      std::string name(text(e));
      if (const auto* t = local(fn, name, e)) return *t;
      if (name == "nil" || name == "true" || name == "false" || name == "iota") return {};
      if (imports_.count(name) != 0) return {};
      return package_level("S:", name);
    }
    if (is(e, "call_expression")) {
      TSNode callee = ts_node_child_by_field_name(e, "function", 8);
      if (is(callee, "identifier")) {
        std::string name(text(callee));
        if (name == "new") {
          TSNode args = ts_node_child_by_field_name(e, "arguments", 9);
          return ts_node_named_child_count(args) > 0 ? type_expr(ts_node_named_child(args, 0))
                                                     : TypeExpr{};
        }
        if (local(fn, name, callee) != nullptr) return {};
        if (is_builtin(name)) return {};
        return package_level("S:", name);
      }
      // `(*T)(x)`: a conversion
      if (is(callee, "parenthesized_expression")) return expr_type(callee, fn, depth + 1);
      if (!is(callee, "selector_expression")) return {};
      return member_type(callee, fn, true, depth);
    }
    if (is(e, "selector_expression")) return member_type(e, fn, false, depth);
    if (is(e, "index_expression"))
      return append_step(expr_type(ts_node_child_by_field_name(e, "operand", 7), fn, depth + 1),
                         "/[]");
    // `xs[i:j]` has the type of xs
    if (is(e, "slice_expression"))
      return expr_type(ts_node_child_by_field_name(e, "operand", 7), fn, depth + 1);
    return {};
  }

  // `for i, v := range xs`: v is an element of xs (of a map, a value); i or a lone variable is
  // an index or key, whose type is not kept.
  void record_range(TSNode clause) {
    TSNode left = ts_node_child_by_field_name(clause, "left", 4);
    if (ts_node_is_null(left)) return;
    auto fn = current_callable();
    auto count = ts_node_named_child_count(left);
    for (std::uint32_t i = 0; i < count; ++i) {
      TypeExpr t;
      if (i == 1) {
        t = append_step(expr_type(ts_node_child_by_field_name(clause, "right", 5), fn), "/[]");
      }
      declare(fn, ts_node_named_child(left, i), t, ts_node_end_byte(clause));
    }
  }

  // `x.name` or `x.name()`: a package's function or variable, or a step on x's type.
  TypeExpr member_type(TSNode selector, std::size_t fn, bool call, int depth) const {
    TSNode operand = ts_node_child_by_field_name(selector, "operand", 7);
    std::string field = field_text(selector, "field");
    if (field.empty()) return {};
    if (auto imp = imported(operand, fn); imp != nullptr)
      return "S:" + join(imp->package, field) + "@" + imp->module;
    return append_step(expr_type(operand, fn, depth + 1), "/" + field + (call ? "()" : ""));
  }

  // The import an operand names, unless a local of `fn` shadows it.
  const Import* imported(TSNode operand, std::size_t fn) const {
    if (!is(operand, "identifier")) return nullptr;
    std::string name(text(operand));
    if (local(fn, name, operand) != nullptr) return nullptr;
    auto imp = imports_.find(name);
    return imp == imports_.end() ? nullptr : &imp->second;
  }

  // The scope a local declared by the node being visited lives in: the innermost block, clause
  // or statement (`if x := f(); ...`) around it, or the function whose parameter it is.
  TSNode scope_of_local() const {
    static constexpr std::array<std::string_view, 12> SCOPES = {"block",
                                                                "if_statement",
                                                                "for_statement",
                                                                "expression_switch_statement",
                                                                "type_switch_statement",
                                                                "expression_case",
                                                                "type_case",
                                                                "default_case",
                                                                "communication_case",
                                                                "func_literal",
                                                                "function_declaration",
                                                                "method_declaration"};
    if (scope_symbols_.empty()) {
      const TSLanguage* lang = ts_node_language(root_);
      for (auto name : SCOPES) {
        scope_symbols_.push_back(ts_language_symbol_for_name(
            lang, name.data(), static_cast<std::uint32_t>(name.size()), true));
      }
    }
    for (std::size_t i = frames_.size(); i-- > 0;) {
      auto symbol = ts_node_symbol(frames_[i].node);
      if (std::find(scope_symbols_.begin(), scope_symbols_.end(), symbol) != scope_symbols_.end())
        return frames_[i].node;
    }
    return root_;
  }

  // A local of `fn` with its type as an expression ("" when unknown), seen from `visible_from`
  // to the end of the scope around `at`. Declared again in the same scope (`x, err := ...`), a
  // name keeps its first type, as Go assigns rather than declares it.
  void declare(std::size_t fn, TSNode name, const TypeExpr& type, std::uint32_t visible_from,
               TSNode scope = TSNode{}) {
    if (!is(name, "identifier")) return;
    std::string n(text(name));
    if (n == "_") return;
    if (ts_node_is_null(scope)) scope = scope_of_local();
    auto& decls = typed_[fn][n];
    auto from = ts_node_start_byte(scope), to = ts_node_end_byte(scope);
    for (const auto& d : decls) {
      if (d.scope_from == from && d.scope_to == to) return;
    }
    decls.push_back({from, to, visible_from, type});
  }

  // The type of the local `name` of `fn` that a use at `use` sees (innermost scope); null when
  // no local of that name is in sight there.
  const TypeExpr* local(std::size_t fn, const std::string& name, TSNode use) const {
    auto l = typed_.find(fn);
    if (l == typed_.end()) return nullptr;
    auto d = l->second.find(name);
    if (d == l->second.end()) return nullptr;
    auto at = ts_node_start_byte(use);
    const Local* best = nullptr;
    for (const auto& c : d->second) {
      if (c.scope_from > at || at >= c.scope_to || c.visible_from > at) continue;
      if (best == nullptr || c.scope_from > best->scope_from ||
          (c.scope_from == best->scope_from && c.scope_to < best->scope_to))
        best = &c;
    }
    return best == nullptr ? nullptr : &best->type;
  }

  void declare_unknown(TSNode list, std::uint32_t visible_from) {
    if (ts_node_is_null(list)) return;
    auto fn = current_callable();
    if (is(list, "identifier")) return declare(fn, list, {}, visible_from);
    for (std::uint32_t i = 0; i < ts_node_named_child_count(list); ++i)
      declare(fn, ts_node_named_child(list, i), {}, visible_from);
  }

  // `case v, ok := <-ch:` v is an element of ch.
  void record_receive(TSNode node) {
    TSNode left = ts_node_child_by_field_name(node, "left", 4);
    if (ts_node_is_null(left)) return;
    auto fn = current_callable();
    auto type = expr_type(ts_node_child_by_field_name(node, "right", 5), fn);
    for (std::uint32_t i = 0; i < ts_node_named_child_count(left); ++i)
      declare(fn, ts_node_named_child(left, i), i == 0 ? type : TypeExpr{}, ts_node_end_byte(node));
  }

  // `switch x := v.(type) { case *T: ... }`: in a clause of one type x has it; elsewhere its
  // type is unknown.
  void record_type_switch(TSNode node) {
    TSNode alias = ts_node_child_by_field_name(node, "alias", 5);
    if (ts_node_is_null(alias)) return;
    declare_unknown(alias, ts_node_end_byte(alias));
    if (ts_node_named_child_count(alias) != 1) return;
    TSNode name = ts_node_named_child(alias, 0);
    auto fn = current_callable();
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode clause = ts_node_named_child(node, i);
      if (!is(clause, "type_case")) continue;
      TSNode type{};
      int types = 0;
      for (std::uint32_t k = 0; k < ts_node_child_count(clause); ++k) {
        const char* f = ts_node_field_name_for_child(clause, k);
        if (f != nullptr && std::string_view(f) == "type") {
          type = ts_node_child(clause, k);
          ++types;
        }
      }
      TSNode body = ts_node_named_child(clause, ts_node_named_child_count(clause) - 1);
      if (types != 1 || !is(body, "statement_list")) continue;
      declare(fn, name, type_expr(type), ts_node_start_byte(body), clause);
    }
  }

  // Parameters of functions, methods (the receiver too) and function literals are locals of
  // the callable around them; those of a function type are not.
  void record_parameters(TSNode param) {
    if (frames_.size() < 3) return;
    TSNode owner = frames_[frames_.size() - 3].node;  // above the parameter list
    if (!is(owner, "function_declaration") && !is(owner, "method_declaration") &&
        !is(owner, "func_literal")) {
      return;
    }
    auto fn = current_callable();
    auto type = type_expr(ts_node_child_by_field_name(param, "type", 4));
    for (std::uint32_t i = 0; i < ts_node_named_child_count(param); ++i) {
      TSNode child = ts_node_named_child(param, i);
      if (is(child, "identifier")) declare(fn, child, type, ts_node_end_byte(param));
    }
  }

  // `x := v`, `x, err := F()`, `var x T`, `var x = v`: inside a callable a local, at package
  // level the variable symbol's type_of.
  void record_typed(TSNode node, std::size_t fn) {
    bool short_var = is(node, "short_var_declaration");
    std::vector<TSNode> names, values;
    TSNode type = short_var ? TSNode{} : ts_node_child_by_field_name(node, "type", 4);
    TSNode value = ts_node_child_by_field_name(node, short_var ? "right" : "value", 5);
    if (short_var) {
      TSNode left = ts_node_child_by_field_name(node, "left", 4);
      for (std::uint32_t i = 0; i < ts_node_named_child_count(left); ++i)
        names.push_back(ts_node_named_child(left, i));
    } else {
      for (std::uint32_t i = 0; i < ts_node_child_count(node); ++i) {
        const char* f = ts_node_field_name_for_child(node, i);
        if (f != nullptr && std::string_view(f) == "name") names.push_back(ts_node_child(node, i));
      }
    }
    for (std::uint32_t i = 0; !ts_node_is_null(value) && i < ts_node_named_child_count(value); ++i)
      values.push_back(ts_node_named_child(value, i));
    for (std::size_t i = 0; i < names.size(); ++i) {
      TypeExpr t;
      if (!ts_node_is_null(type)) {
        t = type_expr(type);
      } else if (values.size() == names.size()) {
        t = expr_type(values[i], fn);
      } else if (i == 0 && values.size() == 1 &&
                 (is(values[0], "call_expression") || is(values[0], "type_assertion_expression") ||
                  is(values[0], "index_expression") || is(values[0], "unary_expression"))) {
        t = expr_type(values[0], fn);  // the first of several results, or `v, ok := m[k]`
      } else if (values.size() == 1 && is(values[0], "call_expression")) {
        t = nth_result(expr_type(values[0], fn), i + 1);
      }
      if (t.size() > MAX_EXPR) t.clear();
      if (fn != 0 || frame_of_type("func_literal") != NONE) {
        declare(fn, names[i], t, ts_node_end_byte(node));
      } else if (auto d = defined_.find(join(package_, text(names[i]))); d != defined_.end()) {
        out_.symbols[d->second].type_of = t;
      }
    }
  }

  // A struct's named and embedded fields, with their types, for chains like `c.engine.pool`.
  void record_field(TSNode field) {
    TSNode type = ts_node_child_by_field_name(field, "type", 4);
    auto t = type_expr(type);
    if (t.empty()) return;
    std::size_t owner = NONE;
    for (std::size_t i = frames_.size(); i-- > 0;) {
      if (frames_[i].symbol == NONE) continue;
      if (out_.symbols[frames_[i].symbol].kind == "struct") owner = frames_[i].symbol;
      break;
    }
    if (owner == NONE) return;
    auto& fields = out_.symbols[owner].fields;
    bool named = false;
    for (std::uint32_t i = 0; i < ts_node_child_count(field); ++i) {
      const char* f = ts_node_field_name_for_child(field, i);
      if (f == nullptr || std::string_view(f) != "name") continue;
      fields.emplace_back(std::string(text(ts_node_child(field, i))), t);
      named = true;
    }
    if (!named) {  // embedded: the field takes the type's name
      auto name = type_name(type);
      fields.emplace_back(name.substr(name.rfind('.') + 1), t);
    }
  }

  // A call whose receiver local evidence cannot name: its type as an expression.
  void resolve_typed(TSNode operand, const std::string& member, std::size_t fn, ParsedCall& call) {
    auto type = expr_type(operand, fn);
    if (type.empty() || type.size() > MAX_EXPR) return;
    call.receiver = type;
    call.member = member;
    TSNode inner = operand;
    while (is(inner, "parenthesized_expression") || is(inner, "unary_expression"))
      inner = ts_node_named_child(inner, ts_node_named_child_count(inner) - 1);
    if (is(inner, "composite_literal")) call.evidence = "constructor";
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

}  // namespace

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    if (!root_name.empty()) return std::string(root_name);
    auto dot = path.rfind('.');
    return std::string(path.substr(0, dot));
  }
  return dotted_path(path.substr(0, slash));
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  return rules.run();
}

}  // namespace orvane_tamsel::indexer::go
