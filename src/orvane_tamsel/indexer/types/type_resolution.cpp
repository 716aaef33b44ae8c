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
// (`github.com.x.pkg` admits `pkg`), as call_scopes does; a scope ":a:b.py" admits the file a/b.py.
bool admits(const std::string& scope, const TypeSymbol& s) {
  const auto& module = s.module;
  if (scope.starts_with(':')) {
    if (scope.size() - 1 != s.path.size()) return false;
    for (std::size_t i = 1; i < scope.size(); ++i) {
      if (scope[i] != (s.path[i - 1] == '/' ? ':' : s.path[i - 1])) return false;
    }
    return true;
  }
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

// The next "+" that joins alternatives (a start follows it), not one of a name (`operator+`).
std::size_t next_plus(std::string_view text, std::size_t from) {
  for (auto at = text.find('+', from); at != std::string_view::npos; at = text.find('+', at + 1)) {
    if (at + 2 < text.size() && text[at + 2] == ':' &&
        (text[at + 1] == 'S' || text[at + 1] == 'T' || text[at + 1] == 'B')) {
      return at;
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::optional<ParsedTypeExpr> parse_type_expr(std::string_view text) {
  if (text.size() < 3 || text[1] != ':' || (text[0] != 'S' && text[0] != 'T' && text[0] != 'B')) {
    return std::nullopt;
  }
  ParsedTypeExpr out;
  out.symbol = text[0] == 'S';
  out.above = text[0] == 'B';
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
  if (auto hash = out.fqn.find('#'); out.symbol && hash != std::string::npos) {
    out.result = out.fqn.substr(hash);
    out.fqn.resize(hash);
  }
  if (out.fqn.empty()) return std::nullopt;
  if (slash == std::string_view::npos) return out;
  if (out.above) return std::nullopt;  // the bases take no steps
  for (auto& step : split(text.substr(slash + 1), '/')) {
    std::string result;
    if (auto hash = step.find('#'); hash != std::string::npos) {
      result = step.substr(hash);
      step.resize(hash);
      if (!step.ends_with("()")) return std::nullopt;  // only a call has results
    }
    bool call = step.ends_with("()");
    if (call) step.resize(step.size() - 2);
    if (step.empty()) return std::nullopt;
    out.steps.push_back({std::move(step), call, std::move(result)});
  }
  return out;
}

std::vector<const TypeSymbol*> TypeResolver::find(const std::string& fqn,
                                                  const std::vector<std::string>& scopes) {
  ++work_;
  consulted_.insert(fqn);
  std::vector<const TypeSymbol*> out;
  for (const auto& s : facts_.lookup(fqn)) {
    bool in_scope = scopes.empty();
    for (const auto& k : scopes) in_scope = in_scope || admits(k, s);
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

std::vector<const TypeSymbol*> TypeResolver::find_start(std::string& fqn,
                                                        const std::vector<std::string>& scopes) {
  auto found = find(fqn, scopes);
  if (!found.empty() || !scopes.empty()) return found;
  auto alias = facts_.reexported(fqn);
  if (alias.empty()) return found;
  fqn = std::move(alias);
  return find(fqn, scopes);
}

std::optional<TypeResolver::Type> TypeResolver::evaluate(const TypeExpr& text, int depth,
                                                         std::string* evidence) {
  if (depth > MAX_DEPTH || work_ > MAX_WORK) return std::nullopt;
  if (next_plus(text, 0) != std::string::npos) return common_base(text, depth);
  // Values that may each be the one (a function's returns): the value is one of those known.
  std::vector<Type> known;
  std::string first_evidence;
  for (std::size_t at = 0; at < text.size();) {
    auto amp = std::min(text.find('&', at), text.size());
    std::string part_evidence;
    auto t = alternatives(std::string_view(text).substr(at, amp - at), depth, &part_evidence);
    if (t && t->wide) return t;  // passed over, it would leave the others to be picked
    if (t) {
      if (known.empty()) first_evidence = std::move(part_evidence);
      known.push_back(std::move(*t));
    }
    at = amp + 1;
  }
  if (known.empty()) return std::nullopt;
  if (evidence) *evidence = std::move(first_evidence);
  return one_of(known);
}

TypeResolver::Type TypeResolver::one_of(const std::vector<Type>& types) {
  std::vector<Type> flat;
  for (const auto& t : types) {
    if (t.wide) return t;
    for (const auto& m : t.members.empty() ? std::vector<Type>{t} : t.members) {
      if (std::find(flat.begin(), flat.end(), m) == flat.end()) flat.push_back(m);
    }
  }
  if (flat.size() == 1) return flat.front();
  Type out;
  if (flat.size() > MAX_UNION) {
    out.wide = true;
  } else {
    std::sort(flat.begin(), flat.end());
    out.members = std::move(flat);
  }
  return out;
}

std::optional<TypeResolver::Type> TypeResolver::alternatives(std::string_view text, int depth,
                                                             std::string* evidence) {
  // Alternatives, nearest first: the first whose start names a symbol counts.
  for (std::size_t at = 0; at < text.size();) {
    auto bar = std::min(text.find('|', at), text.size());
    auto expr = parse_type_expr(text.substr(at, bar - at));
    if (!expr) return std::nullopt;
    auto candidates = find_start(expr->fqn, expr->scope_modules);
    // A class's own name inside it (`UnitTest*` in `UnitTest::GetInstance()`) is tried as a
    // nested one first, which names the constructor: no type, so the next alternative counts.
    bool constructors =
        !expr->symbol && std::all_of(candidates.begin(), candidates.end(),
                                     [](const TypeSymbol* c) { return c->kind == "constructor"; });
    if (!candidates.empty() && !constructors) return evaluate(*expr, candidates, depth, evidence);
    at = bar + 1;
  }
  return std::nullopt;
}

std::optional<TypeResolver::Type> TypeResolver::evaluate(
    const ParsedTypeExpr& expr, const std::vector<const TypeSymbol*>& candidates, int depth,
    std::string* evidence) {
  // Several symbols of one fqn (a function per build variant) must agree.
  std::optional<Type> type;
  for (const auto* c : candidates) {
    std::optional<Type> t;
    if (!expr.symbol) {
      if (is_type_kind(c->kind)) t = Type{expr.fqn, c->module, expr.elements, expr.above};
    } else if (expr.result.empty()) {
      t = type_of_symbol(*c, expr.fqn, depth);
    } else if (is_callable_kind(c->kind)) {
      for (const auto& [name, field_type] : c->fields)
        if (name == expr.result) t = evaluate(field_type, depth + 1, nullptr);
    }
    if (!t || (type && !(*type == *t))) return std::nullopt;
    type = t;
    if (evidence) {
      *evidence = !expr.symbol                ? "declared-type"
                  : is_type_kind(c->kind)     ? "constructor"
                  : is_callable_kind(c->kind) ? "result-type"
                                              : "declared-type";
    }
  }
  for (const auto& s : expr.steps) {
    if (!type) break;
    type = step(*type, s, depth);
  }
  // An element taken ("/[]") keeps the evidence of what held it.
  for (const auto& s : expr.steps) {
    if (evidence && type && s.name != "[]") *evidence = s.call ? "result-type" : "attribute";
  }
  return type;
}

std::optional<TypeResolver::Type> TypeResolver::common_base(std::string_view text, int depth) {
  std::vector<Type> types;
  for (std::size_t at = 0; at <= text.size();) {
    auto plus = std::min(next_plus(text, at), text.size());
    auto t = evaluate(std::string(text.substr(at, plus - at)), depth + 1, nullptr);
    // Each must be known, and be one type.
    if (!t || t->elements > 0 || t->above || t->wide || !t->members.empty()) return std::nullopt;
    if (std::find(types.begin(), types.end(), *t) == types.end()) types.push_back(*t);
    at = plus + 1;
  }
  if (types.size() == 1) return types.front();
  std::vector<std::vector<Type>> lines;
  for (const auto& t : types) lines.push_back(lineage(t));
  for (const auto& candidate : lines.front()) {
    bool shared = std::all_of(lines.begin() + 1, lines.end(), [&](const auto& line) {
      return std::find(line.begin(), line.end(), candidate) != line.end();
    });
    if (!shared) continue;
    Type out = candidate;
    out.common = true;
    return out;
  }
  return std::nullopt;
}

std::vector<TypeResolver::Type> TypeResolver::lineage(const Type& t) {
  std::vector<Type> out{t};
  std::set<Type> seen{t};
  std::vector<int> depth{0};
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (depth[i] >= MAX_BASE_DEPTH) continue;
    for (const auto* c : find(out[i].fqn, {})) {
      if (c->module != out[i].module || !is_type_kind(c->kind)) continue;
      for (const auto& b : c->bases) {
        auto bt = as_type(b, out[i].module);
        if (!bt || !seen.insert(*bt).second) continue;
        out.push_back(*bt);
        depth.push_back(depth[i] + 1);
      }
    }
  }
  return out;
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
  if (!modules.empty()) return std::nullopt;
  // A base named through a module that re-exports it (`class App(pkg.Base)`).
  auto alias = facts_.reexported(fqn);
  if (alias.empty() || alias == fqn) return std::nullopt;
  for (const auto* c : find(alias, {})) {
    if (is_type_kind(c->kind)) ++modules[c->module];
  }
  if (modules.size() == 1) return Type{alias, modules.begin()->first};
  return std::nullopt;
}

std::optional<TypeResolver::Found> TypeResolver::member_of(const Type& t, const std::string& name) {
  // A container has no members to look up; those of a union are each member's.
  if (t.elements > 0 || t.wide || !t.members.empty()) return std::nullopt;
  std::vector<Type> level{t};
  std::set<Type> seen{t};
  int depth = 0;
  if (t.above) {  // start at the bases, in their order
    level.clear();
    for (const auto* c : find(t.fqn, {})) {
      if (c->module != t.module || !is_type_kind(c->kind)) continue;
      for (const auto& b : c->bases) {
        if (auto bt = as_type(b, t.module); bt && seen.insert(*bt).second) level.push_back(*bt);
      }
    }
    depth = 1;
  }
  for (; depth <= MAX_BASE_DEPTH && !level.empty(); ++depth) {
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
  if (t.wide) return t;
  if (!t.members.empty()) {  // each type takes the step: all must, or the value is unknown
    std::vector<Type> next;
    for (const auto& m : t.members) {
      auto u = step(m, s, depth);
      if (!u) return std::nullopt;
      next.push_back(std::move(*u));
    }
    return one_of(next);
  }
  if (s.name == "[]") {
    if (s.call || t.elements == 0) return std::nullopt;
    return Type{t.fqn, t.module, t.elements - 1};
  }
  auto found = member_of(t, s.name);
  // A context manager whose `__enter__` the index does not hold enters as itself, as most do.
  if (!found && s.call && s.name == "__enter__" && s.result.empty()) return t;
  if (!found) return std::nullopt;
  if (!found->symbol) {
    if (!s.result.empty()) return std::nullopt;
    if (s.call) return called_field(*found->field_type, depth);
    return evaluate(*found->field_type, depth + 1, nullptr);
  }
  const auto& m = *found->symbol;
  if (s.call != is_callable_kind(m.kind)) {
    // `/Inner` naming a nested type is that type; a method read without a call is no value,
    // unless its type also lists it as a field (a Python property: the field is its result).
    if (!s.call && is_type_kind(m.kind)) return Type{found->fqn, m.module};
    if (!s.call) {
      auto owner = found->fqn.substr(0, found->fqn.size() - s.name.size() - 1);
      for (const auto* c : find(owner, {})) {
        if (c->module != m.module || !is_type_kind(c->kind)) continue;
        for (const auto& [field, type] : c->fields) {
          if (field == s.name) return evaluate(type, depth + 1, nullptr);
        }
      }
    }
    return std::nullopt;
  }
  // A method returning its receiver (`return self`) gives the receiver's own type, which may
  // be a subclass of the method's.
  for (const auto& f : m.fields) {
    if (f.first == "#self" && s.result.empty()) return Type{t.fqn, t.module, 0, false, t.common};
  }
  if (!s.result.empty()) {  // one of several results, kept among the method's fields
    for (const auto& [name, type] : m.fields) {
      if (name == s.result) return evaluate(type, depth + 1, nullptr);
    }
    return std::nullopt;
  }
  if (m.type_of.empty()) return std::nullopt;
  return evaluate(m.type_of, depth + 1, nullptr);
}

// A field called: one holding a class (`self.factory = Thing`, then `self.factory()`) gives an
// instance of it; one holding a function or method (`opener = Archive.open`), its result.
std::optional<TypeResolver::Type> TypeResolver::called_field(const TypeExpr& field, int depth) {
  if (field.find_first_of("|&") != std::string::npos) return std::nullopt;
  auto expr = parse_type_expr(field);
  if (!expr || !expr->symbol || !expr->steps.empty()) return std::nullopt;
  auto candidates = find_start(expr->fqn, expr->scope_modules);
  if (candidates.empty()) return std::nullopt;
  for (const auto* c : candidates) {
    if (!is_type_kind(c->kind) && !is_callable_kind(c->kind)) return std::nullopt;
  }
  return evaluate(*expr, candidates, depth + 1, nullptr);
}

// A field holding a method read off another value (`self.read = self._file.read`): calling the
// field calls that method. A property (listed as a field of its class too) is a value, not one.
std::optional<TypeResolver::Found> TypeResolver::bound_method(const TypeExpr& field) {
  auto slash = field.rfind('/');
  if (slash == std::string::npos || field.find_first_of("|&+") != std::string::npos) {
    return std::nullopt;
  }
  auto name = field.substr(slash + 1);
  if (name.find_first_of("()#[") != std::string::npos) return std::nullopt;
  auto owner = evaluate(field.substr(0, slash), 1, nullptr);
  if (!owner) return std::nullopt;
  auto found = member_of(*owner, name);
  if (!found || !found->symbol || !is_callable_kind(found->symbol->kind)) return std::nullopt;
  auto cls = found->fqn.substr(0, found->fqn.size() - name.size() - 1);
  for (const auto* c : find(cls, {})) {
    for (const auto& f : c->fields) {
      if (c->module == found->symbol->module && f.first == name) return std::nullopt;
    }
  }
  return found;
}

// A value that may be one of many classes of one family (a factory's products, such as the
// patterns a compiler builds) is of one class only at run time, chosen by data the index cannot
// read: linking each class's override would list mostly false callers. The call names the
// family's own method, as a declared base type would.
std::optional<Resolution> TypeResolver::family_member(const Type& t, const std::string& name) {
  if (t.members.size() < MIN_FAMILY) return std::nullopt;
  std::vector<std::vector<Type>> lines;
  for (const auto& m : t.members) lines.push_back(lineage(m));
  for (const auto& candidate : lines.front()) {
    bool shared = std::all_of(lines.begin() + 1, lines.end(), [&](const auto& line) {
      return std::find(line.begin(), line.end(), candidate) != line.end();
    });
    if (!shared) continue;
    auto found = member_of(candidate, name);
    if (!found || !found->symbol) return std::nullopt;
    return Resolution{found->fqn, found->symbol->module, "common-base"};
  }
  return std::nullopt;
}

std::vector<TypeResolver::Type> TypeResolver::own_classes(const TypeExpr& value) {
  std::vector<Type> out;
  for (std::size_t at = 0; at < value.size();) {
    auto amp = std::min(value.find('&', at), value.size());
    auto t = evaluate(value.substr(at, amp - at), 0, nullptr);
    if (t && !t->wide && t->members.empty() && std::find(out.begin(), out.end(), *t) == out.end()) {
      out.push_back(std::move(*t));
    }
    at = amp + 1;
  }
  return out;
}

std::vector<Resolution> TypeResolver::resolve(const TypeExpr& receiver, const std::string& member,
                                              const std::string& evidence) {
  consulted_.clear();
  too_wide_ = false;
  work_ = 0;
  std::vector<Resolution> out;
  // No member: a name bound to methods read off values, "&" between the branches' methods.
  std::vector<std::pair<std::string, std::string>> reads;  // (value, method)
  if (!member.empty()) {
    reads.emplace_back(receiver, member);
  } else {
    for (std::size_t at = 0; at < receiver.size();) {
      auto amp = std::min(receiver.find('&', at), receiver.size());
      auto part = receiver.substr(at, amp - at);
      auto slash = part.rfind('/');
      if (slash == std::string::npos || part.find('|') != std::string::npos) return {};
      reads.emplace_back(part.substr(0, slash), part.substr(slash + 1));
      at = amp + 1;
    }
  }
  for (const auto& [value, name] : reads) {
    std::string derived;
    auto type = evaluate(value, 0, &derived);
    if (type && type->wide) too_wide_ = true;
    if (!type || type->wide) continue;
    if (auto base = family_member(*type, name)) {
      // Only a factory's products are the family's: a value the code binds to one class itself
      // (`p = Wildcard(...)` beside `p = compile(...)`) is that class, and calls its override.
      auto own = own_classes(value);
      if (own.size() < type->members.size()) {
        for (const auto& t : own) {
          auto found = member_of(t, name);
          if (found && found->symbol && found->fqn != base->target) {
            out.push_back({found->fqn, found->symbol->module, UNION_EVIDENCE});
          }
        }
        out.push_back(std::move(*base));
        continue;
      }
    }
    for (const auto& t : type->members.empty() ? std::vector<Type>{*type} : type->members) {
      auto found = member_of(t, name);
      if (found && !found->symbol) found = bound_method(*found->field_type);
      // A type of the union without the member is one the code rules out (`isinstance`).
      if (!found || !found->symbol) continue;
      Resolution r{found->fqn, found->symbol->module,
                   t.common            ? "common-base"
                   : found->inherited  ? "inherited"
                   : !evidence.empty() ? evidence
                                       : derived};
      bool seen = std::any_of(out.begin(), out.end(), [&](const Resolution& o) {
        return o.target == r.target && o.module == r.module;
      });
      if (!seen) out.push_back(std::move(r));
    }
  }
  if (too_wide_) return {};  // linking the others would pick among the types arbitrarily
  if (out.size() > 1) {
    for (auto& r : out) r.evidence = UNION_EVIDENCE;
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::types
