#pragma once
// The Rust extraction's rules: items, `use` bindings and how a call resolves (type_evidence.cpp
// holds what declarations and constructions say of types).

#include <algorithm>
#include <cctype>
#include <map>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::rust::detail {

inline std::vector<std::string> split(std::string_view s, std::string_view sep) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (;;) {
    auto at = s.find(sep, start);
    out.emplace_back(s.substr(start, at == std::string_view::npos ? at : at - start));
    if (at == std::string_view::npos) return out;
    start = at + sep.size();
  }
}

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::string top_prefix() const override { return module_; }
  bool is_comment(TSNode n) const override {
    return is(n, "line_comment") || is(n, "block_comment");
  }
  bool keeps_doc(TSNode n) const override { return is(n, "attribute_item"); }

  // The type an impl block adds to its methods' fqns: `impl<T> Cart<T>` and `impl X for Cart` give
  // Cart.
  std::string scope_of(TSNode node) override {
    if (!is(node, "impl_item")) return {};
    return type_name(ts_node_child_by_field_name(node, "type", 4));
  }

  std::string type_name(TSNode type) const {
    while (is(type, "generic_type") || is(type, "reference_type")) {
      type = ts_node_child_by_field_name(type, "type", 4);
    }
    if (is(type, "scoped_type_identifier")) type = ts_node_child_by_field_name(type, "name", 4);
    return is(type, "type_identifier") ? std::string(text(type)) : std::string();
  }

  // Whether an attribute before the item marks a test: `#[test]`, `#[tokio::test]`, `#[cfg(test)]`.
  bool has_test_attribute(TSNode item) const {
    for (TSNode s = ts_node_prev_named_sibling(item); !ts_node_is_null(s);
         s = ts_node_prev_named_sibling(s)) {
      if (is_comment(s)) continue;
      if (!is(s, "attribute_item")) break;
      auto t = text(s);
      if (t == "#[test]" || t.ends_with("::test]") || t == "#[cfg(test)]") return true;
    }
    return false;
  }

  bool inside_test_code() const {
    for (const auto& f : frames_) {
      if (f.symbol != NONE && f.symbol != 0 && out_.symbols[f.symbol].is_test) return true;
    }
    return false;
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    tagged::Definition def;
    def.name = text(tag.name);
    def.host = tag.node;
    def.is_test = has_test_attribute(tag.node) || inside_test_code();
    if (is(tag.node, "function_item")) {
      def.kind = frame_of_type("impl_item") != NONE || frame_of_type("trait_item") != NONE
                     ? "method"
                     : "function";
      return def;
    }
    if (is(tag.node, "mod_item")) {
      if (ts_node_is_null(ts_node_child_by_field_name(tag.node, "body", 4))) return std::nullopt;
      def.kind = "module";
      def.opens_scope = true;
      return def;
    }
    if (is(tag.node, "trait_item")) {
      def.kind = "trait";
      def.opens_scope = true;
    } else if (is(tag.node, "struct_item")) {
      def.kind = "struct";
    } else if (is(tag.node, "enum_item")) {
      def.kind = "enum";
    } else if (is(tag.node, "union_item")) {
      def.kind = "union";
    } else if (is(tag.node, "type_item")) {
      def.kind = "type";
    } else if (is(tag.node, "macro_definition")) {
      def.kind = "macro";
    } else if (tag.role == "constant") {
      def.kind = "variable";
    } else {
      return std::nullopt;
    }
    return def;
  }

  // A `use` path as an fqn: `crate::`, `self::` and `super::` are this crate's modules; another
  // crate's path keeps its name.
  std::string path_fqn(std::string_view path) const { return path_fqn(path, scope_module()); }
  std::string path_fqn(std::string_view path, const std::string& here) const {
    auto parts = split(path, "::");
    std::string base;
    std::size_t i = 0;
    if (parts[0] == "crate") {
      base = crate_;
      i = 1;
    } else if (parts[0] == "self") {
      base = here;
      i = 1;
    } else {
      base = here;
      while (i < parts.size() && parts[i] == "super") {
        auto dot = base.rfind('.');
        base = dot == std::string::npos ? crate_ : base.substr(0, dot);
        ++i;
      }
      if (i == 0) base.clear();
    }
    for (; i < parts.size(); ++i) base = join(base, parts[i]);
    return base;
  }

  // The module the code being read sits in: the file's, or an inline `mod` inside it.
  std::string scope_module() const {
    std::string out = module_;
    for (const auto& f : frames_) {
      if (is(f.node, "mod_item") && !f.scope.empty()) out = join(out, f.scope);
    }
    return out;
  }

  void bind(TSNode node, const std::string& prefix, TSNode tree) {
    if (is(tree, "scoped_identifier") || is(tree, "identifier") || is(tree, "crate") ||
        is(tree, "self") || is(tree, "super")) {
      std::string path =
          prefix.empty() ? std::string(text(tree)) : prefix + "::" + std::string(text(tree));
      auto fqn = path_fqn(path);
      auto dot = fqn.rfind('.');
      auto name = split(path, "::").back();
      out_.imports.push_back(
          {line(node), dot == std::string::npos ? fqn : fqn.substr(0, dot), name, ""});
      bindings_[name] = fqn;
    } else if (is(tree, "use_as_clause")) {
      TSNode p = ts_node_child_by_field_name(tree, "path", 4);
      std::string path =
          prefix.empty() ? std::string(text(p)) : prefix + "::" + std::string(text(p));
      auto fqn = path_fqn(path);
      auto alias = field_text(tree, "alias");
      auto dot = fqn.rfind('.');
      out_.imports.push_back({line(node), dot == std::string::npos ? fqn : fqn.substr(0, dot),
                              split(path, "::").back(), alias});
      bindings_[alias] = fqn;
    } else if (is(tree, "scoped_use_list")) {
      std::string inner = field_text(tree, "path");
      std::string path = prefix.empty() ? inner : inner.empty() ? prefix : prefix + "::" + inner;
      TSNode list = ts_node_child_by_field_name(tree, "list", 4);
      for (std::uint32_t i = 0; i < ts_node_named_child_count(list); ++i) {
        bind(node, path, ts_node_named_child(list, i));
      }
    } else if (is(tree, "use_list")) {
      for (std::uint32_t i = 0; i < ts_node_named_child_count(tree); ++i) {
        bind(node, prefix, ts_node_named_child(tree, i));
      }
    } else if (is(tree, "use_wildcard")) {
      TSNode p = ts_node_named_child(tree, 0);
      std::string path = ts_node_is_null(p) ? prefix : std::string(text(p));
      out_.imports.push_back({line(node), path_fqn(path), "", ""});
    }
  }

  // A macro's arguments are a token tree, not expressions: `name (`, `path::name (` and
  // `value.name (` in it are read as the call sites they expand to.
  void scan_token_tree(TSNode tree) {
    std::size_t up = frames_.size() - 1;
    while (up > 0 && is(frames_[up - 1].node, "token_tree")) --up;
    if (up == 0 || !is(frames_[up - 1].node, "macro_invocation")) return;
    TSNode prev{};
    for (std::uint32_t i = 0; i < ts_node_child_count(tree); ++i) {
      TSNode child = ts_node_child(tree, i);
      if (is(child, "token_tree") && is(prev, "identifier") && is(ts_node_child(child, 0), "(")) {
        add_call(child, prev);
      }
      prev = child;
    }
  }

  void visit(TSNode node) override {
    if (frames_.back().symbol != NONE) modules_[frames_.back().symbol] = scope_module();
    if (is(node, "token_tree")) {
      scan_token_tree(node);
    } else if (is(node, "use_declaration")) {
      bind(node, "", ts_node_child_by_field_name(node, "argument", 8));
    } else if (is(node, "let_declaration") || is(node, "parameter") ||
               is(node, "closure_parameters") || is(node, "for_expression")) {
      declarations_.emplace_back(current_callable(), node);
    } else if (is(node, "function_item") || is(node, "function_signature_item")) {
      if (frames_.back().symbol != NONE) results_.emplace_back(frames_.back().symbol, node);
    } else if (is(node, "struct_item")) {
      if (frames_.back().symbol != NONE) structs_.emplace_back(frames_.back().symbol, node);
    } else if (is(node, "impl_item") &&
               !ts_node_is_null(ts_node_child_by_field_name(node, "trait", 5))) {
      impls_.push_back(node);
    }
  }

  // The fqn a type or item name stands for here: a use binding, else an item of this file.
  std::optional<std::pair<std::string, std::string>> lookup(const std::string& name) const {
    if (auto b = bindings_.find(name); b != bindings_.end())
      return std::pair{b->second, std::string("import")};
    for (const auto& [fqn, index] : defined_) {
      const auto& s = out_.symbols[index];
      if (s.name == name && s.kind != "method" && prefix_of(index) == module_) {
        return std::pair{fqn, std::string("same-file")};
      }
    }
    return std::nullopt;
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(ts_node_parent(callee), "macro_invocation")) {
      auto own = join(module_, text(callee));
      if (defined_.count(own) != 0) {
        call.target = own;
        call.evidence = "same-file";
      }
      return;
    }
    if (is(ts_node_parent(callee), "token_tree")) {
      resolve_token(pending, callee, call);
    } else if (is(callee, "identifier")) {
      resolve_name(pending, std::string(text(callee)), call);
    } else {
      if (is(callee, "field_identifier")) callee = ts_node_parent(callee);
      if (is(callee, "scoped_identifier")) {
        resolve_path(pending, field_text(callee, "path"), field_text(callee, "name"), call);
      } else if (is(callee, "field_expression")) {
        resolve_member(pending, ts_node_child_by_field_name(callee, "value", 5),
                       field_text(callee, "field"), call);
      }
    }
  }

  // A call read from a macro's tokens: what precedes the name tells its shape.
  void resolve_token(const tagged::PendingCall& pending, TSNode name, ParsedCall& call) {
    TSNode prev = ts_node_prev_sibling(name);
    if (is(prev, ".")) {
      TSNode value = ts_node_prev_sibling(prev);
      TSNode before = ts_node_prev_sibling(value);
      if ((is(value, "self") || is(value, "identifier")) && !is(before, ".") && !is(before, "::"))
        resolve_member(pending, value, std::string(text(name)), call);
      return;
    }
    if (is(prev, "::")) {
      std::string path;
      for (TSNode part = ts_node_prev_sibling(prev); !ts_node_is_null(part);) {
        if (!is(part, "identifier") && !is(part, "self") && !is(part, "super") &&
            !is(part, "crate")) {
          return;  // `<T>::f(`, `x.y::f(`: not a plain path
        }
        path = path.empty() ? std::string(text(part)) : std::string(text(part)) + "::" + path;
        TSNode sep = ts_node_prev_sibling(part);
        if (!is(sep, "::")) break;
        part = ts_node_prev_sibling(sep);
      }
      if (!path.empty()) resolve_path(pending, path, std::string(text(name)), call);
      return;
    }
    // `fn f(` in a macro that writes items defines rather than calls
    for (const char* keyword : {"fn", "struct", "enum", "union", "trait", "mod", "macro_rules"}) {
      if (is(prev, keyword)) return;
    }
    resolve_name(pending, std::string(text(name)), call);
  }

  void resolve_name(const tagged::PendingCall& pending, const std::string& name, ParsedCall& call) {
    auto m = modules_.find(pending.caller);
    const std::string& here = m == modules_.end() ? module_ : m->second;
    for (auto s = here;;) {
      if (defined_.count(join(s, name)) != 0 &&
          out_.symbols[defined_.at(join(s, name))].kind == "function") {
        call.target = join(s, name);
        call.evidence = "same-file";
        return;
      }
      if (s == module_) break;
      s = s.substr(0, s.rfind('.'));
    }
    if (auto b = bindings_.find(name); b != bindings_.end()) {
      call.target = b->second;
      call.evidence = "import";
      external_fallback(call);
    }
  }

  void resolve_path(const tagged::PendingCall& pending, const std::string& path,
                    const std::string& name, ParsedCall& call) {
    const auto& scope = prefix_of(pending.caller);
    auto m = modules_.find(pending.caller);
    const std::string& here = m == modules_.end() ? module_ : m->second;
    if (path == "Self") {
      if (scope == module_) return;
      call.target = join(scope, name);
      call.evidence = "receiver";
      return;
    }
    auto parts = split(path, "::");
    std::string head;
    if (parts[0] == "crate" || parts[0] == "self" || parts[0] == "super") {
      head = path_fqn(path, here);
      call.evidence = "import";
    } else if (auto hit = lookup(parts[0])) {
      head = hit->first;
      for (std::size_t i = 1; i < parts.size(); ++i) head = join(head, parts[i]);
      call.evidence = hit->second;
    } else {
      return;
    }
    call.target = join(head, name);
    external_fallback(call);
  }

  // `self.f()` names the impl's own method; any other receiver with a type declarations or
  // constructions describe is left to the writer.
  void resolve_member(const tagged::PendingCall& pending, TSNode value, const std::string& field,
                      ParsedCall& call) {
    const auto& scope = prefix_of(pending.caller);
    if (is(value, "self")) {
      if (scope == module_) return;
      if (defined_.count(join(scope, field)) == 0 && !own_type(pending.caller).empty()) {
        // a trait's default method, or a method of an impl in another file
        call.receiver = own_type(pending.caller);
        call.member = field;
        return;
      }
      call.target = join(scope, field);
      call.evidence = "receiver";
      return;
    }
    if (auto type = expr_type(value, pending.caller); !type.empty()) {
      call.receiver = std::move(type);
      call.member = field;
    }
  }

  void finish() override;

  // What declarations and constructions say of types (type_evidence.cpp).
  // The fqn a path of items names (`Cart`, `crate::cart::Cart`, `Self`), or empty.
  std::string item_fqn(std::string_view path, std::size_t fn) const;
  // The type a type node names, as an expression ("T:fqn"): references, smart pointers,
  // `Option` and `Result` give what they hold; `Vec<T>`, slices and arrays a container of T.
  TypeExpr type_expr(TSNode type, std::size_t fn) const;
  // The type of a value expression in callable `fn`, or empty when unknown.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const;
  TypeExpr own_type(std::size_t fn) const;
  void declare(std::size_t fn, TSNode pattern, const TypeExpr& type);
  void record_declaration(std::size_t fn, TSNode node);

  // Tests, benches and examples reach their own package through its crate name, which the files
  // do not tell: a path of another crate falls back to this repository's root crate.
  void external_fallback(ParsedCall& call) const {
    if (!separate_crate_ || call.target.starts_with(crate_ + ".")) return;
    auto dot = call.target.find('.');
    if (dot != std::string::npos) call.fallbacks.push_back(crate_ + call.target.substr(dot));
  }

 public:
  void set_crate(std::string crate, bool separate) {
    crate_ = std::move(crate);
    separate_crate_ = separate;
  }

 private:
  std::string crate_ = "crate";
  bool separate_crate_ = false;
  std::map<std::string, std::string, std::less<>> bindings_;  // `use`d name -> fqn
  std::unordered_map<std::size_t, std::string> modules_;      // symbol -> the module it is in
  std::vector<std::pair<std::size_t, TSNode>> declarations_;  // callable, node; document order
  std::vector<std::pair<std::size_t, TSNode>> results_;       // function symbol, its item
  std::vector<std::pair<std::size_t, TSNode>> structs_;       // struct symbol, its item
  std::vector<TSNode> impls_;                                 // `impl Trait for Type`
  // By callable: each local's type as an expression ("" when declared but unknown).
  std::unordered_map<std::size_t, std::map<std::string, TypeExpr, std::less<>>> locals_;
};

}  // namespace orvane_tamsel::indexer::rust::detail
