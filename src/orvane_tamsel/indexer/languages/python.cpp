#include "orvane_tamsel/indexer/languages/python.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "orvane_tamsel/indexer/languages/python/extraction.h"
#include "orvane_tamsel/indexer/languages/python/module_names.h"
#include "orvane_tamsel/indexer/languages/python/string_words.h"
#include "orvane_tamsel/indexer/languages/skeleton.h"

namespace orvane_tamsel::indexer::python {

namespace detail {

namespace {

// tags.scm and our query files as one query, so that the tree is walked once for all of them.
Query compile(const utils::Language& language) {
  auto compiled = skeleton::compile_queries(language);
  TSQuery* q = compiled.query.get();
  static const std::map<std::string_view, Role> NAMES = {
      {"name", NAME},
      {"definition.class", DEF_CLASS},
      {"definition.function", DEF_FUNCTION},
      {"definition.constant", DEF_CONSTANT},
      {"header", HEADER},
      {"colon", COLON},
      {"decorated", DECORATED},
      {"outer", OUTER},
      {"docstring", DOCSTRING},
      {"definition", DOC_OWNER},
      {"import", IMPORT},
      {"local", LOCAL},
      {"global", GLOBAL},
      {"instance", INSTANCE},
      {"class", INSTANCE_CLASS},
      {"typed.name", TYPED_NAME},
      {"typed.type", TYPED_TYPE},
      {"bound.name", BOUND_NAME},
      {"bound.value", BOUND_VALUE},
      {"attribute", ATTRIBUTE},
      {"returned", RETURNED},
      {"yielded", YIELDED},
      {"unpacked.list", UNPACKED_LIST},
      {"unpacked.value", UNPACKED_VALUE},
      {"iterated.name", ITERATED_NAME},
      {"iterated.value", ITERATED_VALUE},
      {"comprehended.name", COMPREHENDED_NAME},
      {"comprehended.value", COMPREHENDED_VALUE},
      {"narrow", NARROW},
  };
  Query out{std::move(compiled.query), {}};
  for (std::uint32_t i = 0; i < ts_query_capture_count(q); ++i) {
    std::uint32_t len = 0;
    const char* name = ts_query_capture_name_for_id(q, i, &len);
    auto it = NAMES.find(std::string_view(name, len));
    out.roles.push_back(it == NAMES.end() ? OTHER : it->second);
    if (it == NAMES.end()) ts_query_disable_capture(q, name, len);
  }
  // Call sites are every call the walk meets; the tags' call references would only be skipped.
  for (std::uint32_t i = 0; i < ts_query_pattern_count(q); ++i) {
    auto a = ts_query_start_byte_for_pattern(q, i), b = ts_query_end_byte_for_pattern(q, i);
    if (std::string_view(compiled.source).substr(a, b - a).find("@reference.") !=
        std::string_view::npos) {
      ts_query_disable_pattern(q, i);
    }
  }
  return out;
}

}  // namespace

constexpr std::size_t MAX_VARIABLE_SIGNATURE = 200;

std::string first_line(std::string_view text) {
  std::string_view first = text.substr(0, text.find('\n'));
  if (first.size() > MAX_VARIABLE_SIGNATURE) {
    std::size_t cut = MAX_VARIABLE_SIGNATURE;
    while (cut > 0 && (static_cast<unsigned char>(first[cut]) & 0xC0) == 0x80) --cut;
    first = first.substr(0, cut);
  }
  return std::string(first);
}

std::string join_dotted(std::string_view a, std::string_view b) {
  std::string out;
  out.reserve(a.size() + 1 + b.size());
  out.append(a);
  out.push_back('.');
  out.append(b);
  return out;
}
const Query& query(const utils::Language& language) {
  static const Query q = compile(language);
  return q;
}

// Sorts a match by what it says: definition tags go on to the walk (and nest as definitions),
// the rest is kept for the passes after it.
bool Extraction::take(const TSQueryMatch& m) {
  Captures caps;
  for (std::uint16_t i = 0; i < m.capture_count; ++i) {
    Role r = q_.roles[m.captures[i].index];
    caps.node[r] = m.captures[i].node;
    caps.present |= 1U << r;
  }
  if (caps.has(NAME)) {
    for (Role r : {DEF_CLASS, DEF_FUNCTION, DEF_CONSTANT}) {
      if (caps.has(r)) tags_.push_back({caps.node[r], caps.node[NAME], r});
    }
    for (Role r : {DEF_CLASS, DEF_FUNCTION}) {
      if (!caps.has(r)) continue;
      TSNode n = caps.node[r];
      defs_.push_back({n, ts_node_start_byte(n), ts_node_end_byte(n), 0});
    }
    return false;
  }
  if (caps.has(DECORATED)) {
    decorators_[ts_node_start_byte(caps.node[DECORATED])] = caps.at(OUTER);
  } else if (caps.has(HEADER)) {
    // one line, up to the colon that opens the body
    TSNode h = caps.node[HEADER], c = caps.at(COLON);
    auto a = ts_node_start_byte(h);
    signatures_[a] = flatten(a, ts_node_start_byte(c));
  } else if (caps.has(DOCSTRING)) {
    std::uint32_t key = caps.has(DOC_OWNER) ? ts_node_start_byte(caps.node[DOC_OWNER]) : UINT32_MAX;
    docstrings_.emplace(key, string_body(caps.node[DOCSTRING]));
  } else if (caps.has(IMPORT)) {
    imports_.push_back(caps.node[IMPORT]);
  } else if (caps.has(LOCAL)) {
    locals_.push_back(caps.node[LOCAL]);
  } else if (caps.has(GLOBAL)) {
    globals_.push_back(caps.node[GLOBAL]);
  } else if (caps.has(INSTANCE)) {
    instances_.emplace_back(caps.node[INSTANCE], caps.at(INSTANCE_CLASS));
  } else if (caps.has(TYPED_TYPE) || caps.has(BOUND_VALUE)) {
    bool typed = caps.has(TYPED_TYPE);
    TSNode what = typed ? caps.node[TYPED_TYPE] : caps.node[BOUND_VALUE];
    if (caps.has(ATTRIBUTE)) {
      attribute_facts_.push_back({caps.node[ATTRIBUTE], what, typed});
    } else {
      name_facts_.push_back({typed ? caps.at(TYPED_NAME) : caps.at(BOUND_NAME), what, typed});
    }
  } else if (caps.has(RETURNED)) {
    returned_.push_back(caps.node[RETURNED]);
  } else if (caps.has(YIELDED)) {
    yielded_.push_back(caps.node[YIELDED]);
  } else if (caps.has(UNPACKED_LIST)) {
    collect_unpacked(caps.node[UNPACKED_LIST], caps.at(UNPACKED_VALUE));
  } else if (caps.has(ITERATED_NAME)) {
    // Index 0 of unpacked_: the name stands for an element of what is iterated.
    TSNode name = caps.node[ITERATED_NAME];
    unpacked_[ts_node_start_byte(name)] = {caps.at(ITERATED_VALUE), 0};
    name_facts_.push_back({name, name, false});
  } else if (caps.has(NARROW)) {
    collect_narrowing(caps.node[NARROW]);
  } else if (caps.has(COMPREHENDED_NAME)) {
    TSNode name = caps.node[COMPREHENDED_NAME];
    TSNode around = ts_node_parent(ts_node_parent(name));  // the comprehension
    comprehended_[std::string(text(name))].push_back(
        {ts_node_start_byte(around), ts_node_end_byte(around), caps.at(COMPREHENDED_VALUE)});
  }
  return true;
}

void Extraction::matches_read() {
  nest_definitions();
  // Innermost last: narrowed_type reads them backwards.
  std::stable_sort(narrowed_.begin(), narrowed_.end(),
                   [](const Narrowed& a, const Narrowed& b) { return a.start < b.start; });
  if (auto d = docstrings_.find(UINT32_MAX); d != docstrings_.end()) {
    out_.symbols.front().docstring = d->second;
  }
}

// What the walk's definitions do not say: the passes that need every name of the file.
void Extraction::finish() {
  collect_imports();
  collect_locals();
  collect_module_variables();
  finish_bases();
  collect_instances();
  collect_type_facts();
  collect_types();
  add_string_words(root_, src_, out_.symbols);
}

std::string Extraction::string_body(TSNode s) const {
  std::uint32_t count = ts_node_child_count(s);
  if (count < 2) return std::string(text(s));
  auto a = ts_node_end_byte(ts_node_child(s, 0));
  auto b = ts_node_start_byte(ts_node_child(s, count - 1));
  std::string_view body = b > a ? src_.substr(a, b - a) : std::string_view();
  auto first = body.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return "";
  auto last = body.find_last_not_of(" \t\r\n");
  return std::string(body.substr(first, last - first + 1));
}

// Definitions nest, so their byte ranges form a tree; walking it avoids ts_node_parent, which
// descends from the root on every call.
void Extraction::nest_definitions() {
  std::sort(defs_.begin(), defs_.end(),
            [](const auto& a, const auto& b) { return a.start < b.start; });
  std::vector<std::size_t> stack;
  for (std::size_t i = 0; i < defs_.size(); ++i) {
    while (!stack.empty() &&
           !contains(defs_[stack.back()], defs_[i].start, defs_[i].end, defs_[i].node)) {
      stack.pop_back();
    }
    defs_[i].parent = stack.empty() ? NONE : stack.back();
    stack.push_back(i);
  }
}

// The innermost function or class around a node, or a null node at module level.
TSNode Extraction::enclosing_def(TSNode n) const {
  if (ts_node_is_null(n)) return TSNode{};
  auto start = ts_node_start_byte(n);
  auto it = std::upper_bound(defs_.begin(), defs_.end(), start,
                             [](std::uint32_t s, const Def& d) { return s < d.start; });
  if (it == defs_.begin()) return TSNode{};
  std::size_t i = static_cast<std::size_t>(it - defs_.begin()) - 1;
  auto end = ts_node_end_byte(n);
  while (i != NONE && !contains(defs_[i], start, end, n)) i = defs_[i].parent;
  return i == NONE ? TSNode{} : defs_[i].node;
}

std::optional<tagged::Definition> Extraction::define(const tagged::Tag& tag) {
  tagged::Definition def;
  def.name = text(tag.name);
  def.host = tag.node;
  if (tag.role == "constant") {
    if (!variables_.insert(join_dotted(module_, def.name)).second) return std::nullopt;  // rebound
    def.kind = "variable";
    return def;
  }
  def.opens_scope = true;
  if (tag.role == "class") {
    def.kind = "class";
  } else {
    TSNode outer = enclosing_def(tag.node);
    def.kind = !ts_node_is_null(outer) && is_class(outer) ? "method" : "function";
  }
  // A decorated definition starts at its first decorator.
  if (auto d = decorators_.find(ts_node_start_byte(tag.node)); d != decorators_.end()) {
    def.host = d->second;
  }
  return def;
}

void Extraction::defined(std::size_t symbol, const tagged::Tag& tag) {
  const auto& s = out_.symbols[symbol];
  if (s.kind != "variable") {
    TSNode outer = enclosing_def(tag.node);
    def_fqn_[ts_node_start_byte(tag.node)] = s.fqn;
    // Defined again where that may not run (`if win32: def f` / `else: def f`): either is the
    // one called, and they share the fqn.
    if (auto old = lookup_here(outer, s.name);
        old && old->fqn == s.fqn && s.kind != "class" && conditional(tag.node, outer)) {
      for (auto& other : out_.symbols) {
        if (other.fqn != s.fqn || other.kind != s.kind) continue;
        if (std::none_of(other.fields.begin(), other.fields.end(),
                         [](const auto& f) { return f.first == ON_BRANCHES; })) {
          other.fields.emplace_back(ON_BRANCHES, "S:" + s.fqn);
        }
      }
    }
    bind(outer, s.name,
         {s.fqn, ts_node_is_null(outer) ? "same-file" : "same-scope", s.kind == "class"});
    if (s.kind == "class") class_nodes_.emplace_back(tag.node, symbol);
  }
  if (s.kind != "class") typed_symbols_.emplace_back(tag.node, symbol);
}

TSNode Extraction::definition_of(TSNode host) const {
  return is_type(host, "decorated_definition") ? ts_node_child_by_field_name(host, "definition", 10)
                                               : host;
}

std::string Extraction::signature_of(TSNode host) const {
  if (is_type(host, "assignment")) return first_line(text(host));
  auto sig = signatures_.find(ts_node_start_byte(definition_of(host)));
  return sig == signatures_.end() ? std::string() : sig->second;
}

std::optional<std::string> Extraction::docstring_of(TSNode host,
                                                    const tagged::Frame& /*frame*/) const {
  if (is_type(host, "assignment")) return std::nullopt;
  auto d = docstrings_.find(ts_node_start_byte(definition_of(host)));
  if (d == docstrings_.end()) return std::nullopt;
  return d->second;
}

// What `name` is bound to in the scope itself (not outer ones), if anything.
std::optional<Binding> Extraction::lookup_here(TSNode scope, const std::string& name) const {
  auto s = scopes_.find(scope_key(scope));
  if (s == scopes_.end()) return std::nullopt;
  auto b = s->second.names.find(name);
  if (b == s->second.names.end()) return std::nullopt;
  return b->second;
}

// A module-level name an import binds and a definition further down rebinds: the functions of
// the module see the definition.
bool Extraction::defined_later(TSNode scope, const std::string& name, std::int64_t at) const {
  if (!ts_node_is_null(scope)) return false;
  auto m = scopes_.find(UINT32_MAX);
  if (m == scopes_.end()) return false;
  auto b = m->second.names.find(name);
  if (b == m->second.names.end() || b->second.evidence != "same-file") return false;
  for (const auto& s : out_.symbols) {
    if (s.fqn == b->second.fqn && s.start_line > at) return true;
  }
  return false;
}

// The package a relative import counts from: the module itself for an __init__.py.
std::string Extraction::relative_base(std::size_t level) const {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= module_.size()) {
    auto end = module_.find('.', start);
    if (end == std::string::npos) end = module_.size();
    parts.emplace_back(module_.substr(start, end - start));
    start = end + 1;
  }
  bool is_package = path_.ends_with("__init__.py") || path_.ends_with("__init__.pyi");
  std::size_t drop = (is_package ? 0 : 1) + (level > 0 ? level - 1 : 0);
  parts.resize(parts.size() > drop ? parts.size() - drop : 0);
  std::string out;
  for (const auto& p : parts) {
    if (!out.empty()) out.push_back('.');
    out.append(p);
  }
  return out;
}

void Extraction::collect_imports() {
  for (TSNode stmt : imports_) {
    TSNode scope = enclosing_def(stmt);
    std::int64_t at = line(stmt);
    bool from = std::strcmp(ts_node_type(stmt), "import_from_statement") == 0;
    std::string base;
    if (from) {
      TSNode m = ts_node_child_by_field_name(stmt, "module_name", 11);
      if (ts_node_is_null(m)) continue;
      if (std::strcmp(ts_node_type(m), "relative_import") == 0) {
        std::size_t level = 0;
        std::string rest;
        for (std::uint32_t i = 0; i < ts_node_named_child_count(m); ++i) {
          TSNode c = ts_node_named_child(m, i);
          if (std::strcmp(ts_node_type(c), "import_prefix") == 0) {
            auto t = text(c);
            level = static_cast<std::size_t>(std::count(t.begin(), t.end(), '.'));
          } else {
            rest = text(c);
          }
        }
        base = relative_base(level);
        if (!rest.empty()) {
          if (!base.empty()) base.push_back('.');
          base.append(rest);
        }
      } else {
        base = text(m);
      }
    }
    for (std::uint32_t i = 0; i < ts_node_child_count(stmt); ++i) {
      TSNode c = ts_node_child(stmt, i);
      const char* field = ts_node_field_name_for_child(stmt, i);
      const char* type = ts_node_type(c);
      if (from && std::strcmp(type, "wildcard_import") == 0) {
        out_.imports.push_back({at, base, "*", ""});
        continue;
      }
      if (field == nullptr || std::strcmp(field, "name") != 0) continue;
      std::string dotted, alias;
      if (std::strcmp(type, "aliased_import") == 0) {
        dotted = field_text(c, "name");
        alias = field_text(c, "alias");
      } else {
        dotted = text(c);
      }
      if (from) {
        out_.imports.push_back({at, base, dotted, alias});
        const auto& bound = alias.empty() ? dotted : alias;
        if (!defined_later(scope, bound, at)) {
          bind_import(stmt, scope, bound, {join_dotted(base, dotted), "import"});
        }
      } else {
        out_.imports.push_back({at, dotted, "", alias});
        if (!alias.empty()) {
          bind_import(stmt, scope, alias, {dotted, "module-attribute"});
        } else {
          auto head = dotted.substr(0, dotted.find('.'));
          bind_import(stmt, scope, head, {head, "module-attribute"});
        }
      }
    }
  }
}

void Extraction::bind_import(TSNode stmt, TSNode scope, const std::string& name, Binding b) {
  auto old = lookup_here(scope, name);
  if (old && old->fqn != b.fqn && conditional(stmt, scope)) {
    // `try: from _c import f` / `except ImportError: from _py import f`: either is called.
    b.also = std::move(old->also);
    b.also.push_back(old->fqn);
    std::erase(b.also, b.fqn);
    std::sort(b.also.begin(), b.also.end());
    b.also.erase(std::unique(b.also.begin(), b.also.end()), b.also.end());
  } else if (old && old->evidence == "same-file") {
    b.shadowed = old->fqn;
  }
  bind(scope, name, std::move(b));
}

bool Extraction::conditional(TSNode stmt, TSNode scope) const {
  for (TSNode n = ts_node_parent(stmt); !ts_node_is_null(n) && !ts_node_eq(n, scope);
       n = ts_node_parent(n)) {
    if (is_type(n, "try_statement") || is_type(n, "if_statement") || is_type(n, "for_statement") ||
        is_type(n, "while_statement")) {
      return true;
    }
  }
  return false;
}

void Extraction::collect_locals() {
  for (TSNode n : globals_) {
    TSNode scope = enclosing_def(n);
    if (!ts_node_is_null(scope)) global_names_[scope_key(scope)].emplace(text(n));
  }
  for (TSNode n : locals_) {
    TSNode scope = enclosing_def(n);
    if (ts_node_is_null(scope) || is_class(scope)) continue;  // module and class names stay
    if (declared_global(scope, text(n))) continue;
    ++scopes_[scope_key(scope)].locals[std::string(text(n))];
  }
}

// Resolves a name as Python would look it up from `at`: enclosing functions, then the module.
std::optional<Binding> Extraction::lookup(TSNode at, std::string_view name) const {
  TSNode def = enclosing_def(at);
  bool first = true;
  for (; !ts_node_is_null(def); def = enclosing_def(def), first = false) {
    if (is_class(def) && !first) continue;  // class bodies are not enclosing scopes
    auto s = scopes_.find(scope_key(def));
    if (s == scopes_.end()) continue;
    if (auto b = s->second.names.find(name); b != s->second.names.end()) return b->second;
    if (s->second.locals.count(name) != 0) return std::nullopt;
  }
  auto s = scopes_.find(UINT32_MAX);
  if (s == scopes_.end()) return std::nullopt;
  if (auto b = s->second.names.find(name); b != s->second.names.end()) return b->second;
  return std::nullopt;
}

// `a.b.c` as its names, or nothing when the expression is not a plain dotted name.
std::vector<std::string_view> Extraction::dotted(TSNode n) const {
  std::vector<std::string_view> parts;
  while (std::strcmp(ts_node_type(n), "attribute") == 0) {
    TSNode attr = ts_node_child_by_field_name(n, "attribute", 9);
    parts.push_back(text(attr));
    n = ts_node_child_by_field_name(n, "object", 6);
  }
  if (std::strcmp(ts_node_type(n), "identifier") != 0) return {};
  parts.push_back(text(n));
  std::reverse(parts.begin(), parts.end());
  return parts;
}

void Extraction::finish_bases() {
  for (auto& [node, index] : class_nodes_) {
    TSNode supers = ts_node_child_by_field_name(node, "superclasses", 12);
    if (ts_node_is_null(supers)) continue;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(supers); ++i) {
      auto parts = dotted(ts_node_named_child(supers, i));
      if (parts.empty()) continue;
      auto b = lookup(node, parts[0]);
      if (!b) continue;
      std::string fqn = b->fqn;
      for (std::size_t k = 1; k < parts.size(); ++k) fqn = join_dotted(fqn, parts[k]);
      out_.symbols[index].bases.push_back(fqn);
    }
    bases_[out_.symbols[index].fqn] = out_.symbols[index].bases;
  }
}

// A function's local assigned once from `Cls(...)` holds a Cls: its `x.m()` calls name Cls.m.
void Extraction::collect_instances() {
  for (const auto& [name, built_from] : instances_) {
    TSNode scope = enclosing_def(name);
    if (ts_node_is_null(scope) || is_class(scope)) continue;
    auto& sc = scopes_[scope_key(scope)];
    std::string var(text(name));
    if (sc.locals[var] != 1) continue;
    auto parts = dotted(built_from);
    if (parts.empty()) continue;
    auto b = lookup(name, parts[0]);
    if (!b || (parts.size() == 1 && is_local_function(*b))) continue;  // a result, typed later
    std::string fqn = b->fqn;
    for (std::size_t k = 1; k < parts.size(); ++k) fqn = join_dotted(fqn, parts[k]);
    sc.instances[var] = fqn;
  }
}

// The class a local name was built from in the innermost function holding `at`, if any.
std::optional<std::string> Extraction::instance_class(TSNode at, std::string_view name) const {
  TSNode fn = enclosing_def(at);
  if (ts_node_is_null(fn) || is_class(fn)) return std::nullopt;
  auto s = scopes_.find(scope_key(fn));
  if (s == scopes_.end()) return std::nullopt;
  auto it = s->second.instances.find(name);
  if (it == s->second.instances.end()) return std::nullopt;
  return it->second;
}

// The bases of a class in lookup order, following the ones defined in this file.
std::vector<std::string> Extraction::ancestry(const std::string& cls) const {
  std::vector<std::string> out, todo{cls};
  for (std::size_t i = 0; i < todo.size() && todo.size() < 64; ++i) {
    auto it = bases_.find(todo[i]);
    if (it == bases_.end()) continue;
    for (const auto& b : it->second) {
      if (std::find(todo.begin(), todo.end(), b) == todo.end()) {
        todo.push_back(b);
        out.push_back(b);
      }
    }
  }
  return out;
}

// The class whose method holds a node (for self / cls / super), or null.
TSNode Extraction::method_class(TSNode at) const {
  TSNode fn = enclosing_def(at);
  if (ts_node_is_null(fn) || is_class(fn)) return TSNode{};
  TSNode cls = enclosing_def(fn);
  return !ts_node_is_null(cls) && is_class(cls) ? cls : TSNode{};
}

// Names the callee where local evidence does. Where the method may live on a base in another
// file, or only the receiver's type is known, the receiver's type goes along for the writer.
void Extraction::resolve(TSNode callee, ParsedCall& call) const {
  const char* type = ts_node_type(callee);
  if (std::strcmp(type, "attribute") == 0) {
    TSNode object = ts_node_child_by_field_name(callee, "object", 6);
    std::string attr(text(ts_node_child_by_field_name(callee, "attribute", 9)));
    if (std::strcmp(ts_node_type(object), "call") == 0 &&
        text(ts_node_child_by_field_name(object, "function", 8)) == "super") {
      TSNode cls = method_class(callee);
      if (ts_node_is_null(cls)) return;
      auto bases = ancestry(fqn_of(cls));
      if (bases.empty()) return;
      call.target = join_dotted(bases[0], attr);
      for (std::size_t i = 1; i < bases.size(); ++i)
        call.fallbacks.push_back(join_dotted(bases[i], attr));
      call.evidence = "super";
      call.receiver = "B:" + fqn_of(cls);
      call.member = attr;
      return;
    }
  }
  auto parts = dotted(callee);
  // The receiver of a call, tested by isinstance around it. Only receivers: as a value flowing
  // elsewhere (`self.screen = canvas` on each branch) it would add a type per branch.
  if (parts.size() >= 2 && !narrowed_.empty()) {
    std::string receiver(parts[0]);
    for (std::size_t k = 1; k + 1 < parts.size(); ++k) receiver.append(".").append(parts[k]);
    if (auto n = narrowed_type(callee, receiver); !n.empty()) {
      call.receiver = std::move(n);
      call.member = parts.back();
      call.evidence = "declared-type";
      return;
    }
  }
  if (parts.size() == 2 && (parts[0] == "self" || parts[0] == "cls")) {
    TSNode cls = method_class(callee);
    if (!ts_node_is_null(cls) && lookup(callee, parts[0]) == std::nullopt) {
      std::string c = fqn_of(cls);
      call.target = join_dotted(c, parts[1]);
      for (const auto& b : ancestry(c)) call.fallbacks.push_back(join_dotted(b, parts[1]));
      call.evidence = std::string(parts[0]);
      call.receiver = "T:" + c;
      call.member = parts[1];
      return;
    }
  }
  if (parts.size() == 2) {
    if (auto cls = instance_class(callee, parts[0])) {
      call.target = join_dotted(*cls, parts[1]);
      for (const auto& b : ancestry(*cls)) call.fallbacks.push_back(join_dotted(b, parts[1]));
      call.evidence = "instance";
      call.receiver = "S:" + *cls;
      call.member = parts[1];
      return;
    }
  }
  if (!parts.empty()) {
    if (auto b = lookup(callee, parts[0])) {
      call.target = b->fqn;
      for (std::size_t k = 1; k < parts.size(); ++k)
        call.target = join_dotted(call.target, parts[k]);
      call.evidence = parts.size() == 1 && b->is_class ? "constructor" : b->evidence;
      if (parts.size() == 1 && !b->shadowed.empty()) call.fallbacks.push_back(b->shadowed);
      if (!b->also.empty()) call.also = call.fallbacks.size();
      for (auto fqn : b->also) {
        for (std::size_t k = 1; k < parts.size(); ++k) fqn = join_dotted(fqn, parts[k]);
        call.fallbacks.push_back(std::move(fqn));
      }
      // `Cls.method()`: the method may be inherited, from a base in another file.
      if (parts.size() == 2 && !binding_type(*b).empty()) {
        call.receiver = binding_type(*b).expr;
        call.member = parts[1];
      }
      // `pydoc.html.preformat()`: the method of a module's variable, typed by its value.
      if (parts.size() > 2 && !b->is_class && !is_local_function(*b)) {
        Typed of = value_type(ts_node_child_by_field_name(callee, "object", 6), 0);
        if (!of.empty()) {
          call.receiver = std::move(of.expr);
          call.member = parts.back();
        }
      }
      return;
    }
  }
  if (!parts.empty() && star_import(callee, parts[0], call)) {
    for (std::size_t k = 1; k < parts.size(); ++k) {
      call.target = join_dotted(call.target, parts[k]);
      for (auto& f : call.fallbacks) f = join_dotted(f, parts[k]);
    }
    return;
  }
  if (parts.size() == 1) {
    method_alias(callee, parts[0], call);
    return;
  }
  if (std::strcmp(type, "attribute") != 0) return;
  // The name called is kept on a receiver of unknown type too: a name only one file defines
  // still tells the tests route what a test exercises.
  call.member = text(ts_node_child_by_field_name(callee, "attribute", 9));
  Typed of = value_type(ts_node_child_by_field_name(callee, "object", 6), 0);
  if (of.empty()) return;
  call.receiver = std::move(of.expr);
  call.evidence = std::move(of.evidence);
}

// `f = self.m` (or `obj.m` with obj typed), then `f(...)`: the method read is what is called, as
// the member of the value it was read from. Bound on two branches (`f = a.run` / `f = b.run`),
// it is the member of either value; to two methods, the receiver lists both reads.
void Extraction::method_alias(TSNode callee, std::string_view name, ParsedCall& call) const {
  Typed t = name_type(callee, name, 0);
  if (t.empty() || t.expr.find_first_of("|+") != std::string::npos) return;
  std::string receiver;
  std::string_view member;
  for (std::size_t at = 0; at <= t.expr.size();) {
    auto amp = std::min(t.expr.find('&', at), t.expr.size());
    auto part = std::string_view(t.expr).substr(at, amp - at);
    auto slash = part.rfind('/');
    if (slash == std::string_view::npos) return;
    auto m = part.substr(slash + 1);
    if (m.find_first_of("()#[") != std::string_view::npos) return;  // a result, not a method
    if (!member.empty() && m != member) {
      // Two methods (`f = self.run_a` / `f = self.run_b`): each branch's read as it is.
      call.member.clear();
      call.receiver = std::move(t.expr);
      return;
    }
    member = m;
    if (!receiver.empty()) receiver.push_back('&');
    receiver.append(part.substr(0, slash));
    at = amp + 1;
  }
  call.member = member;
  call.receiver = std::move(receiver);
}

// A name bound nowhere in the file may come from a module it star-imports (the last first, as
// a later import rebinds): that module's name, the others as fallbacks.
bool Extraction::star_import(TSNode at, std::string_view name, ParsedCall& call) const {
  if (name.starts_with('_')) return false;  // not bound by a star import
  for (TSNode def = enclosing_def(at); !ts_node_is_null(def); def = enclosing_def(def)) {
    auto s = scopes_.find(scope_key(def));
    if (s != scopes_.end() && s->second.locals.count(name) != 0) return false;
  }
  if (auto m = scopes_.find(UINT32_MAX); m != scopes_.end() && m->second.locals.count(name) != 0) {
    return false;
  }
  for (auto it = out_.imports.rbegin(); it != out_.imports.rend(); ++it) {
    if (it->name != "*") continue;
    auto fqn = join_dotted(it->module, name);
    if (call.target.empty()) {
      call.target = fqn;
      call.evidence = "import";
    } else {
      call.fallbacks.push_back(fqn);
    }
  }
  return !call.target.empty();
}

void Extraction::visit(TSNode node) {
  if (!ts_node_is_named(node)) return;
  std::string_view type = ts_node_type(node);  // once: most nodes are neither
  if (type == "call") {
    TSNode callee = ts_node_child_by_field_name(node, "function", 8);
    if (decorator_calls_.count(ts_node_start_byte(callee)) == 0) add_call(node, callee);
  } else if (type == "decorator") {
    // A decorator stands before its definition, so the caller is the enclosing scope.
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      TSNode c = ts_node_named_child(node, i);
      TSNode callee = is_type(c, "call") ? ts_node_child_by_field_name(c, "function", 8) : c;
      if (!is_type(c, "call") && !is_type(c, "identifier") && !is_type(c, "attribute")) continue;
      decorator_calls_.insert(ts_node_start_byte(callee));
      add_call(node, callee);
    }
  }
}

void Extraction::resolve(const tagged::PendingCall& pending, ParsedCall& call) {
  resolve(pending.callee, call);
  if (is_type(pending.call, "decorator") && !call.target.empty()) call.evidence = "decorator";
  // A target defined here links: the receiver, kept for bases in other files, is not needed.
  bool here = defined_.count(call.target) != 0;
  for (const auto& f : call.fallbacks) here = here || defined_.count(f) != 0;
  if (here) {
    call.receiver.clear();
    call.member.clear();
  }
}

}  // namespace detail

std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name) {
  return module_from(path, packages, root_name);
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  return detail::Extraction(language, path, module, content).run();
}

}  // namespace orvane_tamsel::indexer::python
