// Names a Python `for` binds: the type of an element of what it iterates, and what iterating a
// function's result gives ("#[]" among the function's fields, read by the writer).

#include <algorithm>
#include <string>

#include "orvane_tamsel/indexer/languages/python/annotations.h"
#include "orvane_tamsel/indexer/languages/python/extraction.h"

namespace orvane_tamsel::indexer::python::detail {

namespace {

constexpr int MAX_DEPTH = 12;           // as value_type's
constexpr std::size_t MAX_RETURNS = 4;  // as a function's result lists

// Builtins whose elements are their one argument's (unless the module rebinds the name).
bool passes_elements(std::string_view name) {
  return name == "sorted" || name == "reversed" || name == "list" || name == "tuple" ||
         name == "set" || name == "frozenset" || name == "iter";
}

bool is_literal(TSNode n) {
  const char* t = ts_node_type(n);
  return std::strcmp(t, "list") == 0 || std::strcmp(t, "tuple") == 0 ||
         std::strcmp(t, "set") == 0 || std::strcmp(t, "expression_list") == 0;
}

bool is_yield_from(TSNode y) {
  for (std::uint32_t i = 0; i < ts_node_child_count(y); ++i) {
    if (std::strcmp(ts_node_type(ts_node_child(y, i)), "from") == 0) return true;
  }
  return false;
}

}  // namespace

Typed Extraction::iterated_type(TSNode value, int depth) const {
  if (depth > MAX_DEPTH || ts_node_is_null(value)) return {};
  if (is_type(value, "parenthesized_expression")) {
    return ts_node_named_child_count(value) == 1
               ? iterated_type(ts_node_named_child(value, 0), depth + 1)
               : Typed{};
  }
  if (is_literal(value)) {  // `for x in (A(), B())`: the elements must agree
    std::vector<TSNode> items;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(value); ++i) {
      TSNode item = ts_node_named_child(value, i);
      if (is_type(item, "list_splat") || is_type(item, "comment")) return {};
      items.push_back(item);
    }
    return items.empty() ? Typed{} : agree(items, false, depth);
  }
  if (is_type(value, "identifier")) {
    if (Typed t = annotated_element_of(value, text(value)); !t.empty()) return t;
  }
  if (is_type(value, "call")) {
    TSNode fn = ts_node_child_by_field_name(value, "function", 8);
    TSNode args = ts_node_child_by_field_name(value, "arguments", 9);
    if (is_type(fn, "identifier") && passes_elements(text(fn)) && is_type(args, "argument_list") &&
        ts_node_named_child_count(args) == 1 && !lookup(fn, text(fn))) {
      TSNode arg = ts_node_named_child(args, 0);
      return is_type(arg, "keyword_argument") ? Typed{} : iterated_type(arg, depth + 1);
    }
  }
  Typed t = value_type(value, depth + 1);
  if (t.empty()) return {};
  auto expr = element_of(t.expr, "#[]");
  if (expr.empty()) return {};
  return {std::move(expr), "result-type"};
}

Typed Extraction::annotated_element_of(TSNode at, std::string_view name) const {
  const TypeFacts* facts = nullptr;
  for (TSNode def = enclosing_def(at); !ts_node_is_null(def) && facts == nullptr;
       def = enclosing_def(def)) {
    if (is_class(def)) continue;  // class bodies are not enclosing scopes
    auto s = scopes_.find(scope_key(def));
    if (s == scopes_.end()) continue;
    if (s->second.names.count(name) != 0) return {};  // a definition or an import
    if (s->second.locals.count(name) != 0) facts = &s->second.facts;
  }
  if (facts == nullptr) {
    auto m = scopes_.find(UINT32_MAX);
    if (m == scopes_.end()) return {};
    facts = &m->second.facts;
  }
  auto a = facts->annotations.find(name);
  if (a == facts->annotations.end() || a->second.size() != 1) return {};
  auto cls = named_class(annotated_element(text(a->second.front())), a->second.front());
  if (cls.empty()) return {};
  return {std::move(cls), "declared-type"};
}

std::string Extraction::element_result(TSNode fn) const {
  TSNode annotation = ts_node_child_by_field_name(fn, "return_type", 11);
  if (!ts_node_is_null(annotation)) return named_class(annotated_element(text(annotation)), fn);
  auto key = ts_node_start_byte(fn);
  if (auto y = yields_.find(key); y != yields_.end()) {
    if (yields_value(fn)) return "";  // its callers get what it yields, not an iterator
    Typed found;
    for (TSNode n : y->second) {
      if (ts_node_named_child_count(n) != 1) return "";  // a bare `yield`
      TSNode v = ts_node_named_child(n, 0);
      Typed t = is_yield_from(n) ? iterated_type(v, 1) : value_type(v, 1);
      if (t.empty() || (!found.empty() && t.expr != found.expr)) return "";
      if (found.empty()) found = std::move(t);
    }
    return found.expr;
  }
  auto r = returns_.find(key);
  if (r == returns_.end()) return "";
  // The returns whose elements evidence gives, as possible values ("&", as possible() makes).
  std::vector<std::string> found;
  for (TSNode n : r->second) {
    if (is_type(n, "none")) continue;
    Typed t = iterated_type(n, 1);
    if (t.empty() || std::find(found.begin(), found.end(), t.expr) != found.end()) continue;
    found.push_back(std::move(t.expr));
  }
  if (found.empty() || found.size() > MAX_RETURNS) return "";
  std::string out = found.front();
  for (std::size_t i = 1; i < found.size(); ++i) {
    if (found[i].find('+') != std::string::npos || out.find('+') != std::string::npos) return "";
    out.append("&").append(found[i]);
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::python::detail
