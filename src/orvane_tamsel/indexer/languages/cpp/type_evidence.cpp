// What a C++ file's declarations say of types: of locals, parameters, members and function
// results, constructions and bases, as expressions the writer resolves across files.

#include <string>

#include "orvane_tamsel/indexer/languages/cpp/rules.h"
#include "orvane_tamsel/indexer/languages/type_steps.h"

namespace orvane_tamsel::indexer::cpp::detail {

namespace {

constexpr std::size_t MAX_CANDIDATES = 6;

TypeExpr step(const TypeExpr& base, std::string_view name, bool call) {
  if (base.empty() || base.size() > MAX_TYPE_EXPR) return {};
  // a step applies to every alternative start
  std::string suffix(1, '/');
  suffix.append(name).append(call ? "()" : "");
  return each_alternative(base, suffix);
}

// "T:a|T:b" as "S:a|S:b": the class called, which the writer takes as built by its constructor.
TypeExpr constructed(TypeExpr t) {
  for (std::size_t at = 0; at < t.size(); at = t.find('|', at) + 1) {
    if (t[at] == 'T') t[at] = 'S';
    if (t.find('|', at) == std::string::npos) break;
  }
  return t;
}

// The element type a standard sequence is written with (`std::vector<TestSuite*>` gives
// `TestSuite*`), or empty.
std::string_view sequence_element(std::string_view written) {
  for (std::string_view seq :
       {"std::vector<", "std::list<", "std::deque<", "std::set<", "std::unordered_set<",
        "std::multiset<", "std::array<", "std::span<", "std::initializer_list<"}) {
    if (!written.starts_with(seq)) continue;
    written.remove_prefix(seq.size());
    int depth = 0;
    std::size_t end = 0;
    for (; end < written.size(); ++end) {
      char c = written[end];
      if (c == '<') ++depth;
      if ((c == '>' && depth-- == 0) || (c == ',' && depth == 0)) break;
    }
    auto element = written.substr(0, end);
    while (!element.empty() && (element.back() == '*' || element.back() == '&' ||
                                element.back() == ' ' || element.back() == '\n'))
      element.remove_suffix(1);
    return element;
  }
  return {};
}

bool is_type_kind(const std::string& kind) {
  return kind == "class" || kind == "struct" || kind == "union" || kind == "enum" || kind == "type";
}

}  // namespace

std::string Rules::lookup_scope() const {
  if (auto fn = current_callable(); fn != 0) return prefix_of(fn);
  std::string scope;
  for (const auto& f : frames_) scope = join(scope, f.scope);
  return scope;
}

TypeExpr Rules::type_expr(std::string_view written, const std::string& scope,
                          std::uint32_t at) const {
  // a sequence of T: its elements are T (`/[]`)
  if (auto element = sequence_element(written); !element.empty()) {
    auto t = type_expr(element, scope, at);
    TypeExpr out;
    for (std::size_t i = 0; i < t.size();) {
      auto bar = std::min(t.find('|', i), t.size());
      out.append(out.empty() ? "" : "|").append(t, i, 2).append("[]").append(t, i + 2, bar - i - 2);
      i = bar + 1;
    }
    return out;
  }
  auto name = class_of_type(written);
  if (name.empty() || name == "auto") return {};
  std::vector<std::string> candidates;
  auto global = written.find("::") == 0 || written.find(" ::") != std::string_view::npos;
  if (global) {
    candidates.push_back(name);
  } else {
    candidates = outwards(scope, name);
    for (auto& b : brought_in(split_qualified(name), at)) {
      if (std::find(candidates.begin(), candidates.end(), b) == candidates.end())
        candidates.push_back(std::move(b));
    }
  }
  for (const auto& c : candidates) {
    auto d = defined_.find(c);
    if (d != defined_.end() && is_type_kind(out_.symbols[d->second].kind)) return "T:" + c;
  }
  if (candidates.size() > MAX_CANDIDATES) return {};
  TypeExpr out;
  for (const auto& c : candidates) out += (out.empty() ? "T:" : "|T:") + c;
  return out;
}

TypeExpr Rules::expr_type(TSNode e, std::size_t fn, int depth) const {
  if (ts_node_is_null(e) || depth > MAX_TYPE_DEPTH) return {};
  const auto& caller = out_.symbols[fn];
  bool in_method = fn != 0 && (caller.kind == "method" || caller.kind == "constructor");
  if (is(e, "parenthesized_expression")) return expr_type(ts_node_named_child(e, 0), fn, depth + 1);
  if (is(e, "pointer_expression"))  // `*p`, `&x`: the same class
    return expr_type(ts_node_child_by_field_name(e, "argument", 8), fn, depth + 1);
  if (is(e, "this")) return in_method ? "T:" + prefix_of(fn) : TypeExpr{};
  if (is(e, "identifier") || is(e, "field_identifier")) {
    std::string name(text(e));
    if (auto l = typed_.find(fn); l != typed_.end()) {
      if (auto t = l->second.find(name); t != l->second.end()) return t->second;
    }
    // a member of the method's class, declared where the class is
    return in_method ? "T:" + prefix_of(fn) + "/" + name : TypeExpr{};
  }
  if (is(e, "subscript_expression"))  // an element of a sequence
    return step(expr_type(ts_node_child_by_field_name(e, "argument", 8), fn, depth + 1), "[]",
                false);
  if (is(e, "field_expression")) {
    return step(expr_type(ts_node_child_by_field_name(e, "argument", 8), fn, depth + 1),
                field_text(e, "field"), false);
  }
  auto at = ts_node_start_byte(e);
  const auto& scope = fn != 0 ? prefix_of(fn) : std::string();
  if (is(e, "new_expression")) return constructed(type_expr(field_text(e, "type"), scope, at));
  if (!is(e, "call_expression")) return {};
  TSNode callee = ts_node_child_by_field_name(e, "function", 8);
  if (is(callee, "field_expression")) {
    return step(expr_type(ts_node_child_by_field_name(callee, "argument", 8), fn, depth + 1),
                field_text(callee, "field"), true);
  }
  if (auto w = text(callee);
      w.starts_with("std::make_unique<") || w.starts_with("std::make_shared<")) {
    // `std::make_unique<T>(...)` parses as a qualified name around the template
    auto open = w.find('<'), close = w.rfind('>');
    if (close == std::string_view::npos || close <= open + 1) return {};
    return constructed(type_expr(w.substr(open + 1, close - open - 1), scope, at));
  }
  if (is(callee, "template_function")) {
    auto name = field_text(callee, "name");
    if (name == "std::make_unique" || name == "std::make_shared") {
      TSNode args = ts_node_child_by_field_name(callee, "arguments", 9);
      if (ts_node_named_child_count(args) == 0) return {};
      return constructed(type_expr(text(ts_node_named_child(args, 0)), scope, at));
    }
    callee = ts_node_child_by_field_name(callee, "name", 4);
  }
  if (!is(callee, "identifier") && !is(callee, "qualified_identifier")) return {};
  // a function called: what it gives; a class called by name: built by its constructor
  auto written = text(callee);
  if (auto l = typed_.find(fn); l != typed_.end() && l->second.count(std::string(written)) != 0)
    return {};
  auto parts = split_qualified(written);
  if (parts.empty() || parts.front() == "std") return {};
  auto name = dotted(parts);
  std::vector<std::string> candidates{name};
  if (!written.starts_with("::")) {
    candidates = outwards(scope, name);
    for (auto& b : brought_in(parts, at)) {
      if (std::find(candidates.begin(), candidates.end(), b) == candidates.end())
        candidates.push_back(std::move(b));
    }
  }
  for (const auto& c : candidates) {
    if (defined_.count(c) != 0) return "S:" + c;
  }
  if (candidates.size() > MAX_CANDIDATES) return {};
  TypeExpr out;
  for (const auto& c : candidates) out += (out.empty() ? "S:" : "|S:") + c;
  return out;
}

std::string Rules::macro_argument_names(TSNode call, TSNode callee, std::size_t fn) const {
  TSNode args = ts_node_child_by_field_name(call, "arguments", 9);
  if (!is(callee, "identifier") || ts_node_is_null(args)) return {};
  auto name = text(callee);
  if (!std::any_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }) ||
      std::any_of(name.begin(), name.end(), [](char c) { return c >= 'a' && c <= 'z'; }))
    return {};
  auto typed = typed_.find(fn);
  std::string out;
  bool any = false;
  for (std::uint32_t i = 0; i < ts_node_named_child_count(args); ++i) {
    TSNode a = ts_node_named_child(args, i);
    if (i > 0) out.push_back('\n');
    if (is(a, "identifier")) {
      std::string written(text(a));
      out += written;
      if (typed != typed_.end()) {
        if (auto t = typed->second.find(written); t != typed->second.end() && !t->second.empty())
          out.append("\t").append(t->second);
      }
      any = true;
    } else if (is(a, "call_expression") &&
               is(ts_node_child_by_field_name(a, "function", 8), "identifier")) {
      // `F(_, _)`, which a body pasting it into `gmock_##F` calls with those two
      out.append(text(ts_node_child_by_field_name(a, "function", 8)))
          .append("(")
          .append(std::to_string(argument_count(a)))
          .append(")");
      any = true;
    }
  }
  return any ? out : std::string();
}

// A local declared twice with two types (variables of one name in two blocks) is unknown.
// `T** p` and `T a[3]` hold T values (`p[0]->m()`); `T* p` is taken as T itself (`p->m()`).
void Rules::declare(std::size_t fn, TSNode d, const TypeExpr& type) {
  int pointers = 0, arrays = 0;
  for (TSNode n = d; !ts_node_is_null(n) && !is(n, "identifier");
       n = ts_node_child_by_field_name(n, "declarator", 10)) {
    pointers += is(n, "pointer_declarator") ? 1 : 0;
    arrays += is(n, "array_declarator") ? 1 : 0;
  }
  d = local_name(d, false);
  if (ts_node_is_null(d)) return;
  std::string levels;
  for (int i = std::max(pointers - 1, 0) + arrays; i > 0; --i) levels += "[]";
  TypeExpr held;
  for (std::size_t i = 0; i < type.size();) {
    auto bar = std::min(type.find('|', i), type.size());
    auto alt = std::string_view(type).substr(i, bar - i);
    if (!held.empty()) held.push_back('|');
    if (alt.starts_with("T:"))
      held.append("T:").append(levels).append(alt.substr(2));
    else
      held.append(alt);
    i = bar + 1;
  }
  auto [it, fresh] = typed_[fn].try_emplace(std::string(text(d)), held);
  if (!fresh && it->second != type) it->second.clear();
}

// What an argument naming the variable shows of its kind (ParsedCall::argument_kinds): an array
// (`int a[3]`, `const T (&a)[N]`), or an object of a class template or the standard library
// (`std::vector<int> v`, `const std::string& s`), which an array or pointer parameter does not
// take; a name declared twice with two kinds shows none.
void Rules::note_value_kind(std::size_t fn, TSNode d, TSNode type) {
  bool array = false, pointer = false;
  // `vector<int> v(n);` and `vector<int> v(std::begin(a), ...)`, which the grammar may read as
  // a prototype taking a `std::begin`: in a block, a variable constructed
  if (is(d, "function_declarator") && frame_of_type("compound_statement") != NONE)
    d = ts_node_child_by_field_name(d, "declarator", 10);
  for (TSNode n = d; !ts_node_is_null(n) && !is(n, "identifier");) {
    array = array || is(n, "array_declarator");
    pointer = pointer || is(n, "pointer_declarator") || is(n, "function_declarator");
    TSNode next = ts_node_child_by_field_name(n, "declarator", 10);
    if (ts_node_is_null(next) && ts_node_named_child_count(n) > 0 &&
        (is(n, "reference_declarator") || is(n, "parenthesized_declarator")))
      next = ts_node_named_child(n, ts_node_named_child_count(n) - 1);
    n = next;
  }
  TSNode name = declared_name(d, false);
  if (ts_node_is_null(name)) return;
  char kind = '?';
  if (array) {
    kind = 'a';
  } else if (!pointer && (is(type, "template_type") || (is(type, "qualified_identifier") &&
                                                        (text(type).starts_with("std::") ||
                                                         text(type).starts_with("::std::"))))) {
    kind = 'c';
  }
  auto [it, fresh] = value_kinds_[fn].try_emplace(std::string(text(name)), kind);
  if (!fresh && it->second != kind) it->second = '?';
}

void Rules::record_types(TSNode node) {
  if (is(node, "function_declarator")) {  // a function's or method's result
    TSNode host = function_host();
    auto sym = NONE;
    for (std::size_t i = frames_.size(); i-- > 0 && sym == NONE;) {
      if (ts_node_eq(frames_[i].node, host)) sym = frames_[i].symbol;
    }
    if (sym == NONE || out_.symbols[sym].is_test) return;
    if (is(host, "template_declaration"))
      host = ts_node_named_child(host, ts_node_named_child_count(host) - 1);
    auto type = field_text(host, "type");
    if (!type.empty())
      out_.symbols[sym].type_of = type_expr(type, lookup_scope(), ts_node_start_byte(node));
    return;
  }
  // `typedef TestSuite TestCase;` and `using TestCase = TestSuite;`: TestCase's members are
  // TestSuite's, found as on a base
  bool alias = (is(node, "type_definition") || is(node, "alias_declaration")) && !frames_.empty() &&
               frames_.back().symbol != NONE && out_.symbols[frames_.back().symbol].kind == "type";
  if (alias) {
    TSNode type = ts_node_child_by_field_name(node, "type", 4);
    if (is(type, "type_descriptor")) type = ts_node_child_by_field_name(type, "type", 4);
    if (!names_class(type)) return;
    auto t = type_expr(text(type), lookup_scope(), ts_node_start_byte(node));
    for (std::size_t at = 0; !t.empty() && at < t.size();) {
      auto bar = std::min(t.find('|', at), t.size());
      out_.symbols[frames_.back().symbol].bases.push_back(t.substr(at + 2, bar - at - 2));
      at = bar + 1;
    }
    return;
  }
  if (is(node, "base_class_clause")) {  // every candidate: those the index lacks are skipped
    auto sym = frames_.size() >= 2 ? frames_[frames_.size() - 2].symbol : NONE;
    if (sym == NONE) return;
    auto scope = lookup_scope();
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode base = ts_node_named_child(node, i);
      if (is(base, "access_specifier")) continue;
      auto t = type_expr(text(base), scope, ts_node_start_byte(base));
      for (std::size_t at = 0; !t.empty() && at < t.size();) {
        auto bar = std::min(t.find('|', at), t.size());
        out_.symbols[sym].bases.push_back(t.substr(at + 2, bar - at - 2));
        at = bar + 1;
      }
    }
    return;
  }
  if (is(node, "for_range_loop")) {  // `for (auto* x : xs)`: x is an element of xs
    auto fn = current_callable();
    if (fn == 0) return;
    auto written = field_text(node, "type");
    auto t = written == "auto"
                 ? step(expr_type(ts_node_child_by_field_name(node, "right", 5), fn), "[]", false)
                 : type_expr(written, lookup_scope(), ts_node_start_byte(node));
    declare(fn, ts_node_child_by_field_name(node, "declarator", 10), t);
    return;
  }
  bool field = is(node, "field_declaration");
  if (!field && !is(node, "declaration") && !is(node, "parameter_declaration") &&
      !is(node, "optional_parameter_declaration"))
    return;
  auto written = field_text(node, "type");
  auto at = ts_node_start_byte(node);
  auto declared = type_expr(written, lookup_scope(), at);
  for (std::uint32_t i = 0; i < ts_node_child_count(node); ++i) {
    const char* name = ts_node_field_name_for_child(node, i);
    if (name == nullptr || std::string_view(name) != "declarator") continue;
    TSNode d = ts_node_child(node, i);
    auto t = declared;
    if (is(d, "init_declarator") && written == "auto")  // `auto x = make();`
      t = expr_type(ts_node_child_by_field_name(d, "value", 5), current_callable());
    if (t.size() > MAX_TYPE_EXPR) t.clear();
    if (!field) {
      if (auto fn = current_callable(); fn != 0) {
        declare(fn, d, t);
        note_value_kind(fn, d, ts_node_child_by_field_name(node, "type", 4));
      }
      continue;
    }
    auto body = frame_of_type("field_declaration_list");
    if (body == NONE || body == 0 || frames_[body - 1].symbol == NONE || t.empty()) continue;
    while (!ts_node_is_null(d) && !is(d, "field_identifier")) {
      if (is(d, "function_declarator")) break;
      TSNode next = ts_node_child_by_field_name(d, "declarator", 10);
      if (ts_node_is_null(next) && ts_node_named_child_count(d) > 0)
        next = ts_node_named_child(d, ts_node_named_child_count(d) - 1);
      d = next;
    }
    if (is(d, "field_identifier"))
      out_.symbols[frames_[body - 1].symbol].fields.emplace_back(std::string(text(d)), t);
  }
}

}  // namespace orvane_tamsel::indexer::cpp::detail
