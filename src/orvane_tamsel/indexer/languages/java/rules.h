#pragma once
// The Java extraction's rules: definitions, imports, bases and how a call resolves
// (type_evidence.cpp holds what declarations say of types).

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <map>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::java::detail {

inline constexpr std::array<std::string_view, 5> TEST_ANNOTATIONS = {
    "Test", "ParameterizedTest", "RepeatedTest", "TestFactory", "TestTemplate"};

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::string top_prefix() const override { return package_; }
  bool is_comment(TSNode n) const override {
    return is(n, "block_comment") || is(n, "line_comment");
  }

  bool has_test_annotation(TSNode declaration) const {
    for (std::uint32_t i = 0; i < ts_node_named_child_count(declaration); ++i) {
      TSNode mods = ts_node_named_child(declaration, i);
      if (!is(mods, "modifiers")) continue;
      for (std::uint32_t j = 0; j < ts_node_named_child_count(mods); ++j) {
        TSNode a = ts_node_named_child(mods, j);
        if (!is(a, "marker_annotation") && !is(a, "annotation")) continue;
        auto name = field_text(a, "name");
        if (auto dot = name.rfind('.'); dot != std::string::npos) name.erase(0, dot + 1);
        if (std::find(TEST_ANNOTATIONS.begin(), TEST_ANNOTATIONS.end(), name) !=
            TEST_ANNOTATIONS.end()) {
          return true;
        }
      }
    }
    return false;
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    tagged::Definition def;
    def.name = text(tag.name);
    def.host = tag.node;
    def.kind = tag.role;
    if (tag.role == "class" || tag.role == "interface" || tag.role == "enum" ||
        tag.role == "record") {
      def.opens_scope = true;
    } else if (tag.role == "method") {
      def.is_test = has_test_annotation(tag.node);
    } else if (tag.role != "constructor") {
      return std::nullopt;
    }
    return def;
  }

  // The declared type a variable names, without type arguments: `List<Item>` gives List.
  std::string type_name(TSNode type) const {
    if (is(type, "generic_type")) type = ts_node_named_child(type, 0);
    return is(type, "type_identifier") ? std::string(text(type)) : std::string();
  }

  void visit(TSNode node) override {
    if (is(node, "package_declaration")) {
      if (ts_node_named_child_count(node) > 0) package_ = text(ts_node_named_child(node, 0));
    } else if ((is(node, "class_declaration") || is(node, "interface_declaration") ||
                is(node, "enum_declaration") || is(node, "record_declaration")) &&
               frames_.back().symbol != NONE) {
      record_bases(node, frames_.back().symbol);
    } else if (is(node, "import_declaration")) {
      record_import(node);
    } else if (is(node, "field_declaration")) {
      auto cls = frame_of_type("class_body");
      if (cls != NONE && cls > 0 && frames_[cls - 1].symbol != NONE) {
        declarations_.push_back({frames_[cls - 1].symbol, true, node});
      }
    } else if (is(node, "local_variable_declaration") || is(node, "formal_parameter") ||
               is(node, "spread_parameter") || is(node, "catch_formal_parameter") ||
               is(node, "enhanced_for_statement") || is(node, "resource") ||
               is(node, "lambda_expression")) {
      declarations_.push_back({current_callable(), false, node});
    } else if (is(node, "method_declaration")) {
      if (frames_.back().symbol != NONE) results_.emplace_back(frames_.back().symbol, node);
    } else if (is(node, "object_creation_expression")) {
      add_call(node, ts_node_child_by_field_name(node, "type", 4));
    }
  }

  // `extends B implements I, J`: the names, resolved once the whole file is read.
  void record_bases(TSNode cls, std::size_t symbol) {
    for (const char* field : {"superclass", "interfaces"}) {
      TSNode clause =
          ts_node_child_by_field_name(cls, field, static_cast<std::uint32_t>(strlen(field)));
      if (ts_node_is_null(clause)) continue;
      if (ts_node_named_child_count(clause) > 0 &&
          is(ts_node_named_child(clause, 0), "type_list")) {
        clause = ts_node_named_child(clause, 0);
      }
      for (std::uint32_t i = 0; i < ts_node_named_child_count(clause); ++i) {
        auto name = type_name(ts_node_named_child(clause, i));
        if (!name.empty()) base_names_.emplace_back(symbol, name);
      }
    }
    // an interface's `extends` list
    for (std::uint32_t i = 0; i < ts_node_named_child_count(cls); ++i) {
      TSNode c = ts_node_named_child(cls, i);
      if (!is(c, "extends_interfaces")) continue;
      TSNode list = ts_node_named_child(c, 0);
      for (std::uint32_t j = 0; j < ts_node_named_child_count(list); ++j) {
        auto name = type_name(ts_node_named_child(list, j));
        if (!name.empty()) base_names_.emplace_back(symbol, name);
      }
    }
  }

  // The bases of a class in lookup order, breadth first through the ones of this file.
  std::vector<std::string> ancestry(const std::string& cls) const {
    std::vector<std::string> out{cls};
    for (std::size_t i = 0; i < out.size() && out.size() < 16; ++i) {
      auto it = defined_.find(out[i]);
      if (it == defined_.end()) continue;
      for (const auto& b : out_.symbols[it->second].bases) {
        if (std::find(out.begin(), out.end(), b) == out.end()) out.push_back(b);
      }
    }
    out.erase(out.begin());
    return out;
  }

  void record_import(TSNode node) {
    bool is_static = false, wildcard = false;
    TSNode path{};
    for (std::uint32_t i = 0; i < ts_node_child_count(node); ++i) {
      TSNode c = ts_node_child(node, i);
      if (is(c, "static")) is_static = true;
      if (is(c, "asterisk")) wildcard = true;
      if (is(c, "scoped_identifier") || is(c, "identifier")) path = c;
    }
    if (ts_node_is_null(path)) return;
    std::string full(text(path));
    auto dot = full.rfind('.');
    if (wildcard || dot == std::string::npos) {
      out_.imports.push_back({line(node), full, "", ""});
      return;
    }
    std::string name = full.substr(dot + 1);
    // a static import names a member: its module is the class's package
    std::string owner = full.substr(0, dot);
    std::string module = owner;
    if (is_static) {
      auto d = owner.rfind('.');
      module = d == std::string::npos ? owner : owner.substr(0, d);
    }
    out_.imports.push_back({line(node), module,
                            is_static ? owner.substr(owner.rfind('.') + 1) + "." + name : name,
                            ""});
    imports_[name] = {full, module};
  }

  struct Import {
    std::string fqn;
    std::string module;
  };

  // Where a type name leads: a class of this file, an import, else the own package.
  void resolve_type(const std::string& type, const std::string& member, ParsedCall& call) const {
    for (std::size_t i = 1; i < out_.symbols.size(); ++i) {
      const auto& s = out_.symbols[i];
      if (s.name == type && s.kind != "method" && s.kind != "constructor") {
        call.target = join(s.fqn, member);
        call.evidence = "same-file";
        return;
      }
    }
    if (auto imp = imports_.find(type); imp != imports_.end()) {
      call.target = join(imp->second.fqn, member);
      call.evidence = "import";
      call.scope_modules = {imp->second.module};
      return;
    }
    if (type.empty() || !std::isupper(static_cast<unsigned char>(type[0]))) return;
    call.target = join(join(package_, type), member);
    call.evidence = "same-package";
    call.scope_modules = {module_};
  }

  // A method the class does not define: the same name on its bases, nearest first.
  void inherited(const std::string& cls, const std::string& name, ParsedCall& call,
                 bool through_super = false) const {
    if (!through_super && defined_.count(cls) != 0) {
      // the writer looks on the bases, in other files too, nearest first
      call.receiver = "T:" + cls + "@" + module_;
      call.member = name;
      return;
    }
    auto bases = ancestry(cls);
    if (bases.empty()) return;
    call.target = join(bases.front(), name);
    for (std::size_t i = 1; i < bases.size(); ++i) call.fallbacks.push_back(join(bases[i], name));
    call.evidence = "this";
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(pending.call, "object_creation_expression")) {
      auto type = type_name(callee);
      if (!type.empty()) resolve_type(type, "", call);
      if (!call.target.empty()) call.evidence = "constructor";
      return;
    }
    TSNode invocation = ts_node_parent(callee);
    if (!is(invocation, "method_invocation")) return;
    std::string name(text(callee));
    TSNode object = ts_node_child_by_field_name(invocation, "object", 6);
    const auto& scope = prefix_of(pending.caller);
    if (ts_node_is_null(object)) {
      // a bare name: a method of the own class (or one around it), else a static import
      for (std::string s = scope; !s.empty();) {
        if (defined_.count(join(s, name)) != 0) {
          call.target = join(s, name);
          call.evidence = "same-file";
          return;
        }
        auto dot = s.rfind('.');
        if (dot == std::string::npos || s.substr(0, dot) == package_) break;
        s.resize(dot);
      }
      if (auto imp = imports_.find(name); imp != imports_.end()) {
        call.target = imp->second.fqn;
        call.evidence = "import";
        call.scope_modules = {imp->second.module};
        return;
      }
      if (pending.caller != 0) inherited(scope, name, call);
      return;
    }
    if (is(object, "this") || is(object, "super")) {
      if (pending.caller == 0) return;
      if (is(object, "this") && defined_.count(join(scope, name)) != 0) {
        call.target = join(scope, name);
        call.evidence = "this";
      } else {
        inherited(scope, name, call, is(object, "super"));
      }
      return;
    }
    // a receiver whose type declarations describe: the writer finds the member on it or its bases
    if (auto type = expr_type(object, pending.caller); !type.empty()) {
      call.receiver = std::move(type);
      call.member = std::move(name);
      return;
    }
    if (is(object, "identifier")) resolve_type(std::string(text(object)), name, call);  // static
  }

  void finish() override;

  // What declarations say of types (type_evidence.cpp).
  // The type a type node names, as an expression ("T:fqn@module"), or empty for primitives and
  // names nothing here resolves.
  TypeExpr type_expr(TSNode type) const;
  // The type of a value expression in callable `fn`, or empty when unknown.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const;
  // The expression of the class a callable belongs to, or empty at top level.
  TypeExpr own_class(std::size_t fn) const;
  void declare(std::size_t fn, TSNode name, const TypeExpr& type);
  void record_declaration(std::size_t owner, bool field, TSNode node);

 private:
  std::string package_;
  std::map<std::string, Import, std::less<>> imports_;           // simple name -> what it imports
  std::vector<std::pair<std::size_t, std::string>> base_names_;  // class symbol, base name
  struct Declaration {
    std::size_t owner = 0;  // the class of a field, else the callable
    bool field = false;
    TSNode node{};
  };
  std::vector<Declaration> declarations_;                // in document order
  std::vector<std::pair<std::size_t, TSNode>> results_;  // method symbol, its declaration
  std::unordered_map<std::size_t, std::map<std::string, TypeExpr>> fields_;  // by class symbol
  std::unordered_map<std::size_t, std::map<std::string, TypeExpr>> locals_;  // by callable
};

}  // namespace orvane_tamsel::indexer::java::detail
