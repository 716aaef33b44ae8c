// What a Go file's declarations say of types: of parameters, locals, results, struct fields and
// package variables, as expressions the writer resolves across files.

#include <string>

#include "orvane_tamsel/indexer/languages/go/rules.h"

namespace orvane_tamsel::indexer::go::detail {

namespace {

// "#n", a result's field name (by appends: `"#" + ...` trips a GCC 12 false warning).
std::string result_field(std::size_t n) {
  std::string out(1, '#');
  out.append(std::to_string(n));
  return out;
}

// `step` ("/name", "/[]") appended to each alternative of `base`; empty when too long.
TypeExpr append_step(const TypeExpr& base, std::string_view step) {
  if (base.empty()) return {};
  auto out = each_alternative(base, step);
  return out.size() > MAX_TYPE_EXPR ? TypeExpr{} : out;
}

}  // namespace

TypeExpr Rules::package_level(const char* start, std::string_view name) const {
  TypeExpr out = start + join(package_, name) + "@" + module_;
  for (const auto& imp : dot_imports_)
    out.append("|").append(start).append(join(imp.package, name)).append("@").append(imp.module);
  return out;
}

TypeExpr Rules::elements_of(const TypeExpr& inner) {
  TypeExpr out;
  for (std::size_t at = 0; at < inner.size();) {
    auto bar = std::min(inner.find('|', at), inner.size());
    out.append(out.empty() ? "T:[]" : "|T:[]").append(inner, at + 2, bar - at - 2);
    at = bar + 1;
  }
  return out;
}

TypeExpr Rules::type_expr(TSNode type) const {
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

void Rules::record_results(ParsedSymbol& fn, TSNode result) const {
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
        fn.fields.emplace_back(result_field(static_cast<std::size_t>(n)), type);
      }
    }
  }
}

TypeExpr Rules::nth_result(const TypeExpr& call, std::size_t n) {
  TypeExpr out;
  for (std::size_t at = 0; at < call.size();) {
    auto bar = std::min(call.find('|', at), call.size());
    auto one = call.substr(at, bar - at);
    if (!one.starts_with("S:") || one.find('/') != std::string::npos) return {};
    one.insert(std::min(one.find('@'), one.size()), result_field(n));
    out.append(out.empty() ? "" : "|").append(one);
    at = bar + 1;
  }
  return out;
}

TypeExpr Rules::expr_type(TSNode e, std::size_t fn, int depth) const {
  if (ts_node_is_null(e) || depth > MAX_TYPE_DEPTH) return {};
  if (is(e, "parenthesized_expression")) return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
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

void Rules::record_range(TSNode clause) {
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

TypeExpr Rules::member_type(TSNode selector, std::size_t fn, bool call, int depth) const {
  TSNode operand = ts_node_child_by_field_name(selector, "operand", 7);
  std::string field = field_text(selector, "field");
  if (field.empty()) return {};
  if (auto imp = imported(operand, fn); imp != nullptr)
    return "S:" + join(imp->package, field) + "@" + imp->module;
  return append_step(expr_type(operand, fn, depth + 1), "/" + field + (call ? "()" : ""));
}

const Import* Rules::imported(TSNode operand, std::size_t fn) const {
  if (!is(operand, "identifier")) return nullptr;
  std::string name(text(operand));
  if (local(fn, name, operand) != nullptr) return nullptr;
  auto imp = imports_.find(name);
  return imp == imports_.end() ? nullptr : &imp->second;
}

TSNode Rules::scope_of_local() const {
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

void Rules::declare(std::size_t fn, TSNode name, const TypeExpr& type, std::uint32_t visible_from,
                    TSNode scope) {
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

const TypeExpr* Rules::local(std::size_t fn, const std::string& name, TSNode use) const {
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

void Rules::declare_unknown(TSNode list, std::uint32_t visible_from) {
  if (ts_node_is_null(list)) return;
  auto fn = current_callable();
  if (is(list, "identifier")) return declare(fn, list, {}, visible_from);
  for (std::uint32_t i = 0; i < ts_node_named_child_count(list); ++i)
    declare(fn, ts_node_named_child(list, i), {}, visible_from);
}

void Rules::record_receive(TSNode node) {
  TSNode left = ts_node_child_by_field_name(node, "left", 4);
  if (ts_node_is_null(left)) return;
  auto fn = current_callable();
  auto type = expr_type(ts_node_child_by_field_name(node, "right", 5), fn);
  for (std::uint32_t i = 0; i < ts_node_named_child_count(left); ++i)
    declare(fn, ts_node_named_child(left, i), i == 0 ? type : TypeExpr{}, ts_node_end_byte(node));
}

void Rules::record_type_switch(TSNode node) {
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

void Rules::record_parameters(TSNode param) {
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

void Rules::record_typed(TSNode node, std::size_t fn) {
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
    if (t.size() > MAX_TYPE_EXPR) t.clear();
    if (fn != 0 || frame_of_type("func_literal") != NONE) {
      declare(fn, names[i], t, ts_node_end_byte(node));
    } else if (auto d = defined_.find(join(package_, text(names[i]))); d != defined_.end()) {
      out_.symbols[d->second].type_of = t;
    }
  }
}

void Rules::record_field(TSNode field) {
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

void Rules::resolve_typed(TSNode operand, const std::string& member, std::size_t fn,
                          ParsedCall& call) {
  auto type = expr_type(operand, fn);
  if (type.empty() || type.size() > MAX_TYPE_EXPR) return;
  call.receiver = type;
  call.member = member;
  TSNode inner = operand;
  while (is(inner, "parenthesized_expression") || is(inner, "unary_expression"))
    inner = ts_node_named_child(inner, ts_node_named_child_count(inner) - 1);
  if (is(inner, "composite_literal")) call.evidence = "constructor";
}

}  // namespace orvane_tamsel::indexer::go::detail
