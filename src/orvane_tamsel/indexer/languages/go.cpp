#include "orvane_tamsel/indexer/languages/go.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <unordered_map>

#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::go {

namespace {

constexpr std::array<std::string_view, 18> BUILTINS = {
    "append", "cap", "clear", "close", "complex", "copy",  "delete",  "imag", "len",
    "make",   "max", "min",   "new",   "panic",   "print", "println", "real", "recover"};

std::string dotted_path(std::string_view path) {
  std::string out(path);
  std::replace(out.begin(), out.end(), '/', '.');
  return out;
}

// The name an import binds without an alias: the last element that is not a major version.
std::string package_of_import(std::string_view path) {
  auto slash = path.rfind('/');
  auto last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (last.size() >= 2 && last[0] == 'v' && std::isdigit(static_cast<unsigned char>(last[1])) &&
      slash != std::string_view::npos) {
    return package_of_import(path.substr(0, slash));
  }
  if (last.starts_with("go-")) last.remove_prefix(3);
  auto dot = last.find('.');
  return std::string(last.substr(0, dot));
}

bool is_test_function(std::string_view name) {
  for (std::string_view prefix : {"Test", "Benchmark", "Example", "Fuzz"}) {
    if (name.starts_with(prefix) &&
        (name.size() == prefix.size() ||
         !std::islower(static_cast<unsigned char>(name[prefix.size()])))) {
      return true;
    }
  }
  return false;
}

struct Import {
  std::string module;   // dotted import path
  std::string package;  // the package name its symbols' fqns start with
};

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::string top_prefix() const override { return package_; }

  // The type a receiver or declared type names: `*Server`, `Server[T]` give Server.
  std::string type_name(TSNode type) const {
    while (is(type, "pointer_type") || is(type, "generic_type")) {
      type = is(type, "pointer_type") ? ts_node_named_child(type, 0)
                                      : ts_node_child_by_field_name(type, "type", 4);
    }
    return is(type, "type_identifier") || is(type, "qualified_type") ? std::string(text(type))
                                                                     : std::string();
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    tagged::Definition def;
    def.name = text(tag.name);
    def.host = tag.node;
    if (tag.role == "function") {
      def.kind = "function";
      def.is_test = out_.is_test && is_test_function(def.name);
      return def;
    }
    if (tag.role == "method") {
      def.kind = "method";
      TSNode recv = ts_node_child_by_field_name(tag.node, "receiver", 8);
      if (ts_node_named_child_count(recv) == 0) return std::nullopt;
      TSNode param = ts_node_named_child(recv, 0);
      auto type = type_name(ts_node_child_by_field_name(param, "type", 4));
      if (type.empty()) return std::nullopt;
      def.qualifier = {type};
      auto var = field_text(param, "name");
      if (!var.empty()) receivers_[join(join(package_, type), def.name)] = var;
      return def;
    }
    // a lone type_spec takes its declaration, where its doc comment stands
    TSNode parent = frames_.size() >= 2 ? frames_[frames_.size() - 2].node : TSNode{};
    if (!ts_node_is_null(parent) && ts_node_named_child_count(parent) == 1) def.host = parent;
    if (tag.role == "type") {
      TSNode type = ts_node_child_by_field_name(tag.node, "type", 4);
      def.kind = is(type, "struct_type")      ? "struct"
                 : is(type, "interface_type") ? "interface"
                                              : "type";
      return def;
    }
    if (tag.role == "constant") {
      def.kind = "variable";
      return def;
    }
    return std::nullopt;
  }

  void visit(TSNode node) override {
    if (is(node, "package_clause")) {
      if (ts_node_named_child_count(node) > 0) package_ = text(ts_node_named_child(node, 0));
    } else if (is(node, "import_spec")) {
      auto raw = field_text(node, "path");
      if (raw.size() < 2) return;
      std::string path = raw.substr(1, raw.size() - 2);
      std::string alias = field_text(node, "name");
      out_.imports.push_back({line(node), dotted_path(path), "", alias});
      if (alias == "_" || alias == ".") return;
      imports_[alias.empty() ? package_of_import(path) : alias] = {dotted_path(path),
                                                                   package_of_import(path)};
    } else if (is(node, "short_var_declaration") || is(node, "var_spec")) {
      record_local(node);
    } else if (is(node, "field_declaration") &&
               ts_node_is_null(ts_node_child_by_field_name(node, "name", 4))) {
      record_embedded(node);
    }
  }

  // `struct { *Base; ... }`: Base's methods are promoted to the struct (same package only).
  void record_embedded(TSNode field) {
    auto type = type_name(ts_node_child_by_field_name(field, "type", 4));
    if (type.empty() || type.find('.') != std::string::npos) return;
    for (std::size_t i = frames_.size(); i-- > 0;) {
      auto sym = frames_[i].symbol;
      if (sym == NONE) continue;
      if (out_.symbols[sym].kind == "struct") {
        embeds_[out_.symbols[sym].fqn].push_back(join(package_, type));
        // the index follows them for a method that another file of the package defines
        out_.symbols[sym].bases.push_back(join(package_, type));
      }
      return;
    }
  }

  // The method as promoted from embedded structs, nearest first, a few levels deep.
  std::vector<std::string> promoted(const std::string& type, const std::string& method) const {
    std::vector<std::string> out, level{type};
    for (int depth = 0; depth < 3 && !level.empty(); ++depth) {
      std::vector<std::string> next;
      for (const auto& t : level) {
        auto e = embeds_.find(t);
        if (e == embeds_.end()) continue;
        for (const auto& inner : e->second) {
          out.push_back(join(inner, method));
          next.push_back(inner);
        }
      }
      level = std::move(next);
    }
    return out;
  }

  // `x := T{...}`, `x := &T{...}` and `var x T` tell x's type for `x.M()`.
  void record_local(TSNode node) {
    auto fn = current_callable();
    if (fn == 0) return;
    bool short_var = is(node, "short_var_declaration");
    TSNode names = short_var ? ts_node_child_by_field_name(node, "left", 4)
                             : ts_node_child_by_field_name(node, "name", 4);
    if (ts_node_is_null(names)) return;
    TSNode name = is(names, "identifier") ? names : ts_node_named_child(names, 0);
    std::string type;
    if (short_var) {
      TSNode right = ts_node_child_by_field_name(node, "right", 5);
      TSNode value =
          ts_node_named_child_count(right) > 0 ? ts_node_named_child(right, 0) : TSNode{};
      if (is(value, "unary_expression")) value = ts_node_child_by_field_name(value, "operand", 7);
      if (is(value, "composite_literal"))
        type = type_name(ts_node_child_by_field_name(value, "type", 4));
    } else {
      type = type_name(ts_node_child_by_field_name(node, "type", 4));
    }
    if (!type.empty() && is(name, "identifier")) locals_[fn][std::string(text(name))] = type;
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(callee, "identifier")) {
      std::string name(text(callee));
      if (std::find(BUILTINS.begin(), BUILTINS.end(), name) != BUILTINS.end()) return;
      call.target = join(package_, name);
      call.evidence = defined_.count(call.target) != 0 ? "same-file" : "same-package";
      call.scope_modules = {module_};
      return;
    }
    if (!is(callee, "selector_expression")) return;
    TSNode operand = ts_node_child_by_field_name(callee, "operand", 7);
    std::string field = field_text(callee, "field");
    if (!is(operand, "identifier") || field.empty()) return;
    std::string var(text(operand));
    const auto& caller = out_.symbols[pending.caller];
    if (auto r = receivers_.find(caller.fqn); r != receivers_.end() && r->second == var) {
      call.target = join(prefix_of(pending.caller), field);
      call.fallbacks = promoted(prefix_of(pending.caller), field);
      call.evidence = "receiver";
      call.scope_modules = {module_};
      return;
    }
    if (auto l = locals_.find(pending.caller); l != locals_.end()) {
      if (auto t = l->second.find(var); t != l->second.end()) {
        call.evidence = "instance";
        auto dot = t->second.find('.');
        if (dot == std::string::npos) {
          call.target = join(join(package_, t->second), field);
          call.fallbacks = promoted(join(package_, t->second), field);
          call.scope_modules = {module_};
        } else if (auto imp = imports_.find(t->second.substr(0, dot)); imp != imports_.end()) {
          call.target = join(join(imp->second.package, t->second.substr(dot + 1)), field);
          call.scope_modules = {imp->second.module};
        } else {
          call.evidence.clear();
        }
        return;
      }
    }
    if (auto imp = imports_.find(var); imp != imports_.end()) {
      call.target = join(imp->second.package, field);
      call.evidence = "import";
      call.scope_modules = {imp->second.module};
    }
  }

 private:
  std::string package_;
  std::map<std::string, Import, std::less<>> imports_;      // bound name -> import
  std::unordered_map<std::string, std::string> receivers_;  // method fqn -> receiver variable
  std::unordered_map<std::size_t, std::map<std::string, std::string>> locals_;  // by caller
  std::unordered_map<std::string, std::vector<std::string>> embeds_;  // struct fqn -> embedded
};

}  // namespace

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view root_name) {
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    if (!root_name.empty()) return std::string(root_name);
    auto dot = path.rfind('.');
    return std::string(path.substr(0, dot));
  }
  return dotted_path(path.substr(0, slash));
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  Rules rules(language, path, module, content);
  return rules.run();
}

}  // namespace orvane_tamsel::indexer::go
