// What a Java file's declarations say of types: of parameters, locals, fields and method results,
// as expressions the writer resolves across files.

#include <string>

#include "orvane_tamsel/indexer/languages/java/rules.h"
#include "orvane_tamsel/indexer/languages/type_steps.h"

namespace orvane_tamsel::indexer::java::detail {

TypeExpr Rules::type_expr(TSNode type) const {
  int elements = 0;
  while (is(type, "array_type")) {
    ++elements;
    type = ts_node_child_by_field_name(type, "element", 7);
  }
  auto name = type_name(type);
  if (name.empty() || name == "var") return {};
  ParsedCall probe;
  resolve_type(name, "", probe);
  if (probe.target.empty()) return {};
  std::string out = "T:";
  for (int i = 0; i < elements; ++i) out += "[]";
  return out + probe.target + "@" +
         (probe.scope_modules.empty() ? module_ : probe.scope_modules.front());
}

TypeExpr Rules::own_class(std::size_t fn) const {
  if (fn == 0) return {};
  const auto& scope = prefix_of(fn);
  if (scope.empty() || scope == package_) return {};
  return "T:" + scope + "@" + module_;
}

TypeExpr Rules::expr_type(TSNode e, std::size_t fn, int depth) const {
  if (ts_node_is_null(e) || depth > MAX_TYPE_DEPTH) return {};
  if (is(e, "parenthesized_expression")) return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
  if (is(e, "cast_expression")) return type_expr(ts_node_child_by_field_name(e, "type", 4));
  if (is(e, "this")) return own_class(fn);
  if (is(e, "object_creation_expression")) {
    // a class called: the writer takes "S:" of a class as the class, built by its constructor
    auto t = type_expr(ts_node_child_by_field_name(e, "type", 4));
    return t.starts_with("T:[]") || t.empty() ? t : "S:" + t.substr(2);
  }
  if (is(e, "identifier")) {
    std::string name(text(e));
    if (auto l = locals_.find(fn); l != locals_.end()) {
      if (auto t = l->second.find(name); t != l->second.end()) return t->second;
    }
    // a field of the own class or one around it, declared in this file
    for (std::size_t s = fn; s != 0 && s < out_.symbols.size();) {
      if (auto f = fields_.find(s); f != fields_.end()) {
        if (auto t = f->second.find(name); t != f->second.end()) return t->second;
      }
      auto p = defined_.find(out_.symbols[s].parent_fqn);
      s = p == defined_.end() ? 0 : p->second;
    }
    // a class (a static member follows) or a field inherited from a base
    if (std::isupper(static_cast<unsigned char>(name[0]))) return {};
    return type_step(own_class(fn), name, false);
  }
  if (is(e, "field_access")) {
    TSNode object = ts_node_child_by_field_name(e, "object", 6);
    return type_step(expr_type(object, fn, depth + 1), field_text(e, "field"), false);
  }
  if (is(e, "array_access")) {
    auto base = expr_type(ts_node_child_by_field_name(e, "array", 5), fn, depth + 1);
    return base.empty() || base.size() > MAX_TYPE_EXPR ? TypeExpr{} : base + "/[]";
  }
  if (!is(e, "method_invocation")) return {};
  std::string name = field_text(e, "name");
  TSNode object = ts_node_child_by_field_name(e, "object", 6);
  if (ts_node_is_null(object)) return type_step(own_class(fn), name, true);
  if (is(object, "super")) return {};
  if (is(object, "identifier") && std::isupper(static_cast<unsigned char>(text(object)[0])) &&
      expr_type(object, fn, depth + 1).empty()) {
    // a static method of a class: what the method gives
    ParsedCall probe;
    resolve_type(std::string(text(object)), name, probe);
    if (probe.target.empty()) return {};
    return "S:" + probe.target + "@" +
           (probe.scope_modules.empty() ? module_ : probe.scope_modules.front());
  }
  return type_step(expr_type(object, fn, depth + 1), name, true);
}

// A local declared twice with two types (variables of one name in two blocks) is unknown.
void Rules::declare(std::size_t fn, TSNode name, const TypeExpr& type) {
  if (!is(name, "identifier")) return;
  auto [it, fresh] = locals_[fn].try_emplace(std::string(text(name)), type);
  if (!fresh && it->second != type) it->second.clear();
}

// `T x = v, y;`, `var x = v;`, a parameter, `for (T x : xs)`, `try (var r = ...)`.
void Rules::record_declaration(std::size_t owner, bool field, TSNode node) {
  TSNode type = ts_node_child_by_field_name(node, "type", 4);
  auto declared = type_expr(type);
  bool inferred = type_name(type) == "var";
  auto bind = [&](TSNode name, TSNode value, bool element) {
    auto t = declared;
    if (inferred && !ts_node_is_null(value)) {
      t = expr_type(value, owner);
      if (element) t = t.empty() || t.size() > MAX_TYPE_EXPR ? TypeExpr{} : t + "/[]";
    }
    if (t.size() > MAX_TYPE_EXPR) t.clear();
    if (field) {
      if (!t.empty()) {
        fields_[owner][std::string(text(name))] = t;
        out_.symbols[owner].fields.emplace_back(std::string(text(name)), t);
      }
    } else {
      declare(owner, name, t);
    }
  };
  if (is(node, "lambda_expression")) {  // untyped parameters hide what they are named like
    TSNode params = ts_node_child_by_field_name(node, "parameters", 10);
    if (is(params, "identifier")) declare(owner, params, {});
    for (std::uint32_t i = 0;
         is(params, "inferred_parameters") && i < ts_node_named_child_count(params); ++i)
      declare(owner, ts_node_named_child(params, i), {});
    return;
  }
  if (is(node, "enhanced_for_statement")) {
    bind(ts_node_child_by_field_name(node, "name", 4),
         ts_node_child_by_field_name(node, "value", 5), true);
    return;
  }
  if (is(node, "resource")) {
    bind(ts_node_child_by_field_name(node, "name", 4),
         ts_node_child_by_field_name(node, "value", 5), false);
    return;
  }
  if (is(node, "spread_parameter")) {
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode d = ts_node_named_child(node, i);
      if (is(d, "variable_declarator"))
        declare(owner, ts_node_child_by_field_name(d, "name", 4), {});
    }
    return;
  }
  if (!ts_node_is_null(ts_node_child_by_field_name(node, "name", 4))) {  // a parameter
    bind(ts_node_child_by_field_name(node, "name", 4), TSNode{}, false);
    return;
  }
  for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
    TSNode d = ts_node_named_child(node, i);
    if (!is(d, "variable_declarator")) continue;
    bool array = !ts_node_is_null(ts_node_child_by_field_name(d, "dimensions", 10));
    TSNode name = ts_node_child_by_field_name(d, "name", 4);
    if (array) {
      declare(owner, name, {});  // `int x[]`: C-style array declarators are rare
      continue;
    }
    bind(name, ts_node_child_by_field_name(d, "value", 5), false);
  }
}

// Bases, results, fields and locals, once every class of the file is known.
void Rules::finish() {
  for (const auto& [symbol, name] : base_names_) {
    ParsedCall probe;
    resolve_type(name, "", probe);
    if (!probe.target.empty()) out_.symbols[symbol].bases.push_back(probe.target);
  }
  for (const auto& [symbol, node] : results_)
    out_.symbols[symbol].type_of = type_expr(ts_node_child_by_field_name(node, "type", 4));
  for (bool fields : {true, false}) {  // a local may be set from a field declared further down
    for (const auto& d : declarations_) {
      if (d.field == fields) record_declaration(d.owner, d.field, d.node);
    }
  }
}

}  // namespace orvane_tamsel::indexer::java::detail
