#pragma once
// The JavaScript and TypeScript extraction's rules: definitions, imports, bases and how a call
// resolves (type_evidence.cpp holds what annotations and constructions say of types).

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/javascript.h"
#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::javascript::detail {

inline constexpr std::array<std::string_view, 6> TEST_BLOCKS = {"describe", "it",      "test",
                                                                "suite",    "context", "specify"};

// `a/./b/../c` gives `a/c`; a `..` above the root is kept, so it matches no file of the index.
inline std::string normalize(std::string_view path) {
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
inline std::string block_name(std::string_view title) {
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
    } else if (is(node, "required_parameter") || is(node, "optional_parameter")) {
      // `cart: Cart` tells the type behind `cart.x()`; with `private` it is a field, `this.cart`
      declarations_.push_back({current_callable(), node});
      if (is(ts_node_named_child(node, 0), "accessibility_modifier")) {
        if (auto cls = class_of(frame_of_type("class_body")); cls != NONE)
          declarations_.push_back({cls, node, true});
      }
    } else if (is(node, "public_field_definition")) {
      if (auto cls = class_of(frame_of_type("class_body")); cls != NONE)
        declarations_.push_back({cls, node, true});
    } else if (is(node, "method_definition") || is(node, "function_declaration") ||
               is(node, "method_signature") || is(node, "function_signature") ||
               is(node, "abstract_method_signature")) {
      auto symbol = frames_.back().symbol;
      if (symbol == NONE && frames_.size() >= 2 &&
          is(frames_[frames_.size() - 2].node, "export_statement"))
        symbol = frames_[frames_.size() - 2].symbol;  // an exported function
      if (symbol != NONE) results_.emplace_back(symbol, node);
    } else if (is(node, "arrow_function") || is(node, "function_expression")) {
      // `const f = (): T => ...`: the symbol is the declaration's (or its export's)
      if (!is(ts_node_parent(node), "variable_declarator")) return;
      for (std::size_t up = 3; up <= 4 && up <= frames_.size(); ++up) {
        const auto& f = frames_[frames_.size() - up];
        if (f.symbol == NONE) continue;
        if (is(f.node, "lexical_declaration") || is(f.node, "variable_declaration") ||
            is(f.node, "export_statement"))
          results_.emplace_back(f.symbol, node);
        break;
      }
    }
  }

  // The class symbol whose body is the frame at `body`, or NONE.
  std::size_t class_of(std::size_t body) const {
    if (body == NONE || body == 0) return NONE;
    auto sym = frames_[body - 1].symbol;
    if (sym == NONE && body >= 2) sym = frames_[body - 2].symbol;  // an exported class
    return sym;
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

  void with_bases(ParsedCall& call, const std::string& cls, const std::string& member) const {
    call.target = join(cls, member);
    for (const auto& b : ancestry(cls)) call.fallbacks.push_back(join(b, member));
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
    if (is(name, "identifier")) declarations_.push_back({current_callable(), node});
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
      if (defined_.count(join(scope, property)) == 0 && defined_.count(scope) != 0) {
        // a method of a base, maybe in another file: the writer walks the bases
        call.receiver = "T:" + scope;
        call.member = std::move(property);
        return;
      }
      with_bases(call, scope, property);
      call.evidence = "this";
      return;
    }
    // a receiver whose type annotations or constructions describe: the writer resolves it
    if (auto type = expr_type(object, pending.caller); !type.empty()) {
      call.receiver = std::move(type);
      call.member = std::move(property);
      return;
    }
    if (is(object, "identifier") && !is_local(pending.caller, text(object))) {
      // a namespace import, an imported or own class
      std::string var(text(object));
      if (auto hit = lookup(var)) {
        call.target = join(hit->first, property);
        call.evidence = hit->second;
        exported_class(call, var, property);
      }
    }
  }

  void finish() override;

  // What annotations and constructions say of types (type_evidence.cpp).
  // The type an annotation (or a type node) names: "T:fqn", or empty.
  TypeExpr annotation_expr(TSNode node) const;
  TypeExpr type_expr(TSNode type) const;
  // The type of a value expression in callable `fn`, or empty when unknown.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const;
  TypeExpr own_class(std::size_t fn) const;
  bool is_local(std::size_t fn, std::string_view name) const;
  void declare(std::size_t fn, TSNode name, const TypeExpr& type);

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
  std::vector<std::pair<std::size_t, std::string>> base_names_;  // class symbol, base name
  std::set<std::string> whole_modules_;                          // names bound to a module itself
  std::set<std::string> blocks_;  // fqns of test blocks, which no code calls by name
  struct Declaration {
    std::size_t owner = 0;  // the callable, or the class of a field
    TSNode node{};
    bool field = false;
  };
  std::vector<Declaration> declarations_;                // in document order
  std::vector<std::pair<std::size_t, TSNode>> results_;  // callable symbol, its declaration
  // By callable (0: the module): each local's type ("" when declared but unknown).
  std::unordered_map<std::size_t, std::map<std::string, TypeExpr, std::less<>>> locals_;
};

}  // namespace orvane_tamsel::indexer::javascript::detail
