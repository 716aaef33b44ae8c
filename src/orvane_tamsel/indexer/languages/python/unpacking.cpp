// Tuples in Python type evidence: what a function returns as a tuple, and names bound by
// unpacking one (`a, b = f()`).

#include <string>

#include "orvane_tamsel/indexer/languages/python/extraction.h"

namespace orvane_tamsel::indexer::python::detail {

namespace {

constexpr std::uint32_t MAX_ELEMENTS = 8;

bool is_tuple(TSNode n) {
  return std::strcmp(ts_node_type(n), "expression_list") == 0 ||
         std::strcmp(ts_node_type(n), "tuple") == 0;
}

}  // namespace

std::string element_of(std::string_view expr, std::string_view hash) {
  std::string out;
  std::size_t start = 0;
  while (start <= expr.size()) {
    auto bar = std::min(expr.find_first_of("|&+", start), expr.size());
    auto one = expr.substr(start, bar - start);
    if (one.find('/') == std::string_view::npos && one.starts_with("S:")) {
      auto at = std::min(one.find('@'), one.size());
      out.append(one.substr(0, at)).append(hash).append(one.substr(at));
    } else if (one.ends_with("()")) {
      out.append(one).append(hash);
    } else {
      return "";  // a type or an attribute, not a call: no result to take an element of
    }
    if (bar == expr.size()) break;
    out.push_back(expr[bar]);
    start = bar + 1;
  }
  return out;
}

void Extraction::collect_unpacked(TSNode targets, TSNode value) {
  std::uint32_t count = ts_node_named_child_count(targets);
  if (count > MAX_ELEMENTS) return;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!is_type(ts_node_named_child(targets, i), "identifier")) return;  // `a, *rest = ...`
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    TSNode name = ts_node_named_child(targets, i);
    unpacked_[ts_node_start_byte(name)] = {value, i + 1};
    // The name stands for its element: value_type reads it through unpacked_.
    name_facts_.push_back({name, name, false});
  }
}

Typed Extraction::element_type(TSNode value, std::uint32_t index, int depth) const {
  if (is_tuple(value)) {  // `a, b = A(), B()`
    if (index > ts_node_named_child_count(value)) return {};
    return value_type(ts_node_named_child(value, index - 1), depth + 1);
  }
  if (!is_type(value, "call")) return {};
  Typed t = value_type(value, depth + 1);
  if (t.empty()) return {};
  std::string hash("#");
  hash += std::to_string(index);
  auto expr = element_of(t.expr, hash);
  if (expr.empty()) return {};
  return {std::move(expr), "result-type"};
}

std::vector<std::pair<std::string, std::string>> Extraction::tuple_results(TSNode fn) const {
  auto key = ts_node_start_byte(fn);
  std::vector<TSNode> results;
  if (auto y = yields_.find(key); y != yields_.end()) {
    if (!yields_value(fn)) return {};
    for (TSNode n : y->second) {  // `yield a, b`; a bare `yield` or `yield from` says nothing
      if (ts_node_named_child_count(n) != 1 || is_type(ts_node_child(n, 1), "from")) return {};
      results.push_back(ts_node_named_child(n, 0));
    }
  } else if (auto r = returns_.find(key); r != returns_.end()) {
    results = r->second;
  }
  std::uint32_t count = 0;
  for (TSNode n : results) {
    if (is_type(n, "none")) continue;
    if (!is_tuple(n)) return {};
    auto c = ts_node_named_child_count(n);
    if ((count != 0 && c != count) || c < 2 || c > MAX_ELEMENTS) return {};
    count = c;
  }
  if (count == 0) return {};
  std::vector<std::pair<std::string, std::string>> out;
  for (std::uint32_t k = 0; k < count; ++k) {
    std::vector<TSNode> values;
    for (TSNode n : results) {
      if (!is_type(n, "none")) values.push_back(ts_node_named_child(n, k));
    }
    auto t = possible(values, 0);
    std::string name("#");
    name += std::to_string(k + 1);
    if (!t.empty()) out.emplace_back(std::move(name), std::move(t.expr));
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::python::detail
