#include "orvane_tamsel/indexer/languages/javascript.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::javascript {

namespace {

constexpr std::array<std::string_view, 8> EXTENSIONS = {".d.ts", ".ts",  ".tsx", ".mts",
                                                        ".cts",  ".jsx", ".mjs", ".cjs"};
constexpr std::array<std::string_view, 6> TEST_BLOCKS = {"describe", "it",      "test",
                                                         "suite",    "context", "specify"};

std::string strip_extension(std::string_view path) {
  for (auto ext : EXTENSIONS) {
    if (path.ends_with(ext)) return std::string(path.substr(0, path.size() - ext.size()));
  }
  if (path.ends_with(".js")) path.remove_suffix(3);
  return std::string(path);
}

// `a/./b/../c` gives `a/c`; a `..` above the root is kept, so it matches no file of the index.
std::string normalize(std::string_view path) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    auto end = std::min(path.find('/', start), path.size());
    std::string part(path.substr(start, end - start));
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else {
        parts.push_back(part);
      }
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
  return out;
}

// A test block's title as one name: `adds an item` gives adds_an_item.
std::string block_name(std::string_view title) {
  std::string out;
  for (char c : title) {
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$' ||
        (static_cast<unsigned char>(c) & 0x80)) {
      out.push_back(c);
    } else if (!out.empty() && out.back() != '_') {
      out.push_back('_');
    }
  }
  while (!out.empty() && out.back() == '_') out.pop_back();
  return out;
}

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::string top_prefix() const override { return module_; }

  // Where a declaration's doc comment and signature start: an `export` or `const` around it.
  TSNode outer(TSNode node) const {
    TSNode parent = ts_node_parent(node);
    if (is(node, "variable_declarator") &&
        (is(parent, "lexical_declaration") || is(parent, "variable_declaration"))) {
      node = parent;
      parent = ts_node_parent(node);
    }
    return is(parent, "export_statement") ? parent : node;
  }

  bool inside_class_body() const {
    return frames_.size() >= 2 && is(frames_[frames_.size() - 2].node, "class_body");
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    tagged::Definition def;
    def.name = text(tag.name);
    def.host = outer(tag.node);
    const auto& role = tag.role;
    if (role == "class" || role == "interface" || role == "enum") {
      def.kind = role;
      def.opens_scope = true;
    } else if (role == "module") {
      def.kind = "namespace";
      def.opens_scope = true;
    } else if (role == "type") {
      def.kind = "type";
    } else if (role == "method") {
      def.kind = def.name == "constructor" ? "constructor" : "method";
    } else if (role == "function") {
      // `obj.f = function` and object literal members are not declarations worth a symbol
      if (is(tag.node, "assignment_expression") || is(tag.node, "pair")) return std::nullopt;
      if (is(tag.node, "function_expression") &&
          !is(ts_node_parent(tag.node), "parenthesized_expression") &&
          !is(ts_node_parent(tag.node), "expression_statement")) {
        return std::nullopt;  // a named function value: its binding is the symbol
      }
      def.kind = inside_class_body() ? "method" : "function";
    } else if (role == "block") {
      if (std::find(TEST_BLOCKS.begin(), TEST_BLOCKS.end(), def.name) == TEST_BLOCKS.end()) {
        return std::nullopt;
      }
      TSNode args = ts_node_child_by_field_name(tag.node, "arguments", 9);
      auto title = std::string(text(ts_node_named_child(args, 0)));
      def.name = block_name(title.size() >= 2 ? std::string_view(title).substr(1, title.size() - 2)
                                              : std::string_view());
      if (def.name.empty()) return std::nullopt;
      def.kind = "function";
      def.is_test = true;
      def.opens_scope = true;
    } else {
      return std::nullopt;
    }
    return def;
  }

  std::string signature_of(TSNode host) const override {
    if (is(host, "call_expression")) {  // a test block: `it('adds an item')`
      TSNode args = ts_node_child_by_field_name(host, "arguments", 9);
      return field_text(host, "function") + "(" + std::string(text(ts_node_named_child(args, 0))) +
             ")";
    }
    TSNode node = host;
    for (int depth = 0; depth < 4 && !ts_node_is_null(node); ++depth) {
      TSNode body = ts_node_child_by_field_name(node, "body", 4);
      if (!ts_node_is_null(body))
        return flatten(ts_node_start_byte(host), ts_node_start_byte(body));
      if (is(node, "export_statement")) {
        node = ts_node_child_by_field_name(node, "declaration", 11);
      } else if (is(node, "lexical_declaration") || is(node, "variable_declaration")) {
        node = ts_node_named_child(node, 0);
      } else if (is(node, "variable_declarator")) {
        node = ts_node_child_by_field_name(node, "value", 5);
      } else {
        break;
      }
    }
    return tagged::Extraction::signature_of(host);
  }

  // The module a specifier names: relative ones from this file's folder, packages by their name.
  std::string module_of(std::string_view specifier) const {
    if (!specifier.starts_with(".")) {
      std::string out(specifier);
      std::replace(out.begin(), out.end(), '/', '.');
      return out;
    }
    auto slash = path_.rfind('/');
    std::string dir = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
    return module_name(normalize(dir + std::string(specifier)), {}, module_);
  }

  static std::string unquote(std::string_view s) {
    return s.size() >= 2 ? std::string(s.substr(1, s.size() - 2)) : std::string();
  }

  void bind_import(TSNode node, const std::string& module, std::string_view name,
                   std::string_view alias) {
    std::string bound(alias.empty() ? name : alias);
    out_.imports.push_back({line(node), module, std::string(name),
                            alias == name ? std::string() : std::string(alias)});
    bindings_[bound] = name.empty() ? module : join(module, name);
    if (name.empty()) whole_modules_.insert(bound);
  }

  void visit(TSNode node) override {
    if (is(node, "function_signature") || is(node, "method_signature") ||
        is(node, "abstract_method_signature")) {
      auto symbol = frames_.back().symbol;
      if (symbol == NONE && frames_.size() >= 2 &&
          is(frames_[frames_.size() - 2].node, "export_statement")) {
        symbol = frames_[frames_.size() - 2].symbol;
      }
      if (symbol != NONE) overloads_.insert(symbol);
    }
    if (is(node, "call_expression") && frames_.back().symbol != NONE) {
      blocks_.insert(out_.symbols[frames_.back().symbol].fqn);
    }
    if (is(node, "class_declaration") || is(node, "class") ||
        is(node, "abstract_class_declaration")) {
      // an exported class is the symbol of its export statement
      auto symbol = frames_.back().symbol;
      if (symbol == NONE && frames_.size() >= 2) symbol = frames_[frames_.size() - 2].symbol;
      if (symbol != NONE) record_base(node, symbol);
    }
    if (is(node, "import_statement")) {
      record_import(node);
    } else if (is(node, "variable_declarator")) {
      record_variable(node);
    } else if (is(node, "jsx_opening_element") || is(node, "jsx_self_closing_element")) {
      // `<CartView />` renders, that is calls, a component
      TSNode name = ts_node_child_by_field_name(node, "name", 4);
      if (is(name, "identifier") && std::isupper(static_cast<unsigned char>(text(name)[0]))) {
        add_call(node, name);
      }
    } else if (is(node, "new_expression")) {
      add_call(node, ts_node_child_by_field_name(node, "constructor", 11));
    } else if (is(node, "required_parameter")) {
      // `cart: Cart` tells the type behind `cart.x()`; with `private` it is a field, `this.cart`
      TSNode name = ts_node_child_by_field_name(node, "pattern", 7);
      auto type = annotated_type(node);
      if (type.empty() || !is(name, "identifier")) return;
      locals_[current_callable()][std::string(text(name))] = type;
      if (is(ts_node_named_child(node, 0), "accessibility_modifier")) {
        fields_[std::string(text(name))] = type;
      }
    } else if (is(node, "public_field_definition")) {
      auto type = annotated_type(node);
      if (!type.empty()) fields_[field_text(node, "name")] = type;
    }
  }

  // `class A extends B`: B's name, resolved once the whole file is read.
  void record_base(TSNode cls, std::size_t symbol) {
    for (std::uint32_t i = 0; i < ts_node_named_child_count(cls); ++i) {
      TSNode heritage = ts_node_named_child(cls, i);
      if (!is(heritage, "class_heritage")) continue;
      TSNode base = ts_node_named_child(heritage, 0);
      if (is(base, "extends_clause")) base = ts_node_child_by_field_name(base, "value", 5);
      if (is(base, "identifier")) base_names_.emplace_back(symbol, std::string(text(base)));
    }
  }

  // The bases of a class in lookup order, through the ones of this file.
  std::vector<std::string> ancestry(const std::string& cls) const {
    std::vector<std::string> out;
    for (std::string c = cls; out.size() < 8;) {
      auto it = defined_.find(c);
      if (it == defined_.end() || out_.symbols[it->second].bases.empty()) break;
      c = out_.symbols[it->second].bases.front();
      out.push_back(c);
    }
    return out;
  }

  void with_bases(ParsedCall& call, const std::string& cls, const std::string& member) {
    if (!bases_done_) {
      for (const auto& [symbol, name] : base_names_) {
        if (auto hit = lookup(name)) out_.symbols[symbol].bases.push_back(hit->first);
      }
      bases_done_ = true;
    }
    call.target = join(cls, member);
    for (const auto& b : ancestry(cls)) call.fallbacks.push_back(join(b, member));
  }

  std::string annotated_type(TSNode node) const {
    TSNode annotation = ts_node_child_by_field_name(node, "type", 4);
    if (ts_node_is_null(annotation) || ts_node_named_child_count(annotation) == 0) return {};
    TSNode type = ts_node_named_child(annotation, 0);
    if (is(type, "generic_type")) type = ts_node_child_by_field_name(type, "name", 4);
    return is(type, "type_identifier") ? std::string(text(type)) : std::string();
  }

  void record_import(TSNode node) {
    auto module = module_of(unquote(field_text(node, "source")));
    if (module.empty()) return;
    TSNode clause{};
    for (std::uint32_t i = 0; i < ts_node_named_child_count(node); ++i) {
      if (is(ts_node_named_child(node, i), "import_clause")) clause = ts_node_named_child(node, i);
    }
    if (ts_node_is_null(clause)) {
      out_.imports.push_back({line(node), module, "", ""});
      return;
    }
    for (std::uint32_t i = 0; i < ts_node_named_child_count(clause); ++i) {
      TSNode part = ts_node_named_child(clause, i);
      if (is(part, "identifier")) {  // the default export, named here as the importer likes
        bind_import(node, module, text(part), "");
      } else if (is(part, "namespace_import")) {
        TSNode id = ts_node_named_child(part, 0);
        if (!ts_node_is_null(id)) bind_import(node, module, "", text(id));
      } else if (is(part, "named_imports")) {
        for (std::uint32_t j = 0; j < ts_node_named_child_count(part); ++j) {
          TSNode specifier = ts_node_named_child(part, j);
          if (!is(specifier, "import_specifier")) continue;
          bind_import(node, module, field_text(specifier, "name"), field_text(specifier, "alias"));
        }
      }
    }
  }

  // `const m = require('./m')`, `const {a, b: c} = require('./m')`, `const c = new Cart()`.
  void record_variable(TSNode node) {
    TSNode name = ts_node_child_by_field_name(node, "name", 4);
    TSNode value = ts_node_child_by_field_name(node, "value", 5);
    if (ts_node_is_null(name)) return;
    auto type = annotated_type(node);
    if (is(value, "new_expression")) {
      TSNode ctor = ts_node_child_by_field_name(value, "constructor", 11);
      if (is(ctor, "identifier")) type = text(ctor);
    }
    if (!type.empty() && is(name, "identifier")) {
      locals_[current_callable()][std::string(text(name))] = type;
      return;
    }
    if (!is(value, "call_expression") || field_text(value, "function") != "require") return;
    TSNode args = ts_node_child_by_field_name(value, "arguments", 9);
    TSNode specifier = ts_node_named_child(args, 0);
    if (!is(specifier, "string")) return;
    auto module = module_of(unquote(text(specifier)));
    if (is(name, "identifier")) {
      bind_import(node, module, "", text(name));
    } else if (is(name, "object_pattern")) {
      for (std::uint32_t i = 0; i < ts_node_named_child_count(name); ++i) {
        TSNode p = ts_node_named_child(name, i);
        if (is(p, "shorthand_property_identifier_pattern")) {
          bind_import(node, module, text(p), "");
        } else if (is(p, "pair_pattern")) {
          bind_import(node, module, field_text(p, "key"), field_text(p, "value"));
        }
      }
    }
  }

  // The fqn a name in this file stands for: a top-level definition, else an import.
  std::optional<std::pair<std::string, std::string>> lookup(const std::string& name) const {
    auto own = join(module_, name);
    if (defined_.count(own) != 0 && blocks_.count(own) == 0) {
      return std::pair{own, std::string("same-file")};
    }
    if (auto b = bindings_.find(name); b != bindings_.end()) {
      return std::pair{b->second, std::string("import")};
    }
    return std::nullopt;
  }

  std::string type_of(std::size_t caller, const std::string& var) const {
    for (std::size_t key : {caller, std::size_t{0}}) {
      auto l = locals_.find(key);
      if (l == locals_.end()) continue;
      if (auto t = l->second.find(var); t != l->second.end()) return t->second;
    }
    return {};
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(callee, "identifier")) {
      std::string name(text(callee));
      if (auto hit = lookup(name)) {
        call.target = hit->first;
        call.evidence = is(pending.call, "new_expression") ? "constructor" : hit->second;
        exported_class(call, name, "");
      }
      return;
    }
    if (is(callee, "property_identifier")) callee = ts_node_parent(callee);
    if (!is(callee, "member_expression")) return;
    TSNode object = ts_node_child_by_field_name(callee, "object", 6);
    std::string property = field_text(callee, "property");
    const auto& scope = prefix_of(pending.caller);
    bool in_class = pending.caller != 0 && scope != module_;
    if (is(object, "this")) {
      if (!in_class) return;
      with_bases(call, scope, property);
      call.evidence = "this";
      return;
    }
    std::string type;
    if (is(object, "member_expression") &&
        is(ts_node_child_by_field_name(object, "object", 6), "this")) {
      auto f = fields_.find(field_text(object, "property"));
      if (f == fields_.end()) return;
      type = f->second;
    } else if (is(object, "identifier")) {
      std::string var(text(object));
      type = type_of(pending.caller, var);
      if (type.empty()) {  // a namespace import, an imported or own class
        if (auto hit = lookup(var)) {
          call.target = join(hit->first, property);
          call.evidence = hit->second;
          exported_class(call, var, property);
        }
        return;
      }
    } else {
      return;
    }
    if (auto hit = lookup(type)) {
      with_bases(call, hit->first, property);
      call.evidence = "instance";
      exported_class(call, type, property);
    }
  }

  // `const Cart = require('./cart')` binds the module, which often exports one class of that name:
  // the class is the fallback.
  void exported_class(ParsedCall& call, const std::string& bound, const std::string& member) const {
    if (whole_modules_.count(bound) == 0 || !std::isupper(static_cast<unsigned char>(bound[0]))) {
      return;
    }
    call.fallbacks.push_back(join(join(bindings_.at(bound), bound), member));
  }

 public:
  // Symbols declared by a signature without a body (an overload, an interface member).
  const std::set<std::size_t>& overloads() const { return overloads_; }

 private:
  std::set<std::size_t> overloads_;
  std::map<std::string, std::string, std::less<>> bindings_;     // imported name -> fqn
  std::map<std::string, std::string, std::less<>> fields_;       // `this.x` -> its declared type
  std::vector<std::pair<std::size_t, std::string>> base_names_;  // class symbol, base name
  bool bases_done_ = false;
  std::set<std::string> whole_modules_;  // names bound to a module itself
  std::set<std::string> blocks_;         // fqns of test blocks, which no code calls by name
  std::unordered_map<std::size_t, std::map<std::string, std::string>> locals_;  // by caller
};

}  // namespace

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  std::string p = strip_extension(path);
  if (p.starts_with("src/")) {
    p.erase(0, 4);
  } else if (auto src = p.find("/src/"); src != std::string::npos) {
    p.erase(0, src + 5);
  }
  if (p == "index") {
    p.clear();
  } else if (p.ends_with("/index")) {
    p.resize(p.size() - 6);
  }
  std::replace(p.begin(), p.end(), '/', '.');
  return p.empty() ? std::string(root_name) : p;
}

// The overload signatures of a function or method and its implementation are one symbol: the
// implementation's lines, the overloads' signatures (the ones callers see) one per line, and the
// first doc comment among them.
void merge_overloads(ParsedFile& file, const std::set<std::size_t>& overloads) {
  std::map<std::pair<std::string, std::string>, std::vector<std::size_t>> groups;
  for (auto i : overloads) groups[{file.symbols[i].fqn, file.symbols[i].kind}];
  if (groups.empty()) return;
  for (std::size_t i = 0; i < file.symbols.size(); ++i) {
    const auto& s = file.symbols[i];
    if (auto it = groups.find({s.fqn, s.kind}); it != groups.end()) it->second.push_back(i);
  }
  std::vector<bool> drop(file.symbols.size(), false);
  for (const auto& [key, members] : groups) {
    if (members.size() < 2) continue;
    auto keeper = members.front();
    for (auto i : members) {
      if (!overloads.contains(i)) {
        keeper = i;
        break;
      }
    }
    std::string signature;
    std::optional<std::string> doc;
    bool is_test = false;
    for (auto i : members) {
      const auto& s = file.symbols[i];
      if (overloads.contains(i) && s.signature) {
        signature += (signature.empty() ? "" : "\n") + *s.signature;
      }
      if (!doc) doc = s.docstring;
      is_test = is_test || s.is_test;
      if (i != keeper) drop[i] = true;
    }
    auto& kept = file.symbols[keeper];
    if (!signature.empty()) kept.signature = signature;
    kept.docstring = doc;
    kept.is_test = is_test;
  }
  std::size_t out = 0;
  for (std::size_t i = 0; i < file.symbols.size(); ++i) {
    if (drop[i]) continue;
    if (out != i) file.symbols[out] = std::move(file.symbols[i]);
    ++out;
  }
  file.symbols.resize(out);
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  auto file = rules.run();
  merge_overloads(file, rules.overloads());
  return file;
}

}  // namespace orvane_tamsel::indexer::javascript
