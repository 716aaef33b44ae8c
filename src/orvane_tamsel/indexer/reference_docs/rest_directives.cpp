#include "orvane_tamsel/indexer/reference_docs/rest_directives.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

namespace orvane_tamsel::indexer::reference_docs {

namespace {

enum class Kind { module, object, member, other };

constexpr std::array<std::string_view, 6> OBJECT_KINDS = {
    "class", "exception", "function", "data", "decorator", "coroutinefunction"};
constexpr std::array<std::string_view, 9> MEMBER_KINDS = {
    "method",          "attribute",      "classmethod", "staticmethod",   "coroutinemethod",
    "decoratormethod", "abstractmethod", "property",    "awaitablemethod"};

struct Directive {
  std::size_t indent = 0;
  std::string kind;
  std::string argument;
};

std::size_t indent_of(std::string_view line) {
  std::size_t i = 0;
  while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
  return i;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// `.. kind:: argument`, `py:` dropped; nullopt for any other line.
std::optional<Directive> directive(std::string_view line) {
  auto indent = indent_of(line);
  auto rest = line.substr(indent);
  if (rest.substr(0, 3) != ".. ") return std::nullopt;
  rest.remove_prefix(3);
  auto colons = rest.find("::");
  if (colons == std::string_view::npos || colons == 0) return std::nullopt;
  auto kind = rest.substr(0, colons);
  if (kind.find(' ') != std::string_view::npos) return std::nullopt;
  if (kind.substr(0, 3) == "py:") kind.remove_prefix(3);
  return Directive{indent, std::string(kind), std::string(trim(rest.substr(colons + 2)))};
}

Kind kind_of(std::string_view kind) {
  if (kind == "module" || kind == "currentmodule") return Kind::module;
  if (std::find(OBJECT_KINDS.begin(), OBJECT_KINDS.end(), kind) != OBJECT_KINDS.end()) {
    return Kind::object;
  }
  if (std::find(MEMBER_KINDS.begin(), MEMBER_KINDS.end(), kind) != MEMBER_KINDS.end()) {
    return Kind::member;
  }
  return Kind::other;
}

// The dotted name a signature starts with: `Queue(maxsize=0)` -> Queue, `await x` -> x.
std::string signature_name(std::string_view argument) {
  auto s = trim(argument);
  for (std::string_view prefix : {"async ", "await ", "class ", "@"}) {
    if (s.substr(0, prefix.size()) == prefix) s = trim(s.substr(prefix.size()));
  }
  std::size_t end = 0;
  while (end < s.size() &&
         (std::isalnum(static_cast<unsigned char>(s[end])) || s[end] == '_' || s[end] == '.')) {
    ++end;
  }
  auto name = s.substr(0, end);
  while (!name.empty() && name.back() == '.') name.remove_suffix(1);
  return std::string(name);
}

std::string joined(const std::string& prefix, const std::string& name) {
  if (prefix.empty()) return name;
  // A name written with its prefix already (`asyncio.run` under `asyncio`) is not prefixed twice.
  if (name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
      name[prefix.size()] == '.') {
    return name;
  }
  return prefix + "." + name;
}

std::string last_part(const std::string& fqn) {
  auto dot = fqn.rfind('.');
  return dot == std::string::npos ? fqn : fqn.substr(dot + 1);
}

// Appends the words of one body line: a role keeps its target (`:func:`~a.b`` -> a.b, a titled
// one its title), emphasis and literal marks go, punctuation becomes a space.
void add_words(std::string& text, std::size_t& words, std::string_view line) {
  std::string plain;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (c == ':' && i + 1 < line.size() && std::isalpha(static_cast<unsigned char>(line[i + 1]))) {
      // A role's name (`:meth:`) says nothing about the object.
      auto close = line.find(":`", i + 1);
      auto space = line.find_first_of(" \t", i + 1);
      if (close != std::string_view::npos && close < space) {
        i = close;
        continue;
      }
    }
    if (c == '<') {  // `title <target>`: the title stands for it
      auto close = line.find(">`", i);
      if (close != std::string_view::npos) {
        i = close;
        continue;
      }
    }
    bool keep = std::isalnum(static_cast<unsigned char>(c)) || c == '_' ||
                (static_cast<unsigned char>(c) >= 0x80);
    plain.push_back(keep ? c : ' ');
  }
  std::size_t at = 0;
  while (words < MAX_WORDS) {
    at = plain.find_first_not_of(' ', at);
    if (at == std::string::npos) break;
    auto end = std::min(plain.find(' ', at), plain.size());
    if (!text.empty()) text.push_back(' ');
    text.append(plain, at, end - at);
    ++words;
    at = end;
  }
}

struct Open {
  std::size_t indent;
  std::size_t entry;  // into the result
  bool is_class;      // members nested in it take its name
  std::size_t words = 0;
};

}  // namespace

bool is_reference_page(std::string_view path) {
  auto ends = [&](std::string_view ext) {
    return path.size() >= ext.size() && path.substr(path.size() - ext.size()) == ext;
  };
  return ends(".rst") || ends(".txt");
}

bool has_python_directive(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    auto end = std::min(text.find('\n', at), text.size());
    auto d = directive(text.substr(at, end - at));
    if (d && kind_of(d->kind) != Kind::other) return true;
    at = end + 1;
  }
  return false;
}

std::vector<DocumentedName> documented_names(std::string_view page) {
  std::vector<DocumentedName> out;
  std::vector<Open> open;
  std::string module;
  // Lines right after an object directive, before its first blank line: more signatures or
  // options, not its body.
  bool in_header = false;
  std::size_t at = 0;
  while (at < page.size()) {
    auto end = std::min(page.find('\n', at), page.size());
    auto line = page.substr(at, end - at);
    at = end + 1;
    if (trim(line).empty()) {
      in_header = false;
      continue;
    }
    auto indent = indent_of(line);
    while (!open.empty() && open.back().indent >= indent) open.pop_back();
    if (in_header && !open.empty()) continue;
    in_header = false;
    auto d = directive(line);
    auto kind = d ? kind_of(d->kind) : Kind::other;
    if (d && kind == Kind::module) {
      module = d->argument == "None" ? "" : signature_name(d->argument);
      continue;
    }
    if (d && (kind == Kind::object || kind == Kind::member)) {
      auto name = signature_name(d->argument);
      if (name.empty()) continue;
      std::string prefix = module;
      auto holder =
          std::find_if(open.rbegin(), open.rend(), [](const Open& o) { return o.is_class; });
      if (holder != open.rend()) {
        prefix = out[holder->entry].fqn;
        // `.. method:: Queue.join` inside `.. class:: Queue`.
        auto own = last_part(prefix);
        if (name.compare(0, own.size() + 1, own + ".") == 0) name = name.substr(own.size() + 1);
      }
      bool is_class = d->kind == "class" || d->kind == "exception";
      out.push_back({joined(prefix, name), ""});
      open.push_back({indent, out.size() - 1, is_class});
      in_header = true;
      continue;
    }
    if (open.empty()) continue;
    // Other directives' markup (`.. versionchanged:: 3.10`, `.. code-block:: python`) is dropped;
    // their bodies' words are kept.
    if (d) continue;
    auto& top = open.back();
    add_words(out[top.entry].text, top.words, line);
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::reference_docs
