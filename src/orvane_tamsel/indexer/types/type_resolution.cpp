#include "orvane_tamsel/indexer/types/type_resolution.h"

#include <algorithm>
#include <array>
#include <map>

namespace orvane_tamsel::indexer::types {

namespace {

// Kinds that are types: a symbol of one, called, constructs it; named as a type, it is one.
bool is_type_kind(std::string_view kind) {
  static constexpr std::array<std::string_view, 10> KINDS = {
      "class", "struct", "interface", "type",     "enum",
      "union", "trait",  "record",    "protocol", "type_alias"};
  return std::find(KINDS.begin(), KINDS.end(), kind) != KINDS.end();
}

bool is_callable_kind(std::string_view kind) {
  return kind == "function" || kind == "method" || kind == "constructor";
}

// A scope module admits a file's module when equal to it or when the module is its dotted tail
// (`github.com.x.pkg` admits `pkg`), as call_scopes does.
bool admits(const std::string& scope, const std::string& module) {
  if (scope == module) return true;
  return !module.empty() && scope.size() > module.size() && scope.ends_with(module) &&
         scope[scope.size() - module.size() - 1] == '.';
}

std::vector<std::string> split(std::string_view text, char sep) {
  std::vector<std::string> out;
  for (std::size_t at = 0; at <= text.size();) {
    auto end = std::min(text.find(sep, at), text.size());
    if (end > at) out.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return out;
}

}  // namespace

std::optional<ParsedTypeExpr> parse_type_expr(std::string_view text) {
  if (text.size() < 3 || text[1] != ':' || (text[0] != 'S' && text[0] != 'T')) return std::nullopt;
  ParsedTypeExpr out;
  out.symbol = text[0] == 'S';
  text.remove_prefix(2);
  auto slash = text.find('/');
  auto start = text.substr(0, slash);
  auto at = start.find('@');
  out.fqn = std::string(start.substr(0, at));
  while (!out.symbol && out.fqn.starts_with("[]")) {
    out.fqn.erase(0, 2);
    ++out.elements;
  }
  if (at != std::string_view::npos) out.scope_modules = split(start.substr(at + 1), ',');
  if (out.fqn.empty()) return std::nullopt;
  if (slash == std::string_view::npos) return out;
  for (auto& step : split(text.substr(slash + 1), '/')) {
    bool call = step.ends_with("()");
    if (call) step.resize(step.size() - 2);
    if (step.empty()) return std::nullopt;
    out.steps.push_back({std::move(step), call});
  }
  return out;
}

std::vector<const TypeSymbol*> TypeResolver::find(const std::string& fqn,
                                                  const std::vector<std::string>& scopes) {
  consulted_.insert(fqn);
  std::vector<const TypeSymbol*> out;
  for (const auto& s : facts_.lookup(fqn)) {
    bool in_scope = scopes.empty();
    for (const auto& k : scopes) in_scope = in_scope || admits(k, s.module);
    if (in_scope) out.push_back(&s);
  }
  return out;
}

std::optional<TypeResolver::Type> TypeResolver::type_of_symbol(const TypeSymbol& s,
                                                               const std::string& fqn, int depth) {
  if (is_type_kind(s.kind)) return Type{fqn, s.module};
  if (s.type_of.empty()) return std::nullopt;
  return evaluate(s.type_of, depth + 1, nullptr);
}

std::optional<TypeResolver::Type> TypeResolver::evaluate(const TypeExpr& text, int depth,
                                                         std::string* evidence) {
  if (depth > MAX_DEPTH) return std::nullopt;
  if (auto bar = text.find('|'); bar != std::string::npos) {
    // Alternatives, nearest first: the first whose start names a symbol counts.
    for (std::size_t at = 0; at < text.size();) {
      bar = std::min(text.find('|', at), text.size());
      auto alternative = text.substr(at, bar - at);
      auto expr = parse_type_expr(alternative);
      if (expr && !find(expr->fqn, expr->scope_modules).empty())
        return evaluate(alternative, depth, evidence);
      at = bar + 1;
    }
    return std::nullopt;
  }
  auto expr = parse_type_expr(text);
  if (!expr) return std::nullopt;
  std::string result;  // "S:f#2": the second result of f, kept among its fields as "#2"
  if (auto hash = expr->fqn.find('#'); expr->symbol && hash != std::string::npos) {
    result = expr->fqn.substr(hash);
    expr->fqn.resize(hash);
  }
  auto candidates = find(expr->fqn, expr->scope_modules);
  // Several symbols of one fqn (a function per build variant) must agree.
  std::optional<Type> type;
  for (const auto* c : candidates) {
    std::optional<Type> t;
    if (!expr->symbol) {
      if (is_type_kind(c->kind)) t = Type{expr->fqn, c->module, expr->elements};
    } else {
      if (result.empty()) t = type_of_symbol(*c, expr->fqn, depth);
      for (const auto& [name, type] : c->fields) {
        if (!result.empty() && name == result && is_callable_kind(c->kind))
          t = evaluate(type, depth + 1, nullptr);
      }
    }
    if (!t || (type && !(*type == *t))) return std::nullopt;
    type = t;
    if (evidence) {
      *evidence = !expr->symbol               ? "declared-type"
                  : is_type_kind(c->kind)     ? "constructor"
                  : is_callable_kind(c->kind) ? "result-type"
                                              : "declared-type";
    }
  }
  for (const auto& s : expr->steps) {
    if (!type) break;
    type = step(*type, s, depth);
  }
  // An element taken ("/[]") keeps the evidence of what held it.
  for (const auto& s : expr->steps) {
    if (evidence && type && s.name != "[]") *evidence = s.call ? "result-type" : "attribute";
  }
  return type;
}

std::optional<TypeResolver::Type> TypeResolver::as_type(const std::string& fqn,
                                                        const std::string& module) {
  // A base named by fqn: in the module of what names it first (Go embeds within a package),
  // else wherever one module holds it.
  std::map<std::string, int> modules;
  for (const auto* c : find(fqn, {})) {
    if (is_type_kind(c->kind)) ++modules[c->module];
  }
  if (modules.count(module) != 0) return Type{fqn, module};
  if (modules.size() == 1) return Type{fqn, modules.begin()->first};
  return std::nullopt;
}

std::optional<TypeResolver::Found> TypeResolver::member_of(const Type& t, const std::string& name) {
  if (t.elements > 0) return std::nullopt;  // a container has no members to look up
  std::vector<Type> level{t};
  std::set<Type> seen{t};
  for (int depth = 0; depth <= MAX_BASE_DEPTH && !level.empty(); ++depth) {
    std::map<std::pair<std::string, std::string>, Found> hits;  // by (fqn, module)
    std::vector<Type> next;
    for (const auto& u : level) {
      auto fqn = u.fqn + "." + name;
      std::vector<const TypeSymbol*> own, other;
      std::set<std::string> other_modules;
      for (const auto* c : find(fqn, {})) {
        if (c->module == u.module) {
          own.push_back(c);
        } else {
          other.push_back(c);
          other_modules.insert(c->module);
        }
      }
      // A member defined apart from its type (a C++ method out of line) counts when one module
      // holds it.
      if (own.empty() && other_modules.size() == 1) own = other;
      if (!own.empty()) {
        hits.try_emplace({fqn, own.front()->module},
                         Found{own.front(), fqn, nullptr, own.front()->module, depth > 0});
        continue;
      }
      for (const auto* c : find(u.fqn, {})) {
        if (c->module != u.module || !is_type_kind(c->kind)) continue;
        for (const auto& [field, type] : c->fields) {
          if (field == name)
            hits.try_emplace({fqn, u.module}, Found{nullptr, fqn, &type, u.module, depth > 0});
        }
        for (const auto& b : c->bases) {
          if (auto bt = as_type(b, u.module); bt && seen.insert(*bt).second) next.push_back(*bt);
        }
      }
    }
    if (hits.size() == 1) return hits.begin()->second;
    if (hits.size() > 1) return std::nullopt;  // two at one depth: ambiguous
    level = std::move(next);
  }
  return std::nullopt;
}

std::optional<TypeResolver::Type> TypeResolver::step(const Type& t, const ParsedTypeExpr::Step& s,
                                                     int depth) {
  if (s.name == "[]") {
    if (s.call || t.elements == 0) return std::nullopt;
    return Type{t.fqn, t.module, t.elements - 1};
  }
  auto found = member_of(t, s.name);
  if (!found) return std::nullopt;
  if (!found->symbol) {
    if (s.call) return std::nullopt;  // a field holding a function: its type is not kept
    return evaluate(*found->field_type, depth + 1, nullptr);
  }
  const auto& m = *found->symbol;
  if (s.call != is_callable_kind(m.kind)) {
    // `/Inner` naming a nested type is that type; a method read without a call is no value
    if (!s.call && is_type_kind(m.kind)) return Type{found->fqn, m.module};
    return std::nullopt;
  }
  if (m.type_of.empty()) return std::nullopt;
  return evaluate(m.type_of, depth + 1, nullptr);
}

std::optional<Resolution> TypeResolver::resolve(const TypeExpr& receiver, const std::string& member,
                                                const std::string& evidence) {
  consulted_.clear();
  std::string derived;
  auto type = evaluate(receiver, 0, &derived);
  if (!type) return std::nullopt;
  auto found = member_of(*type, member);
  if (!found || !found->symbol) return std::nullopt;
  return Resolution{found->fqn, found->symbol->module,
                    found->inherited    ? "inherited"
                    : !evidence.empty() ? evidence
                                        : derived};
}

}  // namespace orvane_tamsel::indexer::types
