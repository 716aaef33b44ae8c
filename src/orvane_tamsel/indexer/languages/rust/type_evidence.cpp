// What a Rust file says of types: declared types of parameters, `let` bindings, struct fields
// and function results, struct literals and `T::new()` calls, as expressions the writer resolves.

#include <array>
#include <string>

#include "orvane_tamsel/indexer/languages/rust/rules.h"
#include "orvane_tamsel/indexer/languages/type_steps.h"

namespace orvane_tamsel::indexer::rust::detail {

namespace {

// Wrappers whose methods a call reaches through (`Box<T>` derefs to T) or whose value is the
// one a `?`, `unwrap()` or `borrow()` gives.
constexpr std::array<std::string_view, 11> WRAPPERS = {
    "Box", "Rc", "Arc", "Option", "Result", "RefCell", "Cell", "Mutex", "RwLock", "Cow", "Pin"};
constexpr std::array<std::string_view, 5> SEQUENCES = {"Vec", "VecDeque", "HashSet", "BTreeSet",
                                                       "LinkedList"};
constexpr std::array<std::string_view, 2> MAPS = {"HashMap", "BTreeMap"};
// Methods that give the value they are called on (or what it wraps).
constexpr std::array<std::string_view, 8> SAME_VALUE = {
    "unwrap", "expect", "clone", "as_ref", "as_mut", "borrow", "borrow_mut", "unwrap_or_default"};
constexpr std::array<std::string_view, 5> ITERATE = {"iter", "iter_mut", "into_iter", "values",
                                                     "values_mut"};

template <std::size_t N>
bool among(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

TypeExpr element(const TypeExpr& base) {
  return base.empty() || base.size() > MAX_TYPE_EXPR ? TypeExpr{} : base + "/[]";
}

// "T:fqn" as "T:[]fqn": a container of it.
TypeExpr contain(const TypeExpr& t) {
  return t.starts_with("T:") ? "T:[]" + t.substr(2) : "";
}

}  // namespace

std::string Rules::item_fqn(std::string_view path, std::size_t fn) const {
  auto parts = split(path, "::");
  if (parts.empty() || parts[0].empty()) return {};
  std::string fqn;
  if (parts[0] == "Self") {
    auto own = own_type(fn);
    if (own.empty()) return {};
    fqn = own.substr(2);
  } else if (parts[0] == "crate" || parts[0] == "self" || parts[0] == "super") {
    auto m = modules_.find(fn);
    return path_fqn(path, m == modules_.end() ? module_ : m->second);
  } else if (auto hit = lookup(parts[0])) {
    fqn = hit->first;
  } else {
    return {};
  }
  for (std::size_t i = 1; i < parts.size(); ++i) fqn = join(fqn, parts[i]);
  // tests and examples name their own package by its crate name
  auto dot = fqn.find('.');
  auto head = fqn.substr(0, dot);
  if (separate_crate_ && dot != std::string::npos && head != crate_ && head != "std" &&
      head != "core" && head != "alloc")
    fqn = crate_ + fqn.substr(dot);
  return fqn;
}

TypeExpr Rules::type_expr(TSNode type, std::size_t fn) const {
  for (int guard = 0; guard < 8; ++guard) {
    if (is(type, "reference_type") || is(type, "pointer_type")) {
      type = ts_node_child_by_field_name(type, "type", 4);
    } else if (is(type, "dynamic_type") || is(type, "abstract_type")) {
      type = ts_node_child_by_field_name(type, "trait", 5);
    } else if (is(type, "array_type")) {
      return contain(type_expr(ts_node_child_by_field_name(type, "element", 7), fn));
    } else if (is(type, "generic_type")) {
      TSNode base = ts_node_child_by_field_name(type, "type", 4);
      TSNode args = ts_node_child_by_field_name(type, "type_arguments", 14);
      auto name = text(
          is(base, "scoped_type_identifier") ? ts_node_child_by_field_name(base, "name", 4) : base);
      auto count = ts_node_named_child_count(args);
      if (among(WRAPPERS, name) && count > 0) {
        type = ts_node_named_child(args, 0);
      } else if (among(SEQUENCES, name) && count == 1) {
        return contain(type_expr(ts_node_named_child(args, 0), fn));
      } else if (among(MAPS, name) && count == 2) {
        return contain(type_expr(ts_node_named_child(args, 1), fn));
      } else {
        type = base;
      }
    } else {
      break;
    }
  }
  if (!is(type, "type_identifier") && !is(type, "scoped_type_identifier")) return {};
  auto fqn = item_fqn(text(type), fn);
  return fqn.empty() ? TypeExpr{} : "T:" + fqn;
}

TypeExpr Rules::own_type(std::size_t fn) const {
  if (fn == 0 || fn >= out_.symbols.size() || out_.symbols[fn].kind != "method") return {};
  const auto& scope = prefix_of(fn);
  return scope.empty() || scope == module_ ? TypeExpr{} : "T:" + scope;
}

TypeExpr Rules::expr_type(TSNode e, std::size_t fn, int depth) const {
  if (ts_node_is_null(e) || depth > MAX_TYPE_DEPTH) return {};
  if (is(e, "parenthesized_expression") || is(e, "try_expression") || is(e, "await_expression") ||
      is(e, "unary_expression"))
    return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
  if (is(e, "reference_expression"))
    return expr_type(ts_node_child_by_field_name(e, "value", 5), fn, depth + 1);
  if (is(e, "self")) return own_type(fn);
  if (is(e, "identifier")) {
    auto l = locals_.find(fn);
    if (l == locals_.end()) return {};
    auto t = l->second.find(text(e));
    return t == l->second.end() ? TypeExpr{} : t->second;
  }
  if (is(e, "struct_expression")) {  // a literal of the struct: built right there
    auto fqn = item_fqn(field_text(e, "name"), fn);
    return fqn.empty() ? TypeExpr{} : "S:" + fqn;
  }
  if (is(e, "field_expression")) {
    return type_step(expr_type(ts_node_child_by_field_name(e, "value", 5), fn, depth + 1),
                     field_text(e, "field"), false);
  }
  if (is(e, "index_expression"))
    return element(expr_type(ts_node_named_child(e, 0), fn, depth + 1));
  if (!is(e, "call_expression")) return {};
  TSNode callee = ts_node_child_by_field_name(e, "function", 8);
  if (is(callee, "generic_function")) callee = ts_node_child_by_field_name(callee, "function", 8);
  if (is(callee, "identifier")) {  // a function of this file or a `use`d one: what it gives
    std::string name(text(callee));
    if (auto l = locals_.find(fn); l != locals_.end() && l->second.count(name) != 0) return {};
    // a function of the module around the call (an inline `mod` too), nearest first
    auto m = modules_.find(fn);
    for (auto here = m == modules_.end() ? module_ : m->second;;) {
      if (auto d = defined_.find(join(here, name)); d != defined_.end())
        return out_.symbols[d->second].kind == "function" ? "S:" + d->first : TypeExpr{};
      if (here == module_ || here.rfind('.') == std::string::npos) break;
      here.resize(here.rfind('.'));
    }
    auto fqn = item_fqn(name, fn);
    return fqn.empty() ? TypeExpr{} : "S:" + fqn;
  }
  if (is(callee, "scoped_identifier")) {  // `Cart::new()`: what the associated function gives
    auto path = field_text(callee, "path");
    auto fqn = path.empty() ? std::string() : item_fqn(path, fn);
    return fqn.empty() ? TypeExpr{} : "S:" + join(fqn, field_text(callee, "name"));
  }
  if (!is(callee, "field_expression")) return {};
  auto base = expr_type(ts_node_child_by_field_name(callee, "value", 5), fn, depth + 1);
  auto method = field_text(callee, "field");
  if (among(SAME_VALUE, method)) return base;
  return type_step(base, method, true);
}

// A binding declared twice with two types (shadowing, or two blocks) is unknown.
void Rules::declare(std::size_t fn, TSNode pattern, const TypeExpr& type) {
  if (is(pattern, "mut_pattern") || is(pattern, "ref_pattern"))
    pattern = ts_node_named_child(pattern, ts_node_named_child_count(pattern) - 1);
  if (is(pattern, "identifier")) {
    auto [it, fresh] = locals_[fn].try_emplace(std::string(text(pattern)), type);
    if (!fresh && it->second != type) it->second.clear();
    return;
  }
  // a destructuring pattern: what it binds is of no known type
  for (std::uint32_t i = 0; i < ts_node_named_child_count(pattern); ++i)
    declare(fn, ts_node_named_child(pattern, i), {});
}

void Rules::record_declaration(std::size_t fn, TSNode node) {
  TSNode pattern = ts_node_child_by_field_name(node, "pattern", 7);
  if (is(node, "parameter"))
    return declare(fn, pattern, type_expr(ts_node_child_by_field_name(node, "type", 4), fn));
  if (is(node, "closure_parameters")) {
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode p = ts_node_named_child(node, i);
      if (is(p, "parameter")) {
        record_declaration(fn, p);
      } else {
        declare(fn, p, {});
      }
    }
    return;
  }
  TSNode value = ts_node_child_by_field_name(node, "value", 5);
  if (is(node, "for_expression")) {
    // `for x in &xs`, `for x in xs.iter()`: an element of xs
    while (is(value, "reference_expression"))
      value = ts_node_child_by_field_name(value, "value", 5);
    TSNode callee = ts_node_child_by_field_name(value, "function", 8);
    if (is(value, "call_expression") && is(callee, "field_expression") &&
        among(ITERATE, field_text(callee, "field")))
      value = ts_node_child_by_field_name(callee, "value", 5);
    return declare(fn, pattern, element(expr_type(value, fn)));
  }
  TSNode type = ts_node_child_by_field_name(node, "type", 4);
  auto t = ts_node_is_null(type) ? expr_type(value, fn) : type_expr(type, fn);
  declare(fn, pattern, t.size() > MAX_TYPE_EXPR ? TypeExpr{} : t);
}

// Bases, results, fields and bindings, once every item and `use` of the file is known.
void Rules::finish() {
  // `impl Trait for Cart`: the trait's default methods are Cart's too
  for (TSNode impl : impls_) {
    auto type = type_name(ts_node_child_by_field_name(impl, "type", 4));
    auto own = defined_.find(join(module_, type));
    auto trait = type_expr(ts_node_child_by_field_name(impl, "trait", 5), 0);
    if (own != defined_.end() && !trait.empty())
      out_.symbols[own->second].bases.push_back(trait.substr(2));
  }
  for (const auto& [symbol, node] : results_)
    out_.symbols[symbol].type_of =
        type_expr(ts_node_child_by_field_name(node, "return_type", 11), symbol);
  for (const auto& [symbol, node] : structs_) {
    TSNode body = ts_node_child_by_field_name(node, "body", 4);
    if (!is(body, "field_declaration_list")) continue;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(body); ++i) {
      TSNode f = ts_node_named_child(body, i);
      if (!is(f, "field_declaration")) continue;
      auto t = type_expr(ts_node_child_by_field_name(f, "type", 4), 0);
      if (!t.empty()) out_.symbols[symbol].fields.emplace_back(field_text(f, "name"), t);
    }
  }
  for (const auto& [fn, node] : declarations_) record_declaration(fn, node);
}

}  // namespace orvane_tamsel::indexer::rust::detail
