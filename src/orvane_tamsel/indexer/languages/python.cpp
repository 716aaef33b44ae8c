#include "orvane_tamsel/indexer/languages/python.h"

#include <tree_sitter/api.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "orvane_tamsel/indexer/languages/python/annotations.h"
#include "orvane_tamsel/indexer/languages/python/module_names.h"
#include "orvane_tamsel/indexer/tree_sitter_handles.h"

namespace orvane_tamsel::indexer::python {

namespace {

constexpr std::size_t MAX_VARIABLE_SIGNATURE = 200;
constexpr int MAX_TYPE_DEPTH = 12;  // links followed from one expression to the names it uses

// A step taken by every alternative of a type expression.
std::string then(std::string_view expr, std::string_view step) {
  std::string out;
  std::size_t start = 0;
  while (true) {
    auto bar = expr.find('|', start);
    out.append(expr.substr(start, bar == std::string_view::npos ? bar : bar - start)).append(step);
    if (bar == std::string_view::npos) return out;
    out.push_back('|');
    start = bar + 1;
  }
}

// A variable's signature: its first line, cut to a bound on a character boundary.
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

// What a capture stands for; the extractor dispatches on these instead of capture names.
enum Role : std::uint8_t {
  NAME,
  DEF_CLASS,
  DEF_FUNCTION,
  DEF_CONSTANT,
  HEADER,
  COLON,
  DECORATED,
  OUTER,
  DOCSTRING,
  DOC_OWNER,
  IMPORT,
  CALLEE,
  DECORATOR,
  LOCAL,
  INSTANCE,
  INSTANCE_CLASS,
  TYPED_NAME,
  TYPED_TYPE,
  BOUND_NAME,
  BOUND_VALUE,
  ATTRIBUTE,
  RETURNED,
  YIELDED,
  OTHER,
  ROLE_COUNT = OTHER
};

struct Query {
  QueryPtr query;
  std::vector<Role> roles;  // by capture id
};

// tags.scm and our query files as one query, so that the tree is walked once for all of them.
Query compile(const utils::Language& language) {
  std::string source;
  for (const auto& n : language.queries) {
    auto text = utils::query_source(language.name, n);
    if (text.empty()) throw std::runtime_error("query not embedded: " + n);
    source.append(text).push_back('\n');
  }
  std::uint32_t offset = 0;
  TSQueryError error = TSQueryErrorNone;
  TSQuery* q = ts_query_new(language.grammar(), source.data(),
                            static_cast<std::uint32_t>(source.size()), &offset, &error);
  if (q == nullptr) throw std::runtime_error("bad Python query at byte " + std::to_string(offset));
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
      {"callee", CALLEE},
      {"decorator", DECORATOR},
      {"local", LOCAL},
      {"instance", INSTANCE},
      {"class", INSTANCE_CLASS},
      {"typed.name", TYPED_NAME},
      {"typed.type", TYPED_TYPE},
      {"bound.name", BOUND_NAME},
      {"bound.value", BOUND_VALUE},
      {"attribute", ATTRIBUTE},
      {"returned", RETURNED},
      {"yielded", YIELDED},
  };
  Query out{QueryPtr(q), {}};
  for (std::uint32_t i = 0; i < ts_query_capture_count(q); ++i) {
    std::uint32_t len = 0;
    const char* name = ts_query_capture_name_for_id(q, i, &len);
    auto it = NAMES.find(std::string_view(name, len));
    out.roles.push_back(it == NAMES.end() ? OTHER : it->second);
    if (it == NAMES.end()) ts_query_disable_capture(q, name, len);
  }
  // Call sites come from our own pattern; the tags' call references would only be skipped.
  for (std::uint32_t i = 0; i < ts_query_pattern_count(q); ++i) {
    auto a = ts_query_start_byte_for_pattern(q, i), b = ts_query_end_byte_for_pattern(q, i);
    if (std::string_view(source).substr(a, b - a).find("@reference.") != std::string_view::npos) {
      ts_query_disable_pattern(q, i);
    }
  }
  return out;
}

// Compiled once; a TSQuery is read-only after creation, so threads share it.
const Query& query(const utils::Language& language) {
  static const Query q = compile(language);
  return q;
}

// One match's captured nodes by role.
struct Captures {
  std::array<TSNode, ROLE_COUNT + 1> node;  // read only where `present` has the role
  std::uint32_t present = 0;
  bool has(Role r) const { return (present & (1U << r)) != 0; }
  TSNode at(Role r) const {
    if (!has(r)) throw std::logic_error("Python query lacks a capture");
    return node[r];
  }
};

// What a name is bound to in one scope.
struct Binding {
  std::string fqn;
  std::string evidence;  // same-file, same-scope, import, module-attribute
  bool is_class = false;
};

// What a scope says of the types of its names (or a class of its instances' attributes).
struct TypeFacts {
  std::map<std::string, std::vector<TSNode>, std::less<>> annotations;  // `type` nodes
  std::map<std::string, std::vector<TSNode>, std::less<>> values;       // what was assigned
};

struct Scope {
  std::map<std::string, Binding, std::less<>> names;
  std::map<std::string, int, std::less<>> locals;  // bound at run time: shadows outer names
  std::map<std::string, std::string, std::less<>> instances;  // name -> class fqn, if bound once
  TypeFacts facts;
};

// What evidence says of a value's type: a TypeExpr and how its last link is known.
struct Typed {
  std::string expr;
  std::string evidence;  // declared-type, result-type, constructor, attribute, fixture
  bool empty() const { return expr.empty(); }
};

bool is_class(TSNode n) {
  return std::strcmp(ts_node_type(n), "class_definition") == 0;
}

class Extraction {
 public:
  Extraction(const utils::Language& language, std::string_view path, std::string_view module,
             std::string_view content)
      : language_(language), q_(query(language)), path_(path), module_(module), src_(content) {}

  ParsedFile run() {
    thread_local std::unique_ptr<TSParser, ParserDeleter> parser(ts_parser_new());
    ts_parser_set_language(parser.get(), language_.grammar());
    std::unique_ptr<TSTree, TreeDeleter> tree(ts_parser_parse_string(
        parser.get(), nullptr, src_.data(), static_cast<std::uint32_t>(src_.size())));
    if (!tree) throw std::runtime_error("parser gave no tree for " + std::string(path_));
    root_ = ts_tree_root_node(tree.get());

    out_.path = path_;
    out_.language = language_.name;
    out_.module = module_;
    out_.is_test = utils::is_test_path(language_, path_);
    out_.line_count = line_count();
    collect_matches();
    nest_definitions();
    collect_definitions();
    collect_imports();
    collect_locals();
    finish_bases();
    collect_instances();
    collect_type_facts();
    collect_types();
    collect_calls();
    return std::move(out_);
  }

 private:
  std::string_view text(TSNode n) const {
    auto a = ts_node_start_byte(n), b = ts_node_end_byte(n);
    return src_.substr(a, b - a);
  }
  static std::int64_t line(TSNode n) { return ts_node_start_point(n).row + 1; }
  static std::int64_t end_line(TSNode n) {
    auto p = ts_node_end_point(n);
    return p.column == 0 && p.row > ts_node_start_point(n).row ? p.row : p.row + 1;
  }
  std::string field_text(TSNode n, const char* field) const {
    TSNode f = ts_node_child_by_field_name(n, field, static_cast<std::uint32_t>(strlen(field)));
    return ts_node_is_null(f) ? std::string() : std::string(text(f));
  }

  std::int64_t line_count() const {
    auto n = static_cast<std::int64_t>(std::count(src_.begin(), src_.end(), '\n'));
    return !src_.empty() && src_.back() != '\n' ? n + 1 : n;
  }

  // One pass of the query over the tree, sorting its matches by what they say.
  void collect_matches() {
    thread_local std::unique_ptr<TSQueryCursor, CursorDeleter> cursor(ts_query_cursor_new());
    ts_query_cursor_exec(cursor.get(), q_.query.get(), root_);
    TSQueryMatch m;
    while (ts_query_cursor_next_match(cursor.get(), &m)) {
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
      } else if (caps.has(DECORATED)) {
        decorated_line_[ts_node_start_byte(caps.node[DECORATED])] = line(caps.at(OUTER));
        decorators_[ts_node_start_byte(caps.node[DECORATED])] = caps.at(OUTER);
      } else if (caps.has(HEADER)) {
        TSNode h = caps.node[HEADER], c = caps.at(COLON);
        auto a = ts_node_start_byte(h);
        signatures_[a] = std::string(src_.substr(a, ts_node_end_byte(c) - a));
      } else if (caps.has(DOCSTRING)) {
        std::uint32_t key =
            caps.has(DOC_OWNER) ? ts_node_start_byte(caps.node[DOC_OWNER]) : UINT32_MAX;
        docstrings_.emplace(key, string_body(caps.node[DOCSTRING]));
      } else if (caps.has(IMPORT)) {
        imports_.push_back(caps.node[IMPORT]);
      } else if (caps.has(CALLEE) || caps.has(DECORATOR)) {
        if (caps.has(CALLEE)) sites_.emplace_back(caps.node[CALLEE], false);
        if (caps.has(DECORATOR)) {
          sites_.emplace_back(caps.node[DECORATOR], true);
          decorator_calls_.insert(ts_node_start_byte(caps.node[DECORATOR]));
        }
      } else if (caps.has(LOCAL)) {
        locals_.push_back(caps.node[LOCAL]);
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
      }
    }
  }

  std::string string_body(TSNode s) const {
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
  void nest_definitions() {
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

  struct Def {
    TSNode node;
    std::uint32_t start, end;  // bytes, kept: ts_node_end_byte walks the subtree's children
    std::size_t parent;
  };

  static bool contains(const Def& outer, std::uint32_t start, std::uint32_t end, TSNode inner) {
    return outer.start <= start && end <= outer.end && !ts_node_eq(outer.node, inner);
  }

  // The innermost function or class around a node, or a null node at module level.
  TSNode enclosing_def(TSNode n) const {
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

  std::string fqn_of(TSNode def) const {
    if (ts_node_is_null(def)) return module_;
    auto it = def_fqn_.find(ts_node_start_byte(def));
    return it == def_fqn_.end() ? module_ : it->second;
  }

  std::uint32_t scope_key(TSNode def) const {
    return ts_node_is_null(def) ? UINT32_MAX : ts_node_start_byte(def);
  }

  void bind(TSNode scope_def, const std::string& name, Binding b) {
    scopes_[scope_key(scope_def)].names[name] = std::move(b);
  }

  void collect_definitions() {
    ParsedSymbol mod;
    mod.fqn = module_;
    auto dot = module_.rfind('.');
    mod.name = dot == std::string::npos ? module_ : module_.substr(dot + 1);
    mod.kind = "module";
    mod.start_line = 1;
    mod.end_line = std::max<std::int64_t>(out_.line_count, 1);
    if (auto d = docstrings_.find(UINT32_MAX); d != docstrings_.end()) mod.docstring = d->second;
    mod.is_test = out_.is_test;
    out_.symbols.push_back(std::move(mod));

    // Matches come in document order, so an enclosing definition is named before its members.
    std::map<std::string, bool> variables;
    for (const auto& tag : tags_) {
      std::string name(text(tag.name));
      ParsedSymbol s;
      TSNode node = tag.node;
      if (tag.role == DEF_CLASS) {
        s.kind = "class";
      } else if (tag.role == DEF_FUNCTION) {
        TSNode outer = enclosing_def(node);
        s.kind = !ts_node_is_null(outer) && is_class(outer) ? "method" : "function";
      } else {
        s.kind = "variable";
      }
      TSNode outer = enclosing_def(node);
      s.parent_fqn = fqn_of(outer);
      s.fqn = join_dotted(s.parent_fqn, name);
      s.name = name;
      s.end_line = end_line(node);
      auto decorated = decorated_line_.find(ts_node_start_byte(node));
      s.start_line = decorated != decorated_line_.end() ? decorated->second : line(node);
      s.is_test = out_.is_test;
      if (s.kind == "variable") {
        if (!variables.emplace(s.fqn, true).second) continue;  // rebinding of one constant
        s.signature = first_line(text(node));
      } else {
        auto key = ts_node_start_byte(node);
        def_fqn_[key] = s.fqn;
        if (auto sig = signatures_.find(key); sig != signatures_.end()) s.signature = sig->second;
        if (auto d = docstrings_.find(key); d != docstrings_.end()) s.docstring = d->second;
        bind(outer, name,
             {s.fqn, ts_node_is_null(outer) ? "same-file" : "same-scope", s.kind == "class"});
        if (s.kind == "class") class_nodes_.emplace_back(node, out_.symbols.size());
      }
      if (s.kind != "class") typed_symbols_.emplace_back(node, out_.symbols.size());
      out_.symbols.push_back(std::move(s));
    }
  }

  // The package a relative import counts from: the module itself for an __init__.py.
  std::string relative_base(std::size_t level) const {
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

  void collect_imports() {
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
          bind(scope, alias.empty() ? dotted : alias, {join_dotted(base, dotted), "import"});
        } else {
          out_.imports.push_back({at, dotted, "", alias});
          if (!alias.empty()) {
            bind(scope, alias, {dotted, "module-attribute"});
          } else {
            auto head = dotted.substr(0, dotted.find('.'));
            bind(scope, head, {head, "module-attribute"});
          }
        }
      }
    }
  }

  void collect_locals() {
    for (TSNode n : locals_) {
      TSNode scope = enclosing_def(n);
      if (ts_node_is_null(scope) || is_class(scope)) continue;  // module and class names stay
      ++scopes_[scope_key(scope)].locals[std::string(text(n))];
    }
  }

  // Resolves a name as Python would look it up from `at`: enclosing functions, then the module.
  std::optional<Binding> lookup(TSNode at, std::string_view name) const {
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
  std::vector<std::string_view> dotted(TSNode n) const {
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

  void finish_bases() {
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
  void collect_instances() {
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
  std::optional<std::string> instance_class(TSNode at, std::string_view name) const {
    TSNode fn = enclosing_def(at);
    if (ts_node_is_null(fn) || is_class(fn)) return std::nullopt;
    auto s = scopes_.find(scope_key(fn));
    if (s == scopes_.end()) return std::nullopt;
    auto it = s->second.instances.find(name);
    if (it == s->second.instances.end()) return std::nullopt;
    return it->second;
  }

  // The bases of a class in lookup order, following the ones defined in this file.
  std::vector<std::string> ancestry(const std::string& cls) const {
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
  TSNode method_class(TSNode at) const {
    TSNode fn = enclosing_def(at);
    if (ts_node_is_null(fn) || is_class(fn)) return TSNode{};
    TSNode cls = enclosing_def(fn);
    return !ts_node_is_null(cls) && is_class(cls) ? cls : TSNode{};
  }

  static bool is_local_function(const Binding& b) {
    return !b.is_class && (b.evidence == "same-file" || b.evidence == "same-scope");
  }

  bool is_type(TSNode n, const char* type) const {
    return !ts_node_is_null(n) && std::strcmp(ts_node_type(n), type) == 0;
  }

  // Sorts what the type queries matched by the scope it speaks of.
  void collect_type_facts() {
    for (const auto& f : name_facts_) {
      auto& facts = scopes_[scope_key(enclosing_def(f.target))].facts;
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
  std::string fixture_name(TSNode def) const {
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
      for (std::uint32_t k = 0; !ts_node_is_null(args) && k < ts_node_named_child_count(args);
           ++k) {
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

  // A class an annotation names, resolved as the names at `at` are: "T:fqn", or "".
  std::string annotated_type(TSNode annotation, TSNode at, bool yielded = false) const {
    auto name = annotated_class(text(annotation), yielded);
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
  Typed agree(const std::vector<TSNode>& nodes, bool annotations, int depth) const {
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
  Typed bound_type(const TypeFacts& facts, std::string_view name, int bindings, int depth) const {
    if (auto a = facts.annotations.find(name); a != facts.annotations.end()) {
      return agree(a->second, true, depth);
    }
    auto v = facts.values.find(name);
    if (v == facts.values.end()) return {};
    if (bindings >= 0 && static_cast<std::size_t>(bindings) != v->second.size()) return {};
    return agree(v->second, false, depth);
  }

  // The type of a class's attribute `name`, from its body and the methods assigning self.name.
  Typed attribute_type(TSNode cls, std::string_view name, int depth) const {
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
    return bound_type(both, name, -1, depth);
  }

  const TypeFacts* scope_facts(TSNode def) const {
    auto s = scopes_.find(scope_key(def));
    return s == scopes_.end() ? nullptr : &s->second.facts;
  }
  const TypeFacts* attribute_facts(TSNode cls) const {
    auto a = attributes_.find(scope_key(cls));
    return a == attributes_.end() ? nullptr : &a->second;
  }

  bool is_parameter(TSNode fn, std::string_view name) const {
    TSNode params = ts_node_child_by_field_name(fn, "parameters", 10);
    for (std::uint32_t i = 0; !ts_node_is_null(params) && i < ts_node_named_child_count(params);
         ++i) {
      TSNode p = ts_node_named_child(params, i);
      if (is_type(p, "default_parameter")) p = ts_node_child_by_field_name(p, "name", 4);
      if (is_type(p, "identifier") && text(p) == name) return true;
    }
    return false;
  }

  // pytest hands a test (or a fixture) the value of the fixture its parameter is named after:
  // one of this file (the test's class first), else one of the conftest.py files up the folders,
  // the nearest that defines it.
  Typed fixture_type(TSNode fn, std::string_view name) const {
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
  Typed name_type(TSNode at, std::string_view name, int depth) const {
    TSNode def = enclosing_def(at);
    for (; !ts_node_is_null(def); def = enclosing_def(def)) {
      if (is_class(def)) continue;  // class bodies are not enclosing scopes
      auto s = scopes_.find(scope_key(def));
      if (s == scopes_.end()) continue;
      if (auto b = s->second.names.find(name); b != s->second.names.end()) {
        return binding_type(b->second);
      }
      auto count = s->second.locals.find(name);
      if (count == s->second.locals.end()) continue;
      TSNode cls = enclosing_def(def);
      if ((name == "self" || name == "cls") && !ts_node_is_null(cls) && is_class(cls) &&
          is_parameter(def, name)) {
        return {"T:" + fqn_of(cls), "attribute"};
      }
      auto key = std::make_pair(scope_key(def), std::string(name));
      if (auto c = local_types_.find(key); c != local_types_.end()) return c->second;
      local_types_[key] = {};  // a cycle through this name finds nothing
      Typed t = bound_type(s->second.facts, name, count->second, depth);
      if (t.empty() && count->second == 1 && is_parameter(def, name) &&
          s->second.facts.annotations.count(name) == 0) {
        t = fixture_type(def, name);
      }
      return local_types_[key] = t;
    }
    auto m = scopes_.find(UINT32_MAX);
    if (m == scopes_.end()) return {};
    if (auto b = m->second.names.find(name); b != m->second.names.end()) {
      return binding_type(b->second);
    }
    auto key = std::make_pair(UINT32_MAX, std::string(name));
    if (auto c = local_types_.find(key); c != local_types_.end()) return c->second;
    local_types_[key] = {};
    return local_types_[key] = bound_type(m->second.facts, name, -1, depth);
  }

  // A name bound to a class is that class; an imported name is whatever the name is there.
  static Typed binding_type(const Binding& b) {
    if (b.is_class) return {"S:" + b.fqn, "constructor"};
    if (b.evidence == "import") return {"S:" + b.fqn, "attribute"};
    return {};  // a function or a module as a value has no class
  }

  // What local evidence says of the type of an expression's value.
  Typed value_type(TSNode e, int depth) const {
    if (depth > MAX_TYPE_DEPTH || ts_node_is_null(e)) return {};
    if (is_type(e, "parenthesized_expression") || is_type(e, "await")) {
      return ts_node_named_child_count(e) == 1 ? value_type(ts_node_named_child(e, 0), depth + 1)
                                               : Typed{};
    }
    if (is_type(e, "identifier")) return name_type(e, text(e), depth);
    bool call = is_type(e, "call");
    TSNode head = call ? ts_node_child_by_field_name(e, "function", 8) : e;
    if (!call && !is_type(e, "attribute")) return {};
    auto parts = dotted(head);
    if (!parts.empty()) {
      if (auto b = lookup(head, parts[0])) {
        if (!call && parts.size() == 1) return binding_type(*b);
        if (call && parts.size() == 1 && is_local_function(*b))
          return {"S:" + b->fqn, "result-type"};
        std::string fqn = b->fqn, steps;
        for (std::size_t k = 1; k < parts.size(); ++k) {
          fqn = join_dotted(fqn, parts[k]);
          steps.append("/").append(parts[k]);
        }
        bool cls = (parts.size() == 1 && b->is_class) ||
                   std::isupper(static_cast<unsigned char>(parts.back()[0])) != 0;
        Typed t{"S:" + fqn, !call ? "attribute" : cls ? "constructor" : "result-type"};
        // An imported name is a module (its names are symbols) or a value (they are attributes).
        if (parts.size() > 1 && b->evidence == "import") {
          t.expr += "|S:" + b->fqn + steps + (call ? "()" : "");
        }
        return t;
      }
    }
    if (call && is_type(head, "identifier") && text(head) == "cls") {  // `cls(...)`: an instance
      Typed c = name_type(head, "cls", depth);
      if (c.expr.starts_with("T:") && c.expr.find('/') == std::string::npos) {
        return {c.expr, "constructor"};
      }
    }
    if (!is_type(head, "attribute")) return {};
    TSNode object = ts_node_child_by_field_name(head, "object", 6);
    if (is_type(object, "call") &&
        text(ts_node_child_by_field_name(object, "function", 8)) == "super") {
      return {};
    }
    Typed of = value_type(object, depth + 1);
    if (of.empty()) return {};
    std::string step = "/" + std::string(text(ts_node_child_by_field_name(head, "attribute", 9)));
    if (call) step += "()";
    return {then(of.expr, step), call ? "result-type" : "attribute"};
  }

  // A function's result: its return annotation, else the one type all its returns agree on; a
  // generator has none, but a fixture that yields gives what it yields.
  std::string result_type(TSNode fn) const {
    auto key = ts_node_start_byte(fn);
    auto y = yields_.find(key);
    bool fixture = !fixture_name(fn).empty();
    if (y != yields_.end() && !fixture) return "";
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
    } else if (auto r = returns_.find(key); r != returns_.end()) {
      values = r->second;
    }
    return agree(values, false, 0).expr;
  }

  // Symbols' types, and the typed attributes of classes (not symbols of their own) as fields.
  void collect_types() {
    std::unordered_set<std::string> known;
    for (const auto& s : out_.symbols) known.insert(s.fqn);
    for (const auto& [node, index] : typed_symbols_) {
      auto& s = out_.symbols[index];
      s.type_of = s.kind == "variable" ? name_type(node, s.name, 0).expr : result_type(node);
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
        if (known.count(join_dotted(cls.fqn, name)) != 0) continue;  // a method or nested class
        auto t = attribute_type(node, name, 0);
        if (!t.empty()) cls.fields.emplace_back(name, std::move(t.expr));
      }
    }
  }

  // Names the callee where local evidence does. Where the method may live on a base in another
  // file, or only the receiver's type is known, the receiver's type goes along for the writer.
  void resolve(TSNode callee, ParsedCall& call) const {
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
        call.receiver = "T:" + bases[0];
        call.member = attr;
        return;
      }
    }
    auto parts = dotted(callee);
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
        // `Cls.method()`: the method may be inherited, from a base in another file.
        if (parts.size() == 2 && !binding_type(*b).empty()) {
          call.receiver = binding_type(*b).expr;
          call.member = parts[1];
        }
        return;
      }
    }
    if (std::strcmp(type, "attribute") != 0) return;
    Typed of = value_type(ts_node_child_by_field_name(callee, "object", 6), 0);
    if (of.empty()) return;
    call.receiver = std::move(of.expr);
    call.member = text(ts_node_child_by_field_name(callee, "attribute", 9));
    call.evidence = std::move(of.evidence);
  }

  void collect_calls() {
    for (const auto& [callee, decorator] : sites_) {
      if (!decorator && decorator_calls_.count(ts_node_start_byte(callee)) != 0) continue;
      ParsedCall call;
      call.line = line(callee);
      // A decorator stands before its definition, so the caller is the enclosing scope.
      call.caller_fqn = fqn_of(enclosing_def(callee));
      resolve(callee, call);
      if (decorator && !call.target.empty()) call.evidence = "decorator";
      out_.calls.push_back(std::move(call));
    }
  }

  const utils::Language& language_;
  const Query& q_;
  std::string path_;
  std::string module_;
  std::string_view src_;
  TSNode root_{};
  ParsedFile out_;
  std::unordered_map<std::uint32_t, std::string> signatures_, docstrings_, def_fqn_;
  std::unordered_map<std::uint32_t, Scope> scopes_;
  std::unordered_map<std::uint32_t, std::int64_t> decorated_line_;
  static constexpr std::size_t NONE = static_cast<std::size_t>(-1);
  std::vector<Def> defs_;
  struct Tag {
    TSNode node, name;
    Role role;
  };
  std::vector<Tag> tags_;
  std::vector<TSNode> imports_, locals_;
  std::vector<std::pair<TSNode, bool>> sites_;  // callee, is a decorator
  std::unordered_set<std::uint32_t> decorator_calls_;
  std::vector<std::pair<TSNode, TSNode>> instances_;  // local name, what it was built from
  std::vector<std::pair<TSNode, std::size_t>> class_nodes_;
  std::map<std::string, std::vector<std::string>> bases_;
  // Type evidence: what the type queries matched, then sorted by scope (a def's start byte).
  struct Fact {
    TSNode target;  // a name, or an attribute `self.x`
    TSNode what;    // its annotation or its value
    bool typed;     // an annotation
  };
  std::vector<Fact> name_facts_, attribute_facts_;
  std::vector<TSNode> returned_, yielded_;
  std::unordered_map<std::uint32_t, TSNode> decorators_;  // definition -> decorated_definition
  std::unordered_map<std::uint32_t, std::vector<TSNode>> returns_, yields_;  // by function
  std::unordered_map<std::uint32_t, TypeFacts> attributes_;  // by class: self.x bindings
  std::unordered_map<std::uint32_t, std::map<std::string, std::string, std::less<>>>
      fixtures_;                                               // by scope: fixture name -> fqn
  std::vector<std::pair<TSNode, std::size_t>> typed_symbols_;  // functions and variables
  mutable std::map<std::pair<std::uint32_t, std::string>, Typed> local_types_;
};

}  // namespace

std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name) {
  return module_from(path, packages, root_name);
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  return Extraction(language, path, module, content).run();
}

}  // namespace orvane_tamsel::indexer::python
