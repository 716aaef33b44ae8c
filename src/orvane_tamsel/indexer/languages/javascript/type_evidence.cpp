// What a JavaScript or TypeScript file says of types: annotations of parameters, variables,
// fields and results, and constructions (`new X()`), as expressions the writer resolves.

#include <string>

#include "orvane_tamsel/indexer/languages/javascript/rules.h"
#include "orvane_tamsel/indexer/languages/type_steps.h"

namespace orvane_tamsel::indexer::javascript::detail {

TypeExpr Rules::type_expr(TSNode type) const {
  int elements = 0;
  for (int guard = 0; guard < 8; ++guard) {
    if (is(type, "array_type")) {
      ++elements;
      type = ts_node_named_child(type, 0);
    } else if (is(type, "parenthesized_type")) {
      type = ts_node_named_child(type, 0);
    } else if (is(type, "generic_type")) {
      // `Promise<T>` is what `await` gives, T; other generics are their own type
      TSNode name = ts_node_child_by_field_name(type, "name", 4);
      TSNode args = ts_node_child_by_field_name(type, "type_arguments", 14);
      if (text(name) == "Promise" && ts_node_named_child_count(args) == 1) {
        type = ts_node_named_child(args, 0);
      } else {
        type = name;
      }
    } else {
      break;
    }
  }
  std::string fqn;
  if (is(type, "type_identifier")) {
    if (auto hit = lookup(std::string(text(type)))) fqn = hit->first;
  } else if (is(type, "nested_type_identifier")) {  // `ns.Type` of a namespace import
    std::string module = field_text(type, "module");
    if (whole_modules_.count(module) != 0)
      fqn = join(bindings_.at(module), field_text(type, "name"));
  }
  if (fqn.empty()) return {};
  std::string out = "T:";
  for (int i = 0; i < elements; ++i) out += "[]";
  return out + fqn;
}

TypeExpr Rules::annotation_expr(TSNode node) const {
  TSNode annotation = ts_node_child_by_field_name(node, "type", 4);
  if (ts_node_is_null(annotation))
    annotation = ts_node_child_by_field_name(node, "return_type", 11);
  if (ts_node_is_null(annotation) || ts_node_named_child_count(annotation) == 0) return {};
  return type_expr(ts_node_named_child(annotation, 0));
}

TypeExpr Rules::own_class(std::size_t fn) const {
  if (fn == 0) return {};
  const auto& scope = prefix_of(fn);
  if (scope.empty() || scope == module_ || defined_.count(scope) == 0) return {};
  return "T:" + scope;
}

bool Rules::is_local(std::size_t fn, std::string_view name) const {
  for (std::size_t key : {fn, std::size_t{0}}) {
    auto l = locals_.find(key);
    if (l != locals_.end() && l->second.find(name) != l->second.end()) return true;
  }
  return false;
}

TypeExpr Rules::expr_type(TSNode e, std::size_t fn, int depth) const {
  if (ts_node_is_null(e) || depth > MAX_TYPE_DEPTH) return {};
  if (is(e, "parenthesized_expression") || is(e, "non_null_expression") ||
      is(e, "await_expression"))
    return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
  if (is(e, "as_expression") || is(e, "satisfies_expression"))
    return type_expr(ts_node_named_child(e, 1));
  if (is(e, "this")) return own_class(fn);
  if (is(e, "new_expression")) {
    TSNode ctor = ts_node_child_by_field_name(e, "constructor", 11);
    if (!is(ctor, "identifier")) return {};
    std::string name(text(ctor));
    auto hit = lookup(name);
    if (!hit) return {};
    // `const Cart = require('./cart')` binds a module that exports one class of that name
    if (whole_modules_.count(name) != 0)
      return std::isupper(static_cast<unsigned char>(name[0])) ? "S:" + join(hit->first, name)
                                                               : TypeExpr{};
    return "S:" + hit->first;
  }
  if (is(e, "identifier")) {
    for (std::size_t key : {fn, std::size_t{0}}) {
      auto l = locals_.find(key);
      if (l == locals_.end()) continue;
      if (auto t = l->second.find(text(e)); t != l->second.end()) return t->second;
    }
    return {};
  }
  if (is(e, "subscript_expression")) {
    auto base = expr_type(ts_node_child_by_field_name(e, "object", 6), fn, depth + 1);
    return base.empty() || base.size() > MAX_TYPE_EXPR ? TypeExpr{} : base + "/[]";
  }
  bool call = is(e, "call_expression");
  TSNode member = call ? ts_node_child_by_field_name(e, "function", 8) : e;
  if (call && is(member, "identifier")) {
    // a function of this file or an import: what it gives
    std::string name(text(member));
    if (is_local(fn, name)) return {};
    auto hit = lookup(name);
    return hit && whole_modules_.count(name) == 0 ? "S:" + hit->first : TypeExpr{};
  }
  if (!is(member, "member_expression")) return {};
  TSNode object = ts_node_child_by_field_name(member, "object", 6);
  auto property = field_text(member, "property");
  if (is(object, "identifier") && !is_local(fn, text(object)) &&
      whole_modules_.count(std::string(text(object))) != 0) {
    return call ? "S:" + join(bindings_.at(std::string(text(object))), property) : TypeExpr{};
  }
  return type_step(expr_type(object, fn, depth + 1), property, call);
}

// A local declared twice with two types (variables of one name in two blocks) is unknown.
void Rules::declare(std::size_t fn, TSNode name, const TypeExpr& type) {
  auto [it, fresh] = locals_[fn].try_emplace(std::string(text(name)), type);
  if (!fresh && it->second != type) it->second.clear();
}

// Bases, results, fields and locals, once every class and import of the file is known.
void Rules::finish() {
  for (const auto& [symbol, name] : base_names_) {
    if (auto hit = lookup(name)) out_.symbols[symbol].bases.push_back(hit->first);
  }
  for (const auto& [symbol, node] : results_) {
    auto t = annotation_expr(node);
    TSNode body = ts_node_child_by_field_name(node, "body", 4);
    if (t.empty() && is(body, "new_expression")) t = expr_type(body, 0);  // `() => new X()`
    out_.symbols[symbol].type_of = t;
  }
  for (bool fields : {true, false}) {  // a local may be set from a field declared further down
    for (const auto& d : declarations_) {
      if (d.field != fields) continue;
      bool parameter = is(d.node, "required_parameter") || is(d.node, "optional_parameter");
      TSNode name =
          ts_node_child_by_field_name(d.node, parameter ? "pattern" : "name", parameter ? 7 : 4);
      if (!is(name, "identifier") && !is(name, "property_identifier")) continue;
      auto t = annotation_expr(d.node);
      TSNode value = ts_node_child_by_field_name(d.node, "value", 5);
      if (t.empty() && !parameter) t = expr_type(value, d.field ? 0 : d.owner);
      if (t.size() > MAX_TYPE_EXPR) t.clear();
      if (d.field) {
        if (!t.empty()) out_.symbols[d.owner].fields.emplace_back(std::string(text(name)), t);
      } else if (is(value, "call_expression") && field_text(value, "function") == "require") {
        continue;  // a module binding, not a value of a type
      } else {
        declare(d.owner, name, t);
      }
    }
  }
}

}  // namespace orvane_tamsel::indexer::javascript::detail
