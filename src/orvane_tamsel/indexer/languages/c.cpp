#include "orvane_tamsel/indexer/languages/c.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "orvane_tamsel/indexer/languages/c_family/macro_bodies.h"
#include "orvane_tamsel/indexer/languages/cpp.h"
#include "orvane_tamsel/indexer/languages/cpp/preparse.h"

namespace orvane_tamsel::indexer::c {

namespace {

constexpr std::array<std::string_view, 5> GTEST_MACROS = {"TEST", "TEST_F", "TEST_P", "TYPED_TEST",
                                                          "TYPED_TEST_P"};

// Path parts joined with dots, the last one without its extension.
std::string joined_without_extension(std::vector<std::string_view>& parts) {
  if (parts.empty()) return {};
  auto& last = parts.back();
  auto dot = last.rfind('.');
  if (dot != std::string_view::npos && dot > 0) last = last.substr(0, dot);
  std::string out;
  for (auto p : parts) {
    if (!out.empty()) out.push_back('.');
    out.append(p);
  }
  return out;
}

std::string dotted(std::string_view path) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    auto end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    auto part = path.substr(start, end - start);
    if (part == "src" || part == "include") {
      if (end != path.size()) parts.clear();  // a source root: names start below it
    } else if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  return joined_without_extension(parts);
}

// An #include's path as the index matches it against file paths: dotted, extension dropped,
// `./` and `../` resolved against the including file's folder.
std::string include_path(std::string_view including, std::string_view inc) {
  std::vector<std::string_view> parts;
  if (inc.starts_with("./") || inc.starts_with("../")) {
    auto slash = including.rfind('/');
    auto dir = slash == std::string_view::npos ? std::string_view() : including.substr(0, slash);
    for (std::size_t start = 0; !dir.empty() && start <= dir.size();) {
      auto end = std::min(dir.find('/', start), dir.size());
      parts.push_back(dir.substr(start, end - start));
      start = end + 1;
    }
  }
  for (std::size_t start = 0; start <= inc.size();) {
    auto end = std::min(inc.find('/', start), inc.size());
    auto part = inc.substr(start, end - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  return joined_without_extension(parts);
}

}  // namespace

std::string module_name(std::string_view path, const PackageDirs& /*packages*/,
                        std::string_view /*root_name*/) {
  return dotted(path);
}

bool looks_like_cpp(std::string_view content) {
  for (std::string_view marker :
       {"namespace ", "template <", "template<", "class ", "::", "public:", "private:", "std::"}) {
    auto at = content.find(marker);
    // a marker inside a comment line is no evidence
    while (at != std::string_view::npos) {
      auto bol = content.rfind('\n', at);
      auto lead = content.substr(bol == std::string_view::npos ? 0 : bol + 1);
      lead = lead.substr(lead.find_first_not_of(" \t"));
      if (!lead.starts_with("//") && !lead.starts_with("*") && !lead.starts_with("/*")) {
        return true;
      }
      at = content.find(marker, at + 1);
    }
  }
  return false;
}

ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content) {
  if (path.ends_with(".h") && looks_like_cpp(content)) {
    for (const auto& other : utils::languages()) {
      if (other.name == "cpp") return cpp::extract(other, path, module, content);
    }
  }
  Rules rules(language, path, module, content);
  return rules.run();
}

std::string_view Rules::parse_input() {
  blanked_ = cpp::blank_macros(src_);
  return blanked_.empty() ? src_ : std::string_view(blanked_);
}

bool Rules::is_header() const {
  for (std::string_view ext : {".h", ".hh", ".hpp", ".hxx", ".h++", ".inl"}) {
    if (path_.ends_with(ext)) return true;
  }
  return false;
}

bool Rules::reads_as_construction(TSNode declarator) const {
  auto block = frame_of_type("compound_statement");
  auto members = frame_of_type("field_declaration_list");
  if (block == NONE || (members != NONE && members > block)) return false;
  TSNode params = ts_node_child_by_field_name(declarator, "parameters", 10);
  std::uint32_t n = ts_node_named_child_count(params);
  for (std::uint32_t i = 0; i < n; ++i) {
    TSNode p = ts_node_named_child(params, i);
    if (!is(p, "parameter_declaration") ||
        !ts_node_is_null(ts_node_child_by_field_name(p, "declarator", 10)))
      return false;
  }
  return n > 0;
}

TSNode Rules::function_host() const {
  for (std::size_t i = frames_.size(); i-- > 0;) {
    TSNode n = frames_[i].node;
    const char* type = ts_node_type(n);
    if (std::strcmp(type, "function_definition") == 0 || std::strcmp(type, "declaration") == 0 ||
        std::strcmp(type, "field_declaration") == 0) {
      if (i > 0 && is(frames_[i - 1].node, "template_declaration")) return frames_[i - 1].node;
      return n;
    }
    if (std::strcmp(type, "type_definition") == 0 ||
        std::strcmp(type, "parameter_declaration") == 0 ||
        std::strcmp(type, "compound_statement") == 0) {
      return TSNode{};
    }
  }
  return TSNode{};
}

std::optional<tagged::Definition> Rules::define(const tagged::Tag& tag) {
  tagged::Definition def;
  def.name = text(tag.name);
  if (tag.role == "function" || tag.role == "method") return define_function(tag, def);
  def.host = tag.node;
  if (tag.role == "class") return define_record(tag, def);
  if (tag.role == "type") return define_type(tag, def);
  if (tag.role == "constant") return define_variable(tag, def);
  if (tag.role == "macro") return define_macro(tag, def);
  return std::nullopt;
}

std::optional<tagged::Definition> Rules::define_function(const tagged::Tag& tag,
                                                         tagged::Definition def) {
  TSNode node = tag.node;
  def.host = function_host();
  if (ts_node_is_null(def.host)) return std::nullopt;
  TSNode inner = def.host;
  if (is(inner, "template_declaration"))
    inner = ts_node_named_child(inner, ts_node_named_child_count(inner) - 1);
  bool body = is(inner, "function_definition");
  bool member = frame_of_type("field_declaration_list") != NONE;
  // A prototype in a source file repeats a definition; headers and class bodies declare.
  if (!body && !member && !is_header()) return std::nullopt;
  if (!body && reads_as_construction(node)) return std::nullopt;
  // glibc's `__REDIRECT (fscanf, (...), __isoc99_fscanf)` declares its first argument, which
  // the plain prototype in the other branch of its conditional names too
  if (def.name.starts_with("__REDIRECT")) return std::nullopt;
  if (std::find(GTEST_MACROS.begin(), GTEST_MACROS.end(), def.name) != GTEST_MACROS.end() && body) {
    TSNode params = ts_node_child_by_field_name(node, "parameters", 10);
    std::vector<std::string> parts;
    for (std::uint32_t i = 0; i < ts_node_named_child_count(params); ++i) {
      parts.emplace_back(text(ts_node_named_child(params, i)));
    }
    if (parts.size() != 2) return std::nullopt;
    // the macro's use also registers the test when the program loads: a call made by what
    // holds the use (the file), linked through the macro's body to what registering calls
    add_call(node, ts_node_child_by_field_name(node, "declarator", 10));
    def.kind = "function";
    def.qualifier = {parts[0]};
    def.name = parts[1];
    def.is_test = true;
    return def;
  }
  def.kind = member ? "method" : "function";
  return def;
}

std::optional<tagged::Definition> Rules::define_record(const tagged::Tag& tag,
                                                       tagged::Definition def) {
  TSNode node = tag.node;
  if (is(node, "declaration")) {  // `union u {...} x;`
    node = ts_node_child_by_field_name(node, "type", 4);
    def.host = node;
  }
  if (ts_node_is_null(ts_node_child_by_field_name(node, "body", 4))) return std::nullopt;
  def.kind = is(node, "class_specifier")   ? "class"
             : is(node, "union_specifier") ? "union"
                                           : "struct";
  def.opens_scope = scoped_types();
  return def;
}

std::optional<tagged::Definition> Rules::define_type(const tagged::Tag& tag,
                                                     tagged::Definition def) {
  TSNode node = tag.node;
  if (is(node, "enum_specifier")) {
    if (ts_node_is_null(ts_node_child_by_field_name(node, "body", 4))) return std::nullopt;
    def.kind = "enum";
    def.opens_scope = scoped_types();
    return def;
  }
  def.kind = "type";
  // an alias template's head and doc come before `template <...>`
  if (is(ts_node_parent(node), "template_declaration")) def.host = ts_node_parent(node);
  TSNode type = ts_node_child_by_field_name(node, "type", 4);
  bool anonymous = ts_node_is_null(ts_node_child_by_field_name(type, "name", 4));
  if (anonymous && !ts_node_is_null(ts_node_child_by_field_name(type, "body", 4))) {
    if (is(type, "struct_specifier")) def.kind = "struct";
    if (is(type, "union_specifier")) def.kind = "union";
    if (is(type, "enum_specifier")) def.kind = "enum";
  }
  return def;
}

std::optional<tagged::Definition> Rules::define_variable(const tagged::Tag& tag,
                                                         tagged::Definition def) {
  // the declaration holds the lines, signature and doc; a declaration's first variable names it
  def.host = ts_node_parent(tag.node);
  if (!is(def.host, "declaration")) return std::nullopt;
  // locals, parameters and members are no symbols of their own
  if (frame_of_type("compound_statement") != NONE ||
      frame_of_type("field_declaration_list") != NONE) {
    return std::nullopt;
  }
  def.kind = "variable";
  return def;
}

std::optional<tagged::Definition> Rules::define_macro(const tagged::Tag& tag,
                                                      tagged::Definition def) {
  if (is_include_guard(tag.node, def.name)) return std::nullopt;
  def.kind = "macro";
  def.unscoped = true;  // the preprocessor knows no namespace
  if (is(tag.node, "preproc_function_def")) {
    // a use of it links to what its body calls (c_family/macro_sites.cpp)
    std::vector<std::string> params;
    TSNode list = ts_node_child_by_field_name(tag.node, "parameters", 10);
    for (std::uint32_t i = 0; i < ts_node_child_count(list); ++i) {
      TSNode p = ts_node_child(list, i);
      if (is(p, "identifier")) params.emplace_back(text(p));
      if (is(p, "...")) params.emplace_back("__VA_ARGS__");
    }
    auto calls = c_family::calls_in_body(field_text(tag.node, "value"));
    out_.macros.push_back(
        {def.name, c_family::encode_params(params), c_family::encode_calls(calls)});
  }
  return def;
}

// `#ifndef X` first in a header, `#define X` (or `X 1`) first inside it: it keeps the header from
// being read twice and names nothing a reader asks for.
bool Rules::is_include_guard(TSNode node, std::string_view name) const {
  if (!is_header() || !is(node, "preproc_def")) return false;
  auto value = field_text(node, "value");
  auto bare = std::string_view(value).substr(0, value.find_last_not_of(" \t\r\n") + 1);
  if (!bare.empty() && bare != "1") return false;
  TSNode guard = ts_node_parent(node);
  if (!is(guard, "preproc_ifdef") || field_text(guard, "name") != name ||
      !is(ts_node_child(guard, 0), "#ifndef") || !is(ts_node_parent(guard), "translation_unit")) {
    return false;
  }
  auto first_code = [&](TSNode parent, std::uint32_t from) {
    for (std::uint32_t i = from; i < ts_node_named_child_count(parent); ++i) {
      TSNode c = ts_node_named_child(parent, i);
      if (!is_comment(c)) return c;
    }
    return TSNode{};
  };
  // the #ifndef's named children: its name, then what it holds
  return ts_node_eq(first_code(ts_node_parent(guard), 0), guard) &&
         ts_node_eq(first_code(guard, 1), node);
}

// A function declared without a body keeps its ";": the index merges such a declaration into
// the definition of the same fqn.
std::string Rules::signature_of(TSNode host) const {
  TSNode inner = host;
  if (is(inner, "template_declaration"))
    inner = ts_node_named_child(inner, ts_node_named_child_count(inner) - 1);
  TSNode init =
      is(inner, "declaration") ? ts_node_child_by_field_name(inner, "declarator", 10) : TSNode{};
  TSNode value =
      is(init, "init_declarator") ? ts_node_child_by_field_name(init, "value", 5) : TSNode{};
  if (!ts_node_is_null(value)) {
    // a variable's header stops before its value, which may be long (a table, a query)
    auto head = flatten(ts_node_start_byte(host), ts_node_start_byte(value));
    while (!head.empty() && (head.back() == ' ' || head.back() == '=')) head.pop_back();
    return head;
  }
  if (is(inner, "declaration") || is(inner, "field_declaration")) {
    auto head = declared_signature(host);
    return head.empty() ? head : head + ";";
  }
  return declared_signature(host);
}

std::string Rules::declared_signature(TSNode host) const {
  if (is(host, "preproc_def") || is(host, "preproc_function_def")) {
    // the name and parameters; a value, which may run over many lines, is left out
    auto value = ts_node_child_by_field_name(host, "value", 5);
    auto head =
        flatten(ts_node_start_byte(host),
                ts_node_is_null(value) ? ts_node_end_byte(host) : ts_node_start_byte(value));
    if (head.starts_with("# ")) head.erase(1, 1);  // `#  define` as `#define`
    return ts_node_is_null(value) ? head : head + " ...";
  }
  // a template or typedef holds the part with the body: its head, then that part's header
  for (std::uint32_t i = 0; i < ts_node_named_child_count(host); ++i) {
    if (!ts_node_is_null(ts_node_child_by_field_name(host, "body", 4))) break;
    TSNode c = ts_node_named_child(host, i);
    if (ts_node_is_null(ts_node_child_by_field_name(c, "body", 4))) continue;
    auto head = flatten(ts_node_start_byte(host), ts_node_start_byte(c));
    auto rest = declared_signature(c);
    return head.empty() ? rest : head + " " + rest;
  }
  // a constructor's header ends before its member initializers
  for (std::uint32_t i = 0; i < ts_node_named_child_count(host); ++i) {
    TSNode c = ts_node_named_child(host, i);
    if (is(c, "field_initializer_list"))
      return flatten(ts_node_start_byte(host), ts_node_start_byte(c));
  }
  return Extraction::signature_of(host);
}

std::vector<std::string> Rules::visible_modules() const {
  return {module_};
}

void Rules::visit(TSNode node) {
  if (is(node, "call_expression")) {
    // A macro invocation the grammar cannot expand (OpenSSL's stack macros) can swallow the
    // `#define`s after it into a bogus function: a call on a directive line is no call of it.
    auto bol = src_.rfind('\n', ts_node_start_byte(node));
    auto first = src_.find_first_not_of(" \t", bol == std::string_view::npos ? 0 : bol + 1);
    if (first != std::string_view::npos && src_[first] == '#') return;
    // `__attribute__ ((__format__ (__printf__, 3, 4)))` calls nothing
    if (frame_of_type("attribute_specifier") != NONE) return;
    add_call(node, ts_node_child_by_field_name(node, "function", 8));
    return;
  }
  if (!is(node, "preproc_include")) return;
  TSNode p = ts_node_child_by_field_name(node, "path", 4);
  if (ts_node_is_null(p)) return;
  auto raw = text(p);
  if (raw.size() < 2) return;
  auto module = include_path(path_, raw.substr(1, raw.size() - 2));
  if (module.empty()) return;
  // the name keeps the include as written: `<a.h>` or `"a.h"`, which the index looks up apart
  out_.imports.push_back({line(node), module, std::string(raw), ""});
}

std::int64_t Rules::argument_count(TSNode call) const {
  TSNode args = ts_node_child_by_field_name(call, "arguments", 9);
  if (!is(call, "call_expression") || !is(args, "argument_list")) return -1;
  std::int64_t n = 0;
  for (std::uint32_t i = 0; i < ts_node_named_child_count(args); ++i)
    n += is_comment(ts_node_named_child(args, i)) ? 0 : 1;
  return n;
}

// One letter an argument: a braced list, a wide or a narrow string literal, or another
// expression; "" when none shows its kind.
std::string Rules::argument_kinds(TSNode call,
                                  const std::function<char(std::string_view)>& declared) const {
  TSNode args = ts_node_child_by_field_name(call, "arguments", 9);
  if (!is(call, "call_expression") || !is(args, "argument_list")) return {};
  std::string kinds;
  bool shown = false;
  for (std::uint32_t i = 0; i < ts_node_named_child_count(args); ++i) {
    TSNode a = ts_node_named_child(args, i);
    if (is_comment(a)) continue;
    char kind = '?';
    if (is(a, "initializer_list")) kind = 'b';
    // `std::wstring(L"...")` is a wide string as well
    if (is(a, "call_expression") &&
        text(ts_node_child_by_field_name(a, "function", 8)).ends_with("wstring"))
      kind = 'w';
    if (is(a, "string_literal") || is(a, "concatenated_string") || is(a, "raw_string_literal")) {
      auto t = text(a);
      kind = t.starts_with("L") ? 'w' : t.starts_with("\"") || t.starts_with("u8") ? 's' : '?';
    }
    if (char k = declared && is(a, "identifier") ? declared(text(a)) : 0) kind = k;
    shown = shown || kind != '?';
    kinds.push_back(kind);
  }
  return shown ? kinds : std::string();
}

void Rules::resolve(const tagged::PendingCall& pending, ParsedCall& call) {
  if (!is(pending.callee, "identifier")) return;  // through a pointer or a field
  call.arguments = argument_count(pending.call);
  call.argument_kinds = argument_kinds(pending.call);
  call.target = text(pending.callee);
  call.evidence = defined_.count(call.target) != 0 ? "same-file" : "include";
  call.scope_modules = visible_modules();
}

}  // namespace orvane_tamsel::indexer::c
