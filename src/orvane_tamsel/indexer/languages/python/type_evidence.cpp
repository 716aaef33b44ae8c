// What local evidence says of types in a Python file: of names, attributes, results and
// fixtures, as expressions the writer resolves across files.

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>

#include "orvane_tamsel/indexer/languages/python/annotations.h"
#include "orvane_tamsel/indexer/languages/python/extraction.h"
#include "orvane_tamsel/indexer/languages/python/module_names.h"

namespace orvane_tamsel::indexer::python::detail {

namespace {

constexpr int MAX_TYPE_DEPTH = 12;  // links followed from one expression to the names it uses

// How many values of differing types (a function's returns, a name's bindings) an expression
// lists as possible for the writer: more, and it is unknown.
constexpr std::size_t MAX_RETURNS = 4;
// How many classes of a declared union go to the writer, which links up to its own bound and
// says when a union is wider: more than this is no type at all.
constexpr std::size_t MAX_ANNOTATED = 8;
// How many classes a module name may be chosen among for the writer to find their common base.
constexpr std::size_t MAX_ALTERNATIVES = 8;

// A step taken by every alternative (and every possible value) of a type expression.
std::string then(std::string_view expr, std::string_view step) {
  std::string out;
  std::size_t start = 0;
  while (true) {
    auto bar = expr.find_first_of("|&+", start);
    out.append(expr.substr(start, bar == std::string_view::npos ? bar : bar - start)).append(step);
    if (bar == std::string_view::npos) return out;
    out.push_back(expr[bar]);
    start = bar + 1;
  }
}

// The first named child that is not a comment.
TSNode first_named(TSNode n) {
  for (std::uint32_t i = 0; i < ts_node_named_child_count(n); ++i) {
    TSNode c = ts_node_named_child(n, i);
    if (std::strcmp(ts_node_type(c), "comment") != 0) return c;
  }
  return TSNode{};
}

// A block whose last statement leaves it.
bool leaves(TSNode block) {
  TSNode last{};
  for (std::uint32_t i = ts_node_named_child_count(block); i-- > 0 && ts_node_is_null(last);) {
    TSNode c = ts_node_named_child(block, i);
    if (std::strcmp(ts_node_type(c), "comment") != 0) last = c;
  }
  if (ts_node_is_null(last)) return false;
  std::string_view type = ts_node_type(last);
  return type == "return_statement" || type == "raise_statement" || type == "continue_statement" ||
         type == "break_statement";
}

}  // namespace

// Sorts what the type queries matched by the scope it speaks of.
void Extraction::collect_type_facts() {
  for (const auto& f : name_facts_) {
    auto& facts = scopes_[scope_key(binding_scope(f.target))].facts;
    auto& into = f.typed ? facts.annotations : facts.values;
    into[std::string(text(f.target))].push_back(f.what);
  }
  for (const auto& f : attribute_facts_) {
    TSNode object = ts_node_child_by_field_name(f.target, "object", 6);
    if (!is_type(object, "identifier") || text(object) != "self") continue;
    TSNode cls = method_class(f.target);
    if (ts_node_is_null(cls)) continue;
    auto& facts = attributes_[scope_key(cls)];
    auto& into = f.typed ? facts.annotations : facts.values;
    into[std::string(text(ts_node_child_by_field_name(f.target, "attribute", 9)))].push_back(
        f.what);
  }
  for (TSNode r : returned_) returns_[scope_key(enclosing_def(r))].push_back(r);
  for (TSNode y : yielded_) yields_[scope_key(enclosing_def(y))].push_back(y);
  for (const auto& tag : tags_) {
    if (tag.role != DEF_FUNCTION) continue;
    auto name = fixture_name(tag.node);
    if (!name.empty()) fixtures_[scope_key(enclosing_def(tag.node))][name] = fqn_of(tag.node);
  }
}

// The fixture a function defines, by its name or the decorator's `name=`; "" when none.
std::string Extraction::fixture_name(TSNode def) const {
  auto outer = decorators_.find(ts_node_start_byte(def));
  if (outer == decorators_.end()) return "";
  for (std::uint32_t i = 0; i < ts_node_named_child_count(outer->second); ++i) {
    TSNode d = ts_node_named_child(outer->second, i);
    if (!is_type(d, "decorator") || ts_node_named_child_count(d) == 0) continue;
    TSNode e = ts_node_named_child(d, 0);
    TSNode args{};
    if (is_type(e, "call")) {
      args = ts_node_child_by_field_name(e, "arguments", 9);
      e = ts_node_child_by_field_name(e, "function", 8);
    }
    auto t = text(e);
    if (t != "fixture" && !t.ends_with(".fixture")) continue;
    for (std::uint32_t k = 0; !ts_node_is_null(args) && k < ts_node_named_child_count(args); ++k) {
      TSNode kw = ts_node_named_child(args, k);
      TSNode value = ts_node_child_by_field_name(kw, "value", 5);
      if (is_type(kw, "keyword_argument") && field_text(kw, "name") == "name" &&
          is_type(value, "string")) {
        return string_body(value);
      }
    }
    return field_text(def, "name");
  }
  return "";
}

// The classes an annotation names, resolved as the names at `at` are: "T:fqn", or for a union
// each one known as a possible value ("T:a.A&T:a.B"), or "". A member not bound here (`int`,
// a name of a module outside the repository) is passed over, as pyright passes over what it
// cannot type.
std::string Extraction::annotated_type(TSNode annotation, TSNode at, bool yielded) const {
  std::string out;
  std::size_t count = 0;
  for (const auto& name : annotated_classes(text(annotation), yielded)) {
    auto t = named_class(name, at);
    if (t.empty() || ("&" + out + "&").find("&" + t + "&") != std::string::npos) continue;
    if (++count > MAX_ANNOTATED) return "";
    if (!out.empty()) out += '&';
    out += t;
  }
  return out;
}

// A class named in an annotation, dotted as written, resolved as the names at `at` are.
std::string Extraction::named_class(const std::string& name, TSNode at) const {
  if (name.empty()) return "";
  if (name == "Self" || name.ends_with(".Self")) {
    for (TSNode d = enclosing_def(at); !ts_node_is_null(d); d = enclosing_def(d)) {
      if (is_class(d)) return "T:" + fqn_of(d);
    }
    return "";
  }
  auto dot = name.find('.');
  auto b = lookup(at, std::string_view(name).substr(0, dot));
  if (!b) return "";
  return "T:" + (dot == std::string::npos ? b->fqn : join_dotted(b->fqn, name.substr(dot + 1)));
}

// The one type all of `nodes` agree on (None assignments aside), or nothing.
Typed Extraction::agree(const std::vector<TSNode>& nodes, bool annotations, int depth) const {
  Typed found;
  for (TSNode n : nodes) {
    Typed t;
    if (annotations) {
      t = {annotated_type(n, n), "declared-type"};
    } else {
      if (is_type(n, "none")) continue;
      t = value_type(n, depth + 1);
    }
    if (t.empty() || (!found.empty() && t.expr != found.expr)) return {};
    if (found.empty()) found = std::move(t);
  }
  return found;
}

// A name's type from what its scope binds it to: a declaration first, then the values it is
// given, when all of the scope's bindings of it are such values and agree.
Typed Extraction::bound_type(const TypeFacts& facts, std::string_view name, int bindings,
                             int depth) const {
  if (auto a = facts.annotations.find(name); a != facts.annotations.end()) {
    return agree(a->second, true, depth);
  }
  auto v = facts.values.find(name);
  if (v == facts.values.end()) return {};
  if (bindings >= 0 && static_cast<std::size_t>(bindings) != v->second.size()) return {};
  return agree(v->second, false, depth);
}

// The type of a class's attribute `name`, from its body and the methods assigning self.name.
Typed Extraction::attribute_type(TSNode cls, std::string_view name, int depth) const {
  TypeFacts both;
  for (const TypeFacts* f : {scope_facts(cls), attribute_facts(cls)}) {
    if (f == nullptr) continue;
    for (const auto* part : {&f->annotations, &f->values}) {
      auto it = part->find(name);
      if (it == part->end()) continue;
      auto& into = part == &f->annotations ? both.annotations : both.values;
      auto& list = into[std::string(name)];
      list.insert(list.end(), it->second.begin(), it->second.end());
    }
  }
  if (both.annotations.count(name) != 0) return bound_type(both, name, -1, depth);
  // Set in several places (`self.x = Thing()` in __init__, `self.x = x` in a setter).
  auto v = both.values.find(name);
  return v == both.values.end() ? Typed{} : possible(v->second, depth);
}

bool Extraction::is_parameter(TSNode fn, std::string_view name) const {
  TSNode params = ts_node_child_by_field_name(fn, "parameters", 10);
  for (std::uint32_t i = 0; !ts_node_is_null(params) && i < ts_node_named_child_count(params);
       ++i) {
    TSNode p = ts_node_named_child(params, i);
    if (is_type(p, "default_parameter")) p = ts_node_child_by_field_name(p, "name", 4);
    if (is_type(p, "identifier") && text(p) == name) return true;
  }
  return false;
}

// The default value of an unannotated parameter `name`, or a null node.
TSNode Extraction::parameter_default(TSNode fn, std::string_view name) const {
  TSNode params = ts_node_child_by_field_name(fn, "parameters", 10);
  for (std::uint32_t i = 0; !ts_node_is_null(params) && i < ts_node_named_child_count(params);
       ++i) {
    TSNode p = ts_node_named_child(params, i);
    if (is_type(p, "default_parameter") && field_text(p, "name") == name) {
      TSNode v = ts_node_child_by_field_name(p, "value", 5);
      return is_type(v, "none") ? TSNode{} : v;
    }
  }
  return TSNode{};
}

// pytest hands a test (or a fixture) the value of the fixture its parameter is named after:
// one of this file (the test's class first), else one of the conftest.py files up the folders,
// the nearest that defines it.
Typed Extraction::fixture_type(TSNode fn, std::string_view name) const {
  auto fn_name = field_text(fn, "name");
  if (fixture_name(fn).empty() && !(out_.is_test && fn_name.starts_with("test"))) return {};
  for (TSNode scope : {enclosing_def(fn), TSNode{}}) {
    if (!ts_node_is_null(scope) && !is_class(scope)) continue;
    auto f = fixtures_.find(scope_key(scope));
    if (f == fixtures_.end()) continue;
    auto it = f->second.find(name);
    if (it != f->second.end() && it->second != fqn_of(fn)) return {"S:" + it->second, "fixture"};
  }
  std::string alternatives;
  for (auto& [mod, file] : conftest_chain(path_, module_)) {
    if (!alternatives.empty()) alternatives += '|';
    std::replace(file.begin(), file.end(), '/', ':');
    alternatives += "S:" + join_dotted(mod, name) + "@:" + file;
  }
  return {alternatives, "fixture"};
}

// The type of a name at `at`, looked up as Python would: locals of enclosing functions, then
// the module's names.
Typed Extraction::name_type(TSNode at, std::string_view name, int depth) const {
  for (TSNode def = enclosing_def(at); !ts_node_is_null(def); def = enclosing_def(def)) {
    if (is_class(def)) continue;  // class bodies are not enclosing scopes
    auto s = scopes_.find(scope_key(def));
    if (s == scopes_.end()) continue;
    if (auto b = s->second.names.find(name); b != s->second.names.end()) {
      return binding_type(b->second);
    }
    auto count = s->second.locals.find(name);
    if (count == s->second.locals.end()) continue;
    return local_type(def, s->second, at, name, count->second, depth);
  }
  return module_name_type(name, depth);
}

// `isinstance(x, C)` or `isinstance(x, (A, B))`, with x a name or a dotted attribute: x and the
// classes (the range left to the caller), or nothing.
std::optional<Extraction::Narrowed> Extraction::isinstance_test(TSNode test) const {
  TSNode args = ts_node_child_by_field_name(test, "arguments", 9);
  if (!is_type(test, "call") ||
      text(ts_node_child_by_field_name(test, "function", 8)) != "isinstance" ||
      ts_node_named_child_count(args) != 2) {
    return std::nullopt;
  }
  auto parts = dotted(ts_node_named_child(args, 0));
  if (parts.empty()) return std::nullopt;
  Narrowed n{0, 0, std::string(parts[0]), {}, false};
  for (std::size_t k = 1; k < parts.size(); ++k) n.name.append(".").append(parts[k]);
  TSNode cls = ts_node_named_child(args, 1);
  bool tuple = is_type(cls, "tuple");
  for (std::uint32_t i = 0; i < (tuple ? ts_node_named_child_count(cls) : 1); ++i) {
    TSNode c = tuple ? ts_node_named_child(cls, i) : cls;
    if (!is_type(c, "identifier") && !is_type(c, "attribute")) return std::nullopt;
    n.classes.push_back(c);
  }
  if (n.classes.empty()) return std::nullopt;
  return n;
}

void Extraction::collect_narrowing(TSNode node) {
  // A `case` guard has no element; a file that does not parse may lack any part.
  auto within = [&](TSNode test, TSNode part, bool holds) {
    if (!ts_node_is_null(part))
      narrow(test, ts_node_start_byte(part), ts_node_end_byte(part), holds);
  };
  if (is_type(node, "boolean_operator")) {
    within(ts_node_child_by_field_name(node, "left", 4),
           ts_node_child_by_field_name(node, "right", 5), field_text(node, "operator") == "and");
  } else if (is_type(node, "conditional_expression")) {
    TSNode part[3];  // `then if test else other`
    std::uint32_t k = 0;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node) && k < 3; ++i) {
      TSNode c = ts_node_named_child(node, i);
      if (!is_type(c, "comment")) part[k++] = c;
    }
    if (k < 3) return;
    within(part[1], part[0], true);
    within(part[1], part[2], false);
  } else if (is_type(node, "if_clause")) {
    // In a comprehension's element and the clauses after it; in the block of a `case` it guards.
    TSNode around = ts_node_parent(node), test = first_named(node);
    within(test, ts_node_child_by_field_name(around, "body", 4), true);
    narrow(test, ts_node_end_byte(node), ts_node_end_byte(around), true);
  } else if (is_type(node, "assert_statement")) {
    narrow(first_named(node), ts_node_end_byte(node), ts_node_end_byte(ts_node_parent(node)), true);
  } else if (is_type(node, "while_statement")) {
    within(ts_node_child_by_field_name(node, "condition", 9),
           ts_node_child_by_field_name(node, "body", 4), true);
  } else {
    TSNode test = ts_node_child_by_field_name(node, "condition", 9);
    TSNode body = ts_node_child_by_field_name(node, "consequence", 11);
    within(test, body, true);
    // The test fails in the `elif`s and `else` after it, and after an `if` whose body leaves.
    bool elif = is_type(node, "elif_clause");
    TSNode whole = elif ? ts_node_parent(node) : node;
    TSNode alt = elif ? ts_node_next_named_sibling(node)
                      : ts_node_child_by_field_name(node, "alternative", 11);
    while (is_type(alt, "comment")) alt = ts_node_next_named_sibling(alt);
    if (!ts_node_is_null(alt)) {
      narrow(test, ts_node_start_byte(alt), ts_node_end_byte(whole), false);
    } else if (!elif && leaves(body)) {
      narrow(test, ts_node_end_byte(node), ts_node_end_byte(ts_node_parent(node)), false);
    }
  }
}

void Extraction::narrow(TSNode test, std::uint32_t start, std::uint32_t end, bool holds) {
  // Along the left operands: a chain of `and`s nests to the left, as deep as it is long.
  while (true) {
    while (is_type(test, "parenthesized_expression")) test = first_named(test);
    if (is_type(test, "not_operator")) {
      test = ts_node_child_by_field_name(test, "argument", 8);
      holds = !holds;
    } else if (is_type(test, "boolean_operator")) {
      // Both operands hold where `a and b` does; both fail where `a or b` does.
      if ((field_text(test, "operator") == "and") != holds) return;
      narrow(ts_node_child_by_field_name(test, "right", 5), start, end, holds);
      test = ts_node_child_by_field_name(test, "left", 4);
    } else {
      if (ts_node_is_null(test)) return;
      if (auto n = isinstance_test(test)) {
        n->start = start;
        n->end = end;
        n->negated = !holds;
        narrowed_.push_back(std::move(*n));
      }
      return;
    }
  }
}

// The innermost isinstance test holding at `at` on `receiver`, unless it is bound again between
// the test and `at` (or the test is another function's). Classes not bound here are passed over.
std::string Extraction::narrowed_type(TSNode at, std::string_view receiver) const {
  auto use = ts_node_start_byte(at);
  std::vector<std::string> excluded;  // by tests failing inside it
  for (auto it = narrowed_.rbegin(); it != narrowed_.rend(); ++it) {
    if (it->name != receiver || use < it->start || use >= it->end) continue;
    if (!ts_node_eq(enclosing_def(at), enclosing_def(it->classes.front()))) return "";
    // `x = x.m()`: the value is read before the name is bound again.
    auto rebinds = [&](TSNode target) {
      auto b = ts_node_start_byte(target);
      if (b < it->start || b >= use || text(target) != receiver) return false;
      for (TSNode p = ts_node_parent(target); !ts_node_is_null(p); p = ts_node_parent(p)) {
        if (is_type(p, "assignment") || is_type(p, "augmented_assignment")) {
          TSNode right = ts_node_child_by_field_name(p, "right", 5);
          return ts_node_is_null(right) || use < ts_node_start_byte(right) ||
                 use >= ts_node_end_byte(right);
        }
        if (is_type(p, "block") || is_type(p, "module")) break;
      }
      return true;
    };
    bool attribute = receiver.find('.') != std::string_view::npos;
    if (std::any_of(locals_.begin(), locals_.end(), rebinds)) return "";
    for (const auto& f : attribute_facts_) {
      if (attribute && rebinds(f.target)) return "";
    }
    std::string out;
    for (TSNode c : it->classes) {
      auto t = named_class(std::string(text(c)), c);
      if (it->negated) {
        excluded.push_back(std::move(t));
        continue;
      }
      if (t.empty() || ("&" + out + "&").find("&" + t + "&") != std::string::npos ||
          std::find(excluded.begin(), excluded.end(), t) != excluded.end()) {
        continue;
      }
      if (!out.empty()) out += '&';
      out += t;
    }
    if (!it->negated) return out;
  }
  return "";
}

// A function's local `name` (bound `bindings` times there), as used at `at`.
Typed Extraction::local_type(TSNode def, const Scope& scope, TSNode at, std::string_view name,
                             int bindings, int depth) const {
  TSNode cls = enclosing_def(def);
  if ((name == "self" || name == "cls") && !ts_node_is_null(cls) && is_class(cls) &&
      is_parameter(def, name)) {
    return {"T:" + fqn_of(cls), std::string(name)};  // evidence: self or cls
  }
  auto key = std::make_pair(scope_key(def), std::string(name));
  auto c = local_types_.find(key);
  if (c == local_types_.end()) {
    local_types_[key] = {};  // a cycle through this name finds nothing
    c = local_types_.insert_or_assign(key, scope_type(def, scope, name, bindings, depth)).first;
  }
  // Bound to values of differing types: the binding nearest before the use.
  if (c->second.empty() && bindings > 1 && scope.facts.annotations.count(name) == 0) {
    return nearest_binding_type(def, at, name, depth);
  }
  return c->second;
}

// What all of a function's bindings of `name` say; for a parameter bound nowhere else, the
// fixture it is named after or its default.
Typed Extraction::scope_type(TSNode def, const Scope& scope, std::string_view name, int bindings,
                             int depth) const {
  Typed t = bound_type(scope.facts, name, bindings, depth);
  if (!t.empty() || bindings != 1 || !is_parameter(def, name) ||
      scope.facts.annotations.count(name) != 0) {
    return t;
  }
  t = fixture_type(def, name);
  // An unannotated parameter is taken to hold what its default holds (`policy=compat32`).
  if (TSNode d = parameter_default(def, name); t.empty() && !ts_node_is_null(d)) {
    t = value_type(d, depth + 1);
  }
  return t;
}

// A module's name: what defines or imports it, else what its assignments agree on, else the
// alternatives they choose among (a class picked per platform).
Typed Extraction::module_name_type(std::string_view name, int depth) const {
  auto m = scopes_.find(UINT32_MAX);
  if (m == scopes_.end()) return {};
  if (auto b = m->second.names.find(name); b != m->second.names.end()) {
    return binding_type(b->second);
  }
  auto key = std::make_pair(UINT32_MAX, std::string(name));
  if (auto c = local_types_.find(key); c != local_types_.end()) return c->second;
  local_types_[key] = {};
  Typed t = bound_type(m->second.facts, name, -1, depth);
  if (t.empty()) t = alternatives(m->second.facts, name, depth);
  return local_types_[key] = std::move(t);
}

// A module name assigned values of differing types, each known (`if epoll: S = EpollSelector`
// `else: S = SelectSelector`), is one of them: "+" joins them, and the writer types the name by
// what they share.
Typed Extraction::alternatives(const TypeFacts& facts, std::string_view name, int depth) const {
  auto v = facts.values.find(name);
  if (v == facts.values.end() || facts.annotations.count(name) != 0) return {};
  std::vector<Typed> types;
  for (TSNode n : v->second) {
    if (is_type(n, "none")) continue;
    auto t = value_type(n, depth + 1);
    if (t.empty() || t.expr.find_first_of("&+") != std::string::npos) return {};
    if (std::none_of(types.begin(), types.end(),
                     [&](const Typed& k) { return k.expr == t.expr; })) {
      types.push_back(std::move(t));
    }
  }
  if (types.size() < 2 || types.size() > MAX_ALTERNATIVES) return {};
  Typed out = types.front();
  for (std::size_t i = 1; i < types.size(); ++i) out.expr.append("+").append(types[i].expr);
  return out;
}

// The values of the bindings of `name` in `def` that may reach `at` (the use not inside them:
// `x = x.next()`): the last before it, and the ones before that while it may not run (a branch
// of an `if` or a `try`, a loop's body) unless the branches all bind. Those known are the
// possible values ("&"): the writer links a call on them to each one's member.
Typed Extraction::nearest_binding_type(TSNode def, TSNode at, std::string_view name,
                                       int depth) const {
  if (binding_sites_.empty()) {
    for (TSNode n : locals_) {
      binding_sites_[{scope_key(enclosing_def(n)), std::string(text(n))}].push_back(n);
    }
    for (const auto& f : name_facts_) {
      if (!f.typed) bound_values_[ts_node_start_byte(f.target)] = f.what;
    }
  }
  auto sites = binding_sites_.find({scope_key(def), std::string(name)});
  if (sites == binding_sites_.end()) return {};
  auto use = ts_node_start_byte(at);
  std::vector<TSNode> before;
  for (TSNode n : sites->second) {
    auto start = ts_node_start_byte(n);
    if (start >= use) continue;
    auto v = bound_values_.find(start);
    if (v != bound_values_.end() && ts_node_start_byte(v->second) <= use &&
        use < ts_node_end_byte(v->second)) {
      continue;
    }
    before.push_back(n);
  }
  std::sort(before.begin(), before.end(),
            [](TSNode a, TSNode b) { return ts_node_start_byte(a) < ts_node_start_byte(b); });
  std::vector<TSNode> reaching;
  std::vector<Typed> types;
  for (auto it = before.rbegin(); it != before.rend(); ++it) {
    reaching.push_back(*it);
    auto v = bound_values_.find(ts_node_start_byte(*it));
    if (v != bound_values_.end() && !is_type(v->second, "none")) {
      auto key = ts_node_start_byte(v->second);
      auto c = value_types_.find(key);
      if (c == value_types_.end()) {
        value_types_[key] = {};
        c = value_types_.insert_or_assign(key, value_type(v->second, depth + 1)).first;
      }
      const Typed& t = c->second;
      if (!t.empty() && std::none_of(types.begin(), types.end(),
                                     [&](const Typed& k) { return k.expr == t.expr; })) {
        types.push_back(t);
      }
    }
    if (always_rebinds(*it, at, reaching)) break;
  }
  if (types.empty() || types.size() > MAX_RETURNS) return {};
  if (types.size() == 1) return types.front();
  Typed out = types.front();
  for (std::size_t i = 1; i < types.size(); ++i) {
    if (types[i].expr.find('+') != std::string::npos || out.expr.find('+') != std::string::npos) {
      return {};  // "+" binds loosest: see possible()
    }
    out.expr.append("&").append(types[i].expr);
  }
  return out;
}

// Whether the binding `n` (or, when it sits in a branch, the bindings `reaching` of every branch
// of that statement) runs on every way to `at`: what was bound before cannot reach it.
bool Extraction::always_rebinds(TSNode n, TSNode at, const std::vector<TSNode>& reaching) const {
  auto use = ts_node_start_byte(at);
  auto holds = [](TSNode outer, std::uint32_t byte) {
    return ts_node_start_byte(outer) <= byte && byte < ts_node_end_byte(outer);
  };
  // The outermost statement that may skip `n` and does not hold the use.
  TSNode branching{};
  for (TSNode p = ts_node_parent(n); !ts_node_is_null(p) && !holds(p, use); p = ts_node_parent(p)) {
    if (is_type(p, "if_statement") || is_type(p, "try_statement") || is_type(p, "for_statement") ||
        is_type(p, "while_statement") || is_type(p, "match_statement")) {
      branching = p;
    }
  }
  if (ts_node_is_null(branching)) return true;
  // An `if` with an `else`, or a `try` whose body and handlers each bind the name.
  bool is_if = is_type(branching, "if_statement");
  if (!is_if && !is_type(branching, "try_statement")) return false;
  bool has_else = !is_if;
  for (std::uint32_t i = 0; i < ts_node_named_child_count(branching); ++i) {
    TSNode branch = ts_node_named_child(branching, i);
    const char* field = ts_node_field_name_for_named_child(branching, i);
    bool body = field != nullptr &&
                (std::strcmp(field, "consequence") == 0 || std::strcmp(field, "body") == 0);
    if (is_type(branch, "else_clause")) {
      has_else = true;
      if (!is_if) continue;  // a try's `else` runs after its body, which binds already
    } else if (!body && !is_type(branch, "elif_clause") && !is_type(branch, "except_clause")) {
      continue;
    }
    bool binds = std::any_of(reaching.begin(), reaching.end(),
                             [&](TSNode r) { return holds(branch, ts_node_start_byte(r)); });
    if (!binds) return false;
  }
  return has_else;
}

// What local evidence says of the type of an expression's value.
Typed Extraction::value_type(TSNode e, int depth) const {
  if (depth > MAX_TYPE_DEPTH || ts_node_is_null(e)) return {};
  if (auto u = unpacked_.find(ts_node_start_byte(e));
      u != unpacked_.end() && is_type(e, "identifier")) {
    return u->second.second == 0 ? iterated_type(u->second.first, depth)
                                 : element_type(u->second.first, u->second.second, depth);
  }
  if (is_type(e, "parenthesized_expression") || is_type(e, "await")) {
    return ts_node_named_child_count(e) == 1 ? value_type(ts_node_named_child(e, 0), depth + 1)
                                             : Typed{};
  }
  if (is_type(e, "identifier")) {
    if (auto c = comprehended_.find(std::string(text(e))); c != comprehended_.end()) {
      // The innermost comprehension around the use that binds the name (not where it iterates).
      auto at = ts_node_start_byte(e);
      for (auto it = c->second.rbegin(); it != c->second.rend(); ++it) {
        if (it->start <= at && at < it->end &&
            (at < ts_node_start_byte(it->value) || at >= ts_node_end_byte(it->value))) {
          return iterated_type(it->value, depth + 1);
        }
      }
    }
    return name_type(e, text(e), depth);
  }
  if (is_type(e, "as_pattern")) return entered_type(e, depth);
  if (is_type(e, "assignment")) {  // `a = b = value`: what `a` is given is the value
    return value_type(ts_node_child_by_field_name(e, "right", 5), depth + 1);
  }
  if (is_type(e, "subscript")) {  // `f()[1]`: an element of a tuple the call returns
    TSNode index = ts_node_child_by_field_name(e, "subscript", 9);
    auto digits = is_type(index, "integer") ? text(index) : std::string_view();
    if (digits.empty() || digits.size() > 1 || digits[0] < '0' || digits[0] > '9') return {};
    return element_type(ts_node_child_by_field_name(e, "value", 5),
                        static_cast<std::uint32_t>(digits[0] - '0') + 1, depth);
  }
  if ((is_type(e, "boolean_operator") || is_type(e, "conditional_expression")) &&
      ts_node_named_child_count(e) >= 2) {
    return either_type(e, depth);
  }
  bool call = is_type(e, "call");
  if (!call && !is_type(e, "attribute")) return {};
  TSNode head = call ? ts_node_child_by_field_name(e, "function", 8) : e;
  // `object.__new__(Cls)`, `super().__new__(cls)`: an instance of the class passed.
  if (call && is_type(head, "attribute") &&
      text(ts_node_child_by_field_name(head, "attribute", 9)) == "__new__") {
    return new_instance_type(e, depth);
  }
  auto parts = dotted(head);
  if (!parts.empty()) {
    if (auto b = lookup(head, parts[0])) return named_type(*b, parts, call);
  }
  if (call && is_type(head, "identifier")) return called_name_type(head, depth);
  if (!is_type(head, "attribute")) return {};
  TSNode object = ts_node_child_by_field_name(head, "object", 6);
  if (is_type(object, "call") &&
      text(ts_node_child_by_field_name(object, "function", 8)) == "super") {
    return {};
  }
  Typed of = value_type(object, depth + 1);
  if (of.empty()) return {};
  // `x.__class__` is x's class, and calling it makes another of its kind.
  if (text(ts_node_child_by_field_name(head, "attribute", 9)) == "__class__") return of;
  std::string step = "/" + std::string(text(ts_node_child_by_field_name(head, "attribute", 9)));
  if (call) step += "()";
  return {then(of.expr, step), call ? "result-type" : "attribute"};
}

// `with Cls(...) as x`: x is what Cls.__enter__ returns (the writer takes the instance itself
// when the index holds no __enter__). A context manager function's callers already get what it
// yields; `except E as e` binds an instance of E.
Typed Extraction::entered_type(TSNode pattern, int depth) const {
  if (ts_node_named_child_count(pattern) < 2) return {};
  Typed v = value_type(ts_node_named_child(pattern, 0), depth + 1);
  if (v.empty() || v.evidence != "constructor" || !is_type(ts_node_parent(pattern), "with_item")) {
    return v;
  }
  return {then(v.expr, "/__enter__()"), "result-type"};
}

// `a or b`, `a if c else b`: either value (see "&").
Typed Extraction::either_type(TSNode e, int depth) const {
  bool cond = is_type(e, "conditional_expression");
  TSNode sides[2] = {cond ? ts_node_named_child(e, 0) : ts_node_child_by_field_name(e, "left", 4),
                     cond ? ts_node_named_child(e, 2) : ts_node_child_by_field_name(e, "right", 5)};
  Typed out;
  for (TSNode side : sides) {
    if (is_type(side, "none")) continue;
    Typed t = value_type(side, depth + 1);
    if (t.empty() || t.expr == out.expr) continue;
    if (!out.empty() &&
        (t.expr.find('+') != std::string::npos || out.expr.find('+') != std::string::npos)) {
      return {};  // "+" binds loosest: see possible()
    }
    if (out.empty()) {
      out = std::move(t);
    } else {
      out.expr.append("&").append(t.expr);
    }
  }
  return out;
}

// `object.__new__(Cls)`: an instance of the class passed first.
Typed Extraction::new_instance_type(TSNode call, int depth) const {
  TSNode args = ts_node_child_by_field_name(call, "arguments", 9);
  if (ts_node_is_null(args) || ts_node_named_child_count(args) == 0) return {};
  TSNode cls = ts_node_named_child(args, 0);
  if (!is_type(cls, "identifier")) return {};
  Typed c = value_type(cls, depth + 1);
  if (c.expr.find_first_of("/|&") != std::string::npos) return {};
  return c.empty() ? Typed{} : Typed{c.expr, "constructor"};
}

// A dotted name whose first name `b` binds, read or called.
Typed Extraction::named_type(const Binding& b, const std::vector<std::string_view>& parts,
                             bool call) const {
  if (!call && parts.size() == 1) return binding_type(b);
  if (call && parts.size() == 1 && is_local_function(b)) return {"S:" + b.fqn, "result-type"};
  std::string fqn = b.fqn, steps;
  for (std::size_t k = 1; k < parts.size(); ++k) {
    fqn = join_dotted(fqn, parts[k]);
    steps.append("/").append(parts[k]);
  }
  bool cls = (parts.size() == 1 && b.is_class) ||
             std::isupper(static_cast<unsigned char>(parts.back()[0])) != 0;
  Typed t{"S:" + fqn, !call ? "attribute" : cls ? "constructor" : "result-type"};
  // An imported name is a module (its names are symbols) or a value (they are attributes).
  if (parts.size() > 1 && b.evidence == "import") {
    t.expr += "|S:" + b.fqn + steps + (call ? "()" : "");
  }
  return t;
}

// A name no definition or import binds, called: `cls(...)`, a name chosen among classes, or a
// local bound to an attribute (`P = self.cls` then `P(...)`), the attribute called, which the
// writer types only for a field holding a class.
Typed Extraction::called_name_type(TSNode head, int depth) const {
  Typed c = name_type(head, text(head), depth);
  if (text(head) == "cls") {  // an instance of the class
    if (c.expr.starts_with("T:") && c.expr.find('/') == std::string::npos) {
      return {c.expr, "constructor"};
    }
  }
  if (c.expr.find('+') != std::string::npos && c.expr.find('/') == std::string::npos) {
    return {c.expr, "constructor"};  // an instance of the class chosen
  }
  if (c.empty() || c.expr.find_first_of("|&") != std::string::npos ||
      c.expr.find('/') == std::string::npos || c.expr.ends_with("()") || c.expr.ends_with("/[]")) {
    return {};
  }
  return {c.expr + "()", "constructor"};
}

// A function's result: its return annotation, else the one type all its returns agree on; a
// generator has none, but a fixture or a context manager that yields gives what it yields (what
// a test receives, what `with f() as x` binds).
std::string Extraction::result_type(TSNode fn) const {
  auto key = ts_node_start_byte(fn);
  auto y = yields_.find(key);
  if (y != yields_.end() && !yields_value(fn)) return "";
  TSNode annotation = ts_node_child_by_field_name(fn, "return_type", 11);
  if (!ts_node_is_null(annotation)) return annotated_type(annotation, fn, y != yields_.end());
  std::vector<TSNode> values;
  if (y != yields_.end()) {
    for (TSNode n : y->second) {
      if (ts_node_named_child_count(n) != 1) return "";
      for (std::uint32_t i = 0; i < ts_node_child_count(n); ++i) {
        if (is_type(ts_node_child(n, i), "from")) return "";  // `yield from` delegates
      }
      values.push_back(ts_node_named_child(n, 0));
    }
    return agree(values, false, 0).expr;
  }
  auto r = returns_.find(key);
  return r == returns_.end() ? "" : possible(r->second, 0).expr;
}

// The values whose type evidence gives, as possible values ("&"): the writer takes the types of
// those it can evaluate (`return cls(...)` beside `return cls.load(...)`: one); the others, as
// pyright does with values it cannot type, are passed over.
Typed Extraction::possible(const std::vector<TSNode>& values, int depth) const {
  std::vector<Typed> types;
  for (TSNode n : values) {
    if (is_type(n, "none")) continue;
    auto t = value_type(n, depth + 1);
    if (t.empty()) continue;
    if (std::none_of(types.begin(), types.end(),
                     [&](const Typed& k) { return k.expr == t.expr; })) {
      types.push_back(std::move(t));
    }
  }
  if (types.empty() || types.size() > MAX_RETURNS) return {};
  // "+" binds loosest: a value among alternatives cannot be one of several possible values.
  for (const auto& t : types) {
    if (types.size() > 1 && t.expr.find('+') != std::string::npos) return {};
  }
  Typed out = types.front();
  for (std::size_t i = 1; i < types.size(); ++i) out.expr.append("&").append(types[i].expr);
  return out;
}

// Symbols' types, and the typed attributes of classes (not symbols of their own) as fields.
void Extraction::collect_types() {
  for (const auto& s : out_.symbols) defined_.insert(s.fqn);
  for (const auto& [node, index] : typed_symbols_) {
    auto& s = out_.symbols[index];
    s.type_of = s.kind == "variable" ? name_type(node, s.name, 0).expr : result_type(node);
    if (s.kind != "variable") {
      if (returns_self(node)) s.fields.emplace_back("#self", "T:" + fqn_of(enclosing_def(node)));
      for (auto& f : tuple_results(node)) s.fields.push_back(std::move(f));
      if (auto e = element_result(node); !e.empty()) s.fields.emplace_back("#[]", std::move(e));
    }
  }
  for (const auto& [node, index] : class_nodes_) {
    std::set<std::string, std::less<>> names;
    for (const TypeFacts* f : {scope_facts(node), attribute_facts(node)}) {
      if (f == nullptr) continue;
      for (const auto& [n, _] : f->annotations) names.insert(n);
      for (const auto& [n, _] : f->values) names.insert(n);
    }
    auto& cls = out_.symbols[index];
    for (const auto& name : names) {
      if (defined_.count(join_dotted(cls.fqn, name)) != 0) continue;  // a method or nested class
      auto t = attribute_type(node, name, 0);
      if (!t.empty()) cls.fields.emplace_back(name, std::move(t.expr));
    }
  }
  // A property is read as an attribute: the class lists its result as a field of that name.
  std::unordered_map<std::uint32_t, std::size_t> classes;
  for (const auto& [node, index] : class_nodes_) classes[scope_key(node)] = index;
  for (const auto& [node, index] : typed_symbols_) {
    const auto& s = out_.symbols[index];
    if (s.kind != "method" || s.type_of.empty() || !is_property(node)) continue;
    auto c = classes.find(scope_key(enclosing_def(node)));
    if (c != classes.end()) out_.symbols[c->second].fields.emplace_back(s.name, s.type_of);
  }
}

// A method whose every return is `self` (or annotated `-> Self`) gives its receiver back.
bool Extraction::returns_self(TSNode fn) const {
  TSNode cls = enclosing_def(fn);
  if (ts_node_is_null(cls) || !is_class(cls) || !is_parameter(fn, "self")) return false;
  TSNode annotation = ts_node_child_by_field_name(fn, "return_type", 11);
  if (!ts_node_is_null(annotation)) {
    auto a = annotated_class(text(annotation));
    return a == "Self" || a.ends_with(".Self");
  }
  auto key = ts_node_start_byte(fn);
  auto r = returns_.find(key);
  if (yields_.count(key) != 0 || r == returns_.end()) return false;
  return std::all_of(r->second.begin(), r->second.end(),
                     [&](TSNode n) { return is_type(n, "identifier") && text(n) == "self"; });
}

bool Extraction::yields_value(TSNode fn) const {
  if (!fixture_name(fn).empty()) return true;
  return decorated_by(fn, [](std::string_view t) {
    return t == "contextmanager" || t.ends_with(".contextmanager") || t == "asynccontextmanager" ||
           t.ends_with(".asynccontextmanager");
  });
}

bool Extraction::is_property(TSNode def) const {
  return decorated_by(def, [](std::string_view t) {
    return t == "property" || t == "cached_property" || t.ends_with(".cached_property");
  });
}

bool Extraction::decorated_by(TSNode def, bool (*named)(std::string_view)) const {
  auto outer = decorators_.find(ts_node_start_byte(def));
  if (outer == decorators_.end()) return false;
  for (std::uint32_t i = 0; i < ts_node_named_child_count(outer->second); ++i) {
    TSNode d = ts_node_named_child(outer->second, i);
    if (!is_type(d, "decorator") || ts_node_named_child_count(d) == 0) continue;
    if (named(text(ts_node_named_child(d, 0)))) return true;
  }
  return false;
}

}  // namespace orvane_tamsel::indexer::python::detail
