#include "orvane_tamsel/indexer/languages/c_family/macro_bodies.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <optional>
#include <set>

namespace orvane_tamsel::indexer::c_family {

namespace {

enum class Kind { word, punct, literal };

struct Token {
  Kind kind;
  std::string_view text;
};

bool word_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// A body is token soup, not an expression: it is read as the preprocessor reads it.
std::vector<Token> tokens_of(std::string_view s) {
  std::vector<Token> out;
  std::size_t i = 0;
  while (i < s.size()) {
    char c = s[i];
    if (std::isspace(static_cast<unsigned char>(c)) != 0 || c == '\\') {
      ++i;
    } else if (s.substr(i, 2) == "//") {
      i = std::min(s.find('\n', i), s.size());
    } else if (s.substr(i, 2) == "/*") {
      auto end = s.find("*/", i + 2);
      i = end == std::string_view::npos ? s.size() : end + 2;
    } else if (c == '"' || c == '\'') {
      std::size_t j = i + 1;
      while (j < s.size() && s[j] != c) j += s[j] == '\\' ? 2 : 1;
      j = std::min(j + 1, s.size());
      out.push_back({Kind::literal, s.substr(i, j - i)});
      i = j;
    } else if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
      std::size_t j = i;
      while (j < s.size() && (word_char(s[j]) || s[j] == '.' || s[j] == '\'')) ++j;
      out.push_back({Kind::literal, s.substr(i, j - i)});
      i = j;
    } else if (word_char(c)) {
      std::size_t j = i;
      while (j < s.size() && word_char(s[j])) ++j;
      // a string's prefix (`L"..."`, `u8"..."`) belongs to the literal
      if (j < s.size() && (s[j] == '"' || s[j] == '\'') && j - i <= 2) {
        i = j;
        continue;
      }
      out.push_back({Kind::word, s.substr(i, j - i)});
      i = j;
    } else {
      auto two = s.substr(i, 2);
      std::size_t n = two == "::" || two == "->" || two == "##" ? 2 : 1;
      out.push_back({Kind::punct, s.substr(i, n)});
      i += n;
    }
  }
  return out;
}

constexpr std::array<std::string_view, 40> KEYWORDS = {"if",
                                                       "while",
                                                       "for",
                                                       "switch",
                                                       "return",
                                                       "sizeof",
                                                       "alignof",
                                                       "decltype",
                                                       "typeof",
                                                       "__typeof__",
                                                       "defined",
                                                       "static_assert",
                                                       "_Static_assert",
                                                       "__attribute__",
                                                       "__declspec",
                                                       "noexcept",
                                                       "throw",
                                                       "catch",
                                                       "case",
                                                       "do",
                                                       "else",
                                                       "typeid",
                                                       "new",
                                                       "delete",
                                                       "operator",
                                                       "template",
                                                       "typename",
                                                       "alignas",
                                                       "asm",
                                                       "__asm__",
                                                       "_Pragma",
                                                       "__pragma",
                                                       "static_cast",
                                                       "dynamic_cast",
                                                       "const_cast",
                                                       "reinterpret_cast",
                                                       "co_return",
                                                       "co_await",
                                                       "co_yield",
                                                       "__VA_OPT__"};

bool is_keyword(std::string_view w) {
  return std::find(KEYWORDS.begin(), KEYWORDS.end(), w) != KEYWORDS.end();
}

// Words after which a name followed by `(` is still a call, not a declaration (`void f(`).
bool call_may_follow(std::string_view w) {
  for (std::string_view k : {"return", "else", "do", "case", "throw", "new", "co_return",
                             "co_await", "co_yield", "and", "or", "not"}) {
    if (w == k) return true;
  }
  return false;
}

class Reader {
 public:
  explicit Reader(std::vector<Token> tokens) : t_(std::move(tokens)) {}

  std::vector<MacroCall> calls() {
    std::vector<MacroCall> out;
    std::size_t i = 0;
    while (i < t_.size()) {
      if (auto open = member_call_end(i); open != i) {
        out.push_back(call(i, open, true));
        i = open;
        continue;
      }
      std::size_t end = name_end(i);
      if (end == i) {
        ++i;
        continue;
      }
      if (end < t_.size() && is(end, "(") && names_call(i, end)) out.push_back(call(i, end));
      i = end;  // the arguments are read on: they may call too
    }
    return out;
  }

 private:
  bool is(std::size_t i, std::string_view text) const {
    return i < t_.size() && t_[i].kind == Kind::punct && t_[i].text == text;
  }
  bool word(std::size_t i) const { return i < t_.size() && t_[i].kind == Kind::word; }

  // The end of a name starting at i, `[::] a [<...>] (:: [template] b [<...>])*`, or i.
  std::size_t name_end(std::size_t i) const {
    std::size_t j = i;
    if (is(j, "::")) ++j;
    if (!word(j)) return i;
    for (;;) {
      ++j;
      j = template_args_end(j);
      if (!is(j, "::")) return j;
      std::size_t k = j + 1;
      if (word(k) && t_[k].text == "template") ++k;
      if (!word(k)) return j;
      j = k;
    }
  }
  // Past `<...>` at i when it closes before a statement's end and a `::` or `(` follows.
  std::size_t template_args_end(std::size_t i) const {
    if (!is(i, "<")) return i;
    int depth = 0;
    for (std::size_t j = i; j < t_.size(); ++j) {
      if (is(j, "<") || is(j, "(")) ++depth;
      if (is(j, ">") || is(j, ")")) --depth;
      if (is(j, ";") || is(j, "{") || is(j, "}") || depth < 0) return i;
      if (depth == 0) return is(j + 1, "::") || is(j + 1, "(") ? j + 1 : i;
    }
    return i;
  }

  // The `(` of a member call on a name at i, `x.m(`, `(x)->m(` or `((x).pre_##name)(`, or i.
  std::size_t member_call_end(std::size_t i) const {
    std::size_t j = i;
    bool parens = is(j, "(");
    if (parens) ++j;
    if (!word(j) || is_keyword(t_[j].text)) return i;
    if (!parens && i > 0 && (is(i - 1, ".") || is(i - 1, "->") || is(i - 1, "::"))) return i;
    ++j;
    if (parens && !is(j++, ")")) return i;
    if (!is(j, ".") && !is(j, "->")) return i;
    for (++j; word(j); j += 2) {
      if (is(j + 1, "##")) continue;
      if (is(j + 1, "(")) return j + 1;
      bool enclosed = i > 0 && is(i - 1, "(") && is(j + 1, ")") && is(j + 2, "(");
      return enclosed ? j + 2 : i;
    }
    return i;
  }

  bool names_call(std::size_t start, std::size_t end) const {
    // the name's last word, template arguments after it (`GenerateNames<A, B>(`) left out
    std::size_t last = end;
    int angle = 0;
    for (std::size_t k = start; k < end; ++k) {
      angle += is(k, "<") ? 1 : is(k, ">") ? -1 : 0;
      if (angle == 0 && word(k)) last = k;
    }
    if (last == end || is_keyword(t_[last].text)) return false;
    if (word(start) && is_keyword(t_[start].text)) return false;
    if (start > 0) {
      const auto& prev = t_[start - 1];
      if (prev.kind == Kind::punct &&
          (prev.text == "." || prev.text == "->" || prev.text == "#" || prev.text == "##" ||
           prev.text == "~" || (prev.text == "&" && start > 1 && word(start - 2))))
        return false;
      if (prev.kind == Kind::word && !call_may_follow(prev.text)) return false;
    }
    return !is(end, "##");
  }

  std::string joined(std::size_t from, std::size_t to) const {
    std::string out;
    for (std::size_t k = from; k < to; ++k) {
      if (k > from && t_[k].kind == Kind::word && t_[k - 1].kind == Kind::word) out.push_back(' ');
      out.append(t_[k].text);
    }
    return out;
  }

  MacroCall call(std::size_t start, std::size_t open, bool member = false) const {
    MacroCall c;
    if (member) {  // `(x)->pre_##m` as `x.pre_##m`
      std::size_t receiver = is(start, "(") ? start + 1 : start;
      std::size_t name = is(start, "(") ? start + 4 : start + 2, end = name;
      while (word(end) || is(end, "##")) ++end;
      c.callee = std::string(t_[receiver].text) + "." + joined(name, end);
    } else {
      c.callee = joined(start, open);
    }
    std::vector<std::pair<std::size_t, std::size_t>> args;
    int depth = 0;
    std::size_t from = open + 1;
    for (std::size_t j = open; j < t_.size(); ++j) {
      if (is(j, "(") || is(j, "[") || is(j, "{")) ++depth;
      if (is(j, ")") || is(j, "]") || is(j, "}")) {
        if (--depth == 0) {
          if (j > from || !args.empty()) args.emplace_back(from, j);
          break;
        }
      }
      if (depth == 1 && is(j, ",")) {
        args.emplace_back(from, j);
        from = j + 1;
      }
    }
    c.arguments = static_cast<std::int64_t>(args.size());
    for (auto [a, b] : args) {
      bool alone = b > a && name_end(a) == b;
      // the variadic arguments passed on count for any number
      if (b == a + 1 && word(a) && t_[a].text == "__VA_ARGS__") c.arguments = -1;
      c.args.push_back(alone ? joined(a, b) : std::string());
    }
    return c;
  }

  std::vector<Token> t_;
};

bool plain_word(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), word_char) &&
         std::isdigit(static_cast<unsigned char>(s.front())) == 0;
}

struct Expansion {
  const MacroLookup& lookup;
  int max_depth;
  std::vector<std::string> stack;
  std::vector<MacroCall> out;
  std::set<std::pair<std::string, std::int64_t>> seen;

  void expand(const MacroBody& m, const std::map<std::string, std::string, std::less<>>& bound,
              int depth) {
    auto value = [&](const std::string& written) -> std::optional<std::string> {
      if (std::find(m.params.begin(), m.params.end(), written) == m.params.end()) return written;
      auto b = bound.find(written);
      if (b == bound.end() || b->second.empty()) return std::nullopt;
      return b->second;
    };
    for (const auto& call : m.calls) {
      if (call.callee.find('.') != std::string::npos) {
        member_call(call, value);
        continue;
      }
      auto callee = value(call.callee);
      if (!callee || callee->starts_with(USE_ARGUMENT)) continue;
      if (plain_word(*callee)) {
        if (auto defs = lookup(*callee, m)) {
          if (depth >= max_depth || std::find(stack.begin(), stack.end(), *callee) != stack.end())
            continue;
          stack.push_back(*callee);
          for (const auto* def : *defs) {
            std::map<std::string, std::string, std::less<>> inner;
            for (std::size_t i = 0; i < def->params.size() && i < call.args.size(); ++i)
              inner[def->params[i]] = value(call.args[i]).value_or("");
            expand(*def, inner, depth + 1);
          }
          stack.pop_back();
          continue;
        }
      }
      add(*callee, call, value);
    }
  }

  template <typename Value>
  void add(const std::string& callee, const MacroCall& call, const Value& value) {
    if (!seen.insert({callee, call.arguments}).second) return;
    // which of the use's arguments each argument is, when one is passed down, or a null pointer
    std::vector<std::string> passed;
    bool any = false;
    for (const auto& a : call.args) {
      auto v = value(a).value_or("");
      passed.push_back(v.starts_with(USE_ARGUMENT) || v == "nullptr" ? v : std::string());
      any = any || !passed.back().empty();
    }
    if (!any) passed.clear();
    out.push_back({callee, call.arguments, std::move(passed)});
  }

  // `x.pre_##name(...)`: kept when x is one of the use's arguments, whose type the use knows,
  // with each pasted parameter the use's argument it is bound to.
  template <typename Value>
  void member_call(const MacroCall& call, const Value& value) {
    auto dot = call.callee.find('.');
    auto receiver = value(call.callee.substr(0, dot));
    if (!receiver || !receiver->starts_with(USE_ARGUMENT)) return;
    std::string member;
    for (std::size_t at = dot + 1; at <= call.callee.size();) {
      auto end = std::min(call.callee.find("##", at), call.callee.size());
      auto piece = value(call.callee.substr(at, end - at));
      if (!piece) return;
      member += *piece;
      at = end + 2;
    }
    add(*receiver + "." + member, call, value);
  }
};

}  // namespace

std::vector<MacroCall> calls_in_body(std::string_view body) {
  return Reader(tokens_of(body)).calls();
}

std::string encode_params(const std::vector<std::string>& params) {
  std::string out;
  for (const auto& p : params) {
    if (!out.empty()) out.push_back(',');
    out += p;
  }
  return out;
}

std::vector<std::string> decode_params(std::string_view text) {
  std::vector<std::string> out;
  if (text.empty()) return out;
  for (std::size_t start = 0; start <= text.size();) {
    auto end = std::min(text.find(',', start), text.size());
    out.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

// One call a line: callee, argument count, then each argument, tab-separated.
std::string encode_calls(const std::vector<MacroCall>& calls) {
  std::string out;
  for (const auto& c : calls) {
    out += c.callee;
    out += '\t';
    out += std::to_string(c.arguments);
    for (const auto& a : c.args) {
      out += '\t';
      out += a;
    }
    out += '\n';
  }
  return out;
}

std::vector<MacroCall> decode_calls(std::string_view text) {
  std::vector<MacroCall> out;
  for (std::size_t start = 0; start < text.size();) {
    auto end = std::min(text.find('\n', start), text.size());
    auto line = text.substr(start, end - start);
    start = end + 1;
    std::vector<std::string_view> parts;
    for (std::size_t p = 0; p <= line.size();) {
      auto q = std::min(line.find('\t', p), line.size());
      parts.push_back(line.substr(p, q - p));
      p = q + 1;
    }
    if (parts.size() < 2) continue;
    MacroCall c;
    c.callee = parts[0];
    c.arguments = std::stoll(std::string(parts[1]));
    for (std::size_t i = 2; i < parts.size(); ++i) c.args.emplace_back(parts[i]);
    out.push_back(std::move(c));
  }
  return out;
}

std::vector<MacroCall> expand_calls(const MacroBody& macro, const MacroLookup& lookup,
                                    int max_depth) {
  Expansion e{lookup, max_depth, {macro.name}, {}, {}};
  std::map<std::string, std::string, std::less<>> use;
  // (the position as one byte after the mark: a macro has far fewer than 255 parameters)
  for (std::size_t i = 0; i < macro.params.size() && i < 255; ++i)
    use[macro.params[i]] = {USE_ARGUMENT[0], static_cast<char>(i + 1)};
  e.expand(macro, use, 0);
  return std::move(e.out);
}

std::string argument_kinds_at_use(const MacroCall& call, std::string_view use_kinds) {
  std::string out;
  bool shown = false;
  for (const auto& a : call.args) {
    char kind = a == "nullptr" ? 'n' : '?';
    if (a.size() == 2 && a.starts_with(USE_ARGUMENT)) {
      auto i = static_cast<unsigned char>(a[1]) - 1u;
      if (i < use_kinds.size()) kind = use_kinds[i];
    }
    shown = shown || kind != '?';
    out.push_back(kind);
  }
  return shown ? out : std::string();
}

}  // namespace orvane_tamsel::indexer::c_family
