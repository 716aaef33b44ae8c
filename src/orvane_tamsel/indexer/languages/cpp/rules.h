#pragma once
// The C++ extraction's rules, built on C's: namespaces and classes as scopes, using-directives,
// constructions and how a call resolves (type_evidence.cpp holds what declarations say of types).

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/languages/c.h"
#include "orvane_tamsel/indexer/languages/c_family/qualified_names.h"
#include "orvane_tamsel/indexer/languages/cpp/preparse.h"

namespace orvane_tamsel::indexer::cpp::detail {

using c_family::split_qualified;

inline std::string dotted(const std::vector<std::string>& parts) {
  std::string out;
  for (const auto& p : parts) {
    if (!out.empty()) out.push_back('.');
    out += p;
  }
  return out;
}

// The class a declared type names: `const ns::Cls&`, `Cls*`, `std::unique_ptr<Cls>` give Cls.
inline std::string class_of_type(std::string_view type) {
  for (std::string_view wrapper : {"std::unique_ptr<", "std::shared_ptr<", "std::optional<"}) {
    if (type.starts_with(wrapper)) {
      type.remove_prefix(wrapper.size());
      auto end = type.find_first_of(",>");
      type = type.substr(0, end);
    }
  }
  for (std::string_view q : {"const ", "struct ", "class "}) {
    if (type.starts_with(q)) type.remove_prefix(q.size());
  }
  auto parts = split_qualified(type);
  if (parts.empty() || parts.front() == "std") return {};
  return dotted(parts);
}

class Rules : public c::Rules {
 public:
  using c::Rules::Rules;

 protected:
  bool scoped_types() const override { return true; }

  std::string_view parse_input() override {
    blanked_ = preparse(src_);
    return blanked_.empty() ? src_ : std::string_view(blanked_);
  }
  std::uint32_t closing_brace(std::uint32_t from) const {
    return static_cast<std::uint32_t>(
        cpp::closing_brace(blanked_.empty() ? src_ : std::string_view(blanked_), from));
  }

  // An inline namespace (an ABI version: `std::chrono::_V2`) adds nothing: its names are
  // written, and looked up, as the enclosing namespace's.
  std::string scope_of(TSNode node) override {
    if (ts_node_has_error(root_)) close_misread_namespaces(node);
    if (!is(node, "namespace_definition") || is(ts_node_child(node, 0), "inline")) return {};
    if (ts_node_has_error(root_)) {
      TSNode body = ts_node_child_by_field_name(node, "body", 4);
      if (!ts_node_is_null(body))
        namespace_ends_.push_back({node, closing_brace(ts_node_start_byte(body) + 1)});
    }
    return dotted(split_qualified(field_text(node, "name")));
  }

  // Where the grammar recovered from a misread, a namespace's node may run past the brace that
  // closes it in the text: what follows that brace is in no namespace of it. And in a stretch
  // read as an ERROR node, a namespace opened there scopes its following siblings.
  void close_misread_namespaces(TSNode node) {
    auto at = ts_node_start_byte(node);
    while (!namespace_ends_.empty() && at >= namespace_ends_.back().end) {
      for (auto& f : frames_) {
        if (ts_node_eq(f.node, namespace_ends_.back().node)) f.scope.clear();
      }
      namespace_ends_.pop_back();
    }
    if (!frames_.empty() && is(frames_.back().node, "ERROR"))
      frames_.back().scope = unread_namespaces(frames_.back().node, at);
  }

  // In a stretch the grammar could not read (an ERROR node) `namespace n {` stays tokens among
  // its children: what follows, up to the `}` that matches the brace in the text, is in n. The
  // namespaces open at a byte among the children of `error`.
  std::string unread_namespaces(TSNode error, std::uint32_t at) {
    if (!ts_node_eq(error, error_node_)) {
      error_node_ = error;
      error_namespaces_.clear();
      std::uint32_t n = ts_node_child_count(error);
      for (std::uint32_t i = 0; i + 2 < n; ++i) {
        TSNode brace = ts_node_child(error, i + 2);
        if (!is(ts_node_child(error, i), "namespace") || !is(brace, "{")) continue;
        auto name = dotted(split_qualified(text(ts_node_child(error, i + 1))));
        auto from = ts_node_end_byte(brace);
        error_namespaces_.push_back({name, from, closing_brace(from)});
      }
    }
    std::string scope;
    for (const auto& ns : error_namespaces_) {
      if (at >= ns.from && at < ns.to) scope = join(scope, ns.name);
    }
    return scope;
  }

  std::optional<tagged::Definition> define(const tagged::Tag& tag) override {
    auto def = c::Rules::define(tag);
    if (!def || (tag.role != "function" && tag.role != "method") || def->is_test) return def;
    auto parts = split_qualified(def->name);
    if (parts.empty()) return std::nullopt;
    def->name = parts.back();
    parts.pop_back();
    def->qualifier = through_using(parts, ts_node_start_byte(tag.node));
    std::string cls = !parts.empty() ? parts.back() : enclosing_class();
    if (!parts.empty() || !cls.empty()) def->kind = "method";
    if (!cls.empty() && def->name == cls) def->kind = "constructor";
    return def;
  }

  // `using namespace shapes; double Circle::area() {...}`: an out-of-line member of a class this
  // file does not define, qualified by a name a using in force brings in, belongs to the class it
  // names there (the nearest such name, when it lies within the current namespace).
  std::vector<std::string> through_using(const std::vector<std::string>& qualifier,
                                         std::uint32_t at) const {
    if (qualifier.empty()) return qualifier;
    std::string scope;
    for (const auto& f : frames_) scope = join(scope, f.scope);
    for (const auto& c : outwards(scope, dotted(qualifier)))
      if (defined_.count(c) != 0) return qualifier;
    auto brought = brought_in(qualifier, at);
    if (brought.empty()) return qualifier;
    auto& nearest = brought.front();
    if (!scope.empty() && !nearest.starts_with(scope + ".")) return qualifier;
    std::vector<std::string> out;
    std::string_view rest(nearest);
    if (!scope.empty()) rest.remove_prefix(scope.size() + 1);
    for (auto dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
      out.emplace_back(rest.substr(0, dot));
      rest.remove_prefix(dot + 1);
    }
    out.emplace_back(rest);
    return out;
  }

  // The name of the class whose body holds the node being visited, or empty.
  std::string enclosing_class() const {
    auto body = frame_of_type("field_declaration_list");
    if (body == NONE || body == 0) return {};
    auto sym = frames_[body - 1].symbol;
    return sym == NONE ? std::string() : out_.symbols[sym].name;
  }

  void visit(TSNode node) override {
    c::Rules::visit(node);
    record_types(node);
    if (is(node, "using_declaration")) {
      note_using(node);
      return;
    }
    if (is(node, "new_expression") || is(node, "compound_literal_expression")) {
      TSNode type = ts_node_child_by_field_name(node, "type", 4);
      if (names_class(type)) add_call(node, type);
      return;
    }
    if (is(node, "declaration")) constructions(node);
    bool field = is(node, "field_declaration");
    if (!field && !is(node, "declaration") && !is(node, "parameter_declaration")) return;
    std::string type = class_of_type(field_text(node, "type"));
    if (type.empty()) return;
    TSNode d = local_name(ts_node_child_by_field_name(node, "declarator", 10), true);
    if (ts_node_is_null(d)) return;
    if (field) {
      auto body = frame_of_type("field_declaration_list");
      if (body == NONE || body == 0 || frames_[body - 1].symbol == NONE) return;
      members_[out_.symbols[frames_[body - 1].symbol].fqn][std::string(text(d))] = type;
    } else if (auto fn = current_callable(); fn != 0) {
      locals_[fn][std::string(text(d))] = type;
    }
  }

  // A type that may name a class: not a built-in, `auto`, or a standard library one.
  bool names_class(TSNode type) const {
    if (!is(type, "type_identifier") && !is(type, "qualified_identifier") &&
        !is(type, "template_type"))
      return false;
    auto parts = split_qualified(text(type));
    return !parts.empty() && parts.front() != "std";
  }

  // `T x(args);`, `T x{args};` and `T x = {args};` construct a T, and so does `T x(y);` in a
  // block, which the grammar reads as a prototype (local prototypes are rare).
  void constructions(TSNode node) {
    TSNode type = ts_node_child_by_field_name(node, "type", 4);
    if (!names_class(type)) return;
    for (std::uint32_t i = 0; i < ts_node_child_count(node); ++i) {
      const char* field = ts_node_field_name_for_child(node, i);
      if (field == nullptr || std::string_view(field) != "declarator") continue;
      TSNode d = ts_node_child(node, i);
      if (is(d, "init_declarator")) {
        TSNode value = ts_node_child_by_field_name(d, "value", 5);
        if (is(value, "argument_list") || is(value, "initializer_list")) add_call(d, type);
      } else if (is(d, "function_declarator") && reads_as_construction(d)) {
        add_call(d, type);
      }
    }
  }

  // `using namespace ns;` and `using ns::f;` in a file, namespace or function body, from the
  // statement to the end of that block. Members' `using Base::m;` change no call lookup here.
  void note_using(TSNode node) {
    TSNode block = ts_node_parent(node);
    if (is(block, "field_declaration_list")) return;
    bool directive = false;
    for (std::uint32_t i = 0; i < ts_node_child_count(node); ++i) {
      if (is(ts_node_child(node, i), "namespace")) directive = true;
    }
    TSNode named = ts_node_named_child(node, 0);
    auto written = text(named);
    auto parts = split_qualified(written);
    if (parts.empty() || parts.front() == "std") return;
    Using u;
    u.directive = directive;
    u.last = parts.back();
    if (!directive) parts.pop_back();
    std::string scope;
    for (const auto& f : frames_) scope = join(scope, f.scope);
    u.prefixes = written.starts_with("::") ? std::vector<std::string>{dotted(parts)}
                                           : outwards(scope, dotted(parts));
    u.from = ts_node_end_byte(node);
    u.to = ts_node_end_byte(block);
    // at namespace scope, files that include this one see it too
    if (is(block, "translation_unit") || is(block, "declaration_list")) {
      for (const auto& p : u.prefixes)
        out_.usings.push_back({scope, p, directive ? std::string() : u.last});
    }
    usings_.push_back(std::move(u));
  }

  // What using-directives and -declarations in force at a byte make `name` (dotted) stand for.
  std::vector<std::string> brought_in(const std::vector<std::string>& parts,
                                      std::uint32_t at) const {
    std::vector<std::string> out;
    if (parts.empty()) return out;
    auto name = dotted(parts);
    for (const auto& u : usings_) {
      if (at < u.from || at >= u.to || (!u.directive && u.last != parts.front())) continue;
      for (const auto& p : u.prefixes) {
        auto c = join(p, name);
        if (std::find(out.begin(), out.end(), c) == out.end()) out.push_back(std::move(c));
      }
    }
    return out;
  }

  // Name lookup from a scope outwards: `ns.Cls` tries ns.Cls.x, ns.x, x.
  static std::vector<std::string> outwards(std::string scope, const std::string& name) {
    std::vector<std::string> out;
    for (;;) {
      out.push_back(tagged::Extraction::join(scope, name));
      if (scope.empty()) break;
      auto dot = scope.rfind('.');
      scope = dot == std::string::npos ? "" : scope.substr(0, dot);
    }
    return out;
  }

  // The declared type of a member of the class `type` names, looked up from `scope`.
  std::string member_type(const std::string& scope, const std::string& type,
                          const std::string& member) const {
    for (const auto& c : outwards(scope, type)) {
      auto m = members_.find(c);
      if (m == members_.end()) continue;
      auto f = m->second.find(member);
      return f == m->second.end() ? std::string() : f->second;
    }
    return {};
  }

  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override {
    TSNode callee = pending.callee;
    if (is(callee, "template_function")) callee = ts_node_child_by_field_name(callee, "name", 4);
    const auto& caller = out_.symbols[pending.caller];
    bool in_method = caller.kind == "method" || caller.kind == "constructor";
    // a TEST_F body is a method of its fixture: the fixture's members are in scope
    bool fixture = caller.is_test && caller.signature && caller.signature->starts_with("TEST_F(");
    std::string scope = pending.caller == 0 ? "" : prefix_of(pending.caller);
    std::string cls = in_method || fixture ? scope : "";
    std::vector<std::string> candidates, brought;
    call.arguments = argument_count(pending.call);
    call.argument_kinds = argument_kinds_in(pending.call, pending.caller);
    call.argument_names = macro_argument_names(pending.call, callee, pending.caller);
    if (is(callee, "identifier") || is(callee, "qualified_identifier") ||
        is(callee, "type_identifier") || is(callee, "template_type")) {
      auto written = text(callee);
      auto parts = split_qualified(written);
      if (parts.empty() || parts.front() == "std") return;
      auto name = dotted(parts);
      candidates =
          written.starts_with("::") ? std::vector<std::string>{name} : outwards(scope, name);
      call.evidence = "include";
      for (const auto& c : candidates) {
        if (defined_.count(c) != 0) call.evidence = "same-file";
      }
      // a construction names a class; the index links it to the class's constructor (a
      // test macro's use, read as a function's declarator, names the macro)
      if (!is(pending.call, "call_expression") && !is(callee, "identifier"))
        call.evidence = "constructor";
      if (!written.starts_with("::")) brought = brought_in(parts, ts_node_start_byte(pending.call));
      // a member of the class or of its bases, called without `this->`: when no name lookup
      // finds a symbol, the index looks on the class and its bases
      if (!cls.empty() && parts.size() == 1 && is(pending.call, "call_expression") &&
          defined_.count(candidates.front()) == 0) {
        call.receiver = "T:" + cls;
        call.member = name;
      }
      call.template_args = class_template_args(callee);
    } else if (is(callee, "field_expression")) {
      TSNode object = ts_node_child_by_field_name(callee, "argument", 8);
      std::string member = field_text(callee, "field");
      std::string type;
      if (is(object, "this")) {
        type = cls;
        call.evidence = "this";
      } else if (is(object, "identifier") || is(object, "field_identifier")) {
        std::string var(text(object));
        if (auto l = locals_.find(pending.caller); l != locals_.end() && l->second.count(var)) {
          type = l->second.at(var);
        } else if (auto m = members_.find(cls); m != members_.end() && m->second.count(var)) {
          type = m->second.at(var);
        }
        call.evidence = "receiver";
      } else if (is(object, "field_expression")) {  // `k.cart.add()`: a member of a typed local
        TSNode inner = ts_node_child_by_field_name(object, "argument", 8);
        std::string var(text(inner));
        auto l = locals_.find(pending.caller);
        if (is(inner, "identifier") && l != locals_.end() && l->second.count(var)) {
          type = member_type(scope, l->second.at(var), field_text(object, "field"));
        }
        call.evidence = "receiver";
      }
      if (member.empty()) return;
      if (type == "auto") type.clear();  // deduced: what the initializer gives, left to the writer
      if (type.empty()) return typed_receiver(object, std::move(member), pending.caller, call);
      if (type == cls) {
        candidates.push_back(tagged::Extraction::join(type, member));
      } else {
        // a type named by a typedef has no members of its own: the writer looks through it
        call.receiver = type_expr(type, scope, ts_node_start_byte(pending.call));
        call.member = member;
        for (auto& c : outwards(scope, type)) candidates.push_back(join(c, member));
        for (auto& b : brought_in(split_qualified(type), ts_node_start_byte(pending.call)))
          brought.push_back(join(b, member));
      }
    } else {
      return;
    }
    call.target = candidates.front();
    call.fallbacks.assign(candidates.begin() + 1, candidates.end());
    if (!brought.empty()) {
      // the global name and what the usings bring in are equally near
      if (candidates.size() == 1) call.fallbacks.push_back(candidates.back());
      call.equally_near = call.fallbacks.size() - 1;
      for (auto& b : brought) {
        if (b != candidates.back()) call.fallbacks.push_back(std::move(b));
      }
    }
    call.scope_modules = visible_modules();
  }

  // `DefaultValue<int&>::Exists`: `int&`, the arguments written on the class holding the name.
  std::string class_template_args(TSNode callee) const {
    while (is(callee, "qualified_identifier")) {
      TSNode name = ts_node_child_by_field_name(callee, "name", 4);
      if (!is(name, "qualified_identifier")) break;
      callee = name;
    }
    TSNode scope = ts_node_child_by_field_name(callee, "scope", 5);
    if (!is(callee, "qualified_identifier") || !is(scope, "template_type")) return {};
    auto args = field_text(scope, "arguments");
    return args.size() < 2 ? std::string() : args.substr(1, args.size() - 2);
  }

  // A class template specialization's signature keeps its template head: its parameters are
  // what the arguments written at a call may stand for.
  std::string signature_of(TSNode host) const override {
    auto own = c::Rules::signature_of(host);
    TSNode parent = ts_node_parent(host);
    if ((!is(host, "class_specifier") && !is(host, "struct_specifier")) ||
        !is(ts_node_child_by_field_name(host, "name", 4), "template_type") ||
        !is(parent, "template_declaration"))
      return own;
    return flatten(ts_node_start_byte(parent), ts_node_start_byte(host)) + " " + own;
  }

  // What declarations say of types (type_evidence.cpp).
  // The class a written type names, as an expression: the class of this file that name lookup
  // from `scope` reaches, else every candidate, nearest first ("T:a.B|T:B").
  TypeExpr type_expr(std::string_view written, const std::string& scope, std::uint32_t at) const;
  // The type of a value expression in callable `fn`, or empty when unknown.
  TypeExpr expr_type(TSNode e, std::size_t fn, int depth = 0) const;
  // The scope names are looked up from at the node being visited.
  std::string lookup_scope() const;
  // Declared types of locals, parameters, members and results; a class's bases.
  void record_types(TSNode node);
  void declare(std::size_t fn, TSNode declarator, const TypeExpr& type);
  void note_value_kind(std::size_t fn, TSNode declarator, TSNode type);
  // What a use of a macro (a callee in capitals) passes (see ParsedCall::argument_names).
  std::string macro_argument_names(TSNode call, TSNode callee, std::size_t fn) const;
  // The kinds argument_kinds() reads from the text, with those of names the caller declared.
  std::string argument_kinds_in(TSNode call, std::size_t fn) const {
    auto known = value_kinds_.find(fn);
    if (known == value_kinds_.end()) return argument_kinds(call);
    return argument_kinds(call, [&](std::string_view name) {
      auto k = known->second.find(name);
      return k == known->second.end() ? '\0' : k->second;
    });
  }
  // The name a declarator declares (through pointers, references, arrays); null for a function
  // declarator. `members`: a class member's name counts too.
  static TSNode declared_name(TSNode d, bool members) {
    while (!ts_node_is_null(d) && !is(d, "identifier") && !(members && is(d, "field_identifier"))) {
      if (is(d, "function_declarator")) return TSNode{};
      TSNode next = ts_node_child_by_field_name(d, "declarator", 10);
      // `Cart& c`: a reference declarator names its inner declarator by position only
      if (ts_node_is_null(next) && ts_node_named_child_count(d) > 0)
        next = ts_node_named_child(d, ts_node_named_child_count(d) - 1);
      d = next;
    }
    return d;
  }
  // declared_name, and the variable of `T x(y);` in a block, which the grammar reads as a
  // prototype (see constructions()).
  TSNode local_name(TSNode d, bool members) const {
    if (is(d, "function_declarator") && reads_as_construction(d))
      d = ts_node_child_by_field_name(d, "declarator", 10);
    return declared_name(d, members);
  }
  // A receiver whose type declarations describe (a result, a member declared in the class's
  // header, a chain): left to the writer.
  void typed_receiver(TSNode object, std::string member, std::size_t fn, ParsedCall& call) const {
    call.evidence.clear();
    if (auto t = expr_type(object, fn); !t.empty()) {
      call.receiver = std::move(t);
      call.member = std::move(member);
    }
  }

 private:
  struct UnreadNamespace {
    std::string name;
    std::uint32_t from = 0, to = 0;
  };
  struct NamespaceEnd {
    TSNode node;
    std::uint32_t end = 0;  // the byte of the brace that closes it in the text
  };
  std::vector<NamespaceEnd> namespace_ends_;  // innermost last
  TSNode error_node_{};
  std::vector<UnreadNamespace> error_namespaces_;
  // By callable: each local's type as an expression ("" when declared but unknown).
  std::unordered_map<std::size_t, std::map<std::string, TypeExpr, std::less<>>> typed_;
  // By callable: what an argument naming a local or parameter shows of its kind.
  std::unordered_map<std::size_t, std::map<std::string, char, std::less<>>> value_kinds_;
  struct Using {
    bool directive = false;             // `using namespace`, else a using-declaration
    std::string last;                   // the declared name (`f` of `using ns::f`)
    std::vector<std::string> prefixes;  // what the name may mean, nearest scope first
    std::uint32_t from = 0, to = 0;     // the bytes it holds for
  };
  std::vector<Using> usings_;
  std::unordered_map<std::size_t, std::map<std::string, std::string>> locals_;  // by caller
  std::map<std::string, std::map<std::string, std::string>> members_;           // by class fqn
};

}  // namespace orvane_tamsel::indexer::cpp::detail
