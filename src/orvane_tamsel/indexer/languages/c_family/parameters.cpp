#include "orvane_tamsel/indexer/languages/c_family/parameters.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>

namespace orvane_tamsel::indexer::c_family {

namespace {

bool ident_char(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool is_word(const std::string& t) {
  return !t.empty() && ident_char(t[0]) && !(t[0] >= '0' && t[0] <= '9');
}

// Words a declaration and its definition may spell differently: left out.
constexpr std::array<std::string_view, 8> ELABORATIONS = {
    "struct", "class", "enum", "union", "typename", "register", "restrict", "__restrict"};
// Words that are part of a type and never a parameter's name.
constexpr std::array<std::string_view, 17> TYPE_WORDS = {
    "const",  "volatile", "void",     "bool",    "char",    "short",    "int",      "long", "float",
    "double", "signed",   "unsigned", "wchar_t", "char8_t", "char16_t", "char32_t", "auto"};

bool listed(std::string_view w, const auto& list) {
  return std::find(list.begin(), list.end(), w) != list.end();
}

// The `(` that opens `name`'s parameter list, or npos.
std::size_t list_start(std::string_view sig, std::string_view name) {
  if (name.empty()) return std::string_view::npos;
  for (auto at = sig.find(name); at != std::string_view::npos; at = sig.find(name, at + 1)) {
    auto end = at + name.size();
    if ((at > 0 && ident_char(sig[at - 1])) || (end < sig.size() && ident_char(sig[end]))) continue;
    auto open = sig.find_first_not_of(' ', end);
    if (open != std::string_view::npos && sig[open] == '(') return open;
  }
  return std::string_view::npos;
}

// Tokens of one parameter, its default value left out; qualified words keep their last part.
std::vector<std::string> tokens(std::string_view p, std::vector<bool>& qualified) {
  std::vector<std::string> out;
  int depth = 0;
  for (std::size_t i = 0; i < p.size();) {
    char c = p[i];
    if (c == ' ') {
      ++i;
    } else if (ident_char(c) || (c == ':' && i + 1 < p.size() && p[i + 1] == ':')) {
      auto start = i;
      while (i < p.size() && (ident_char(p[i]) || p[i] == ':')) ++i;
      auto word = p.substr(start, i - start);
      auto colon = word.rfind(':');
      bool q = colon != std::string_view::npos;
      if (q) word.remove_prefix(colon + 1);
      if (word.empty() || listed(word, ELABORATIONS) || word == "__restrict__") continue;
      out.emplace_back(word);
      qualified.push_back(q);
    } else {
      if (c == '=' && depth == 0) break;
      depth += (c == '(' || c == '<' || c == '[') ? 1 : (c == ')' || c == '>' || c == ']') ? -1 : 0;
      out.emplace_back(1, c);
      qualified.push_back(false);
      ++i;
    }
  }
  return out;
}

// The type of one parameter: its name, when one is recognizable, dropped. The name is the last
// plain word outside template arguments after a word of the type (`const Foo` names nothing).
ParameterType type_of(std::string_view p) {
  std::vector<bool> qualified;
  auto t = tokens(p, qualified);
  std::size_t name = t.size();
  int angle = 0;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (t[i] == "<") ++angle;
    if (t[i] == ">") --angle;
    bool follows_template = i + 1 < t.size() && (t[i + 1] == "<" || t[i + 1] == "(");
    if (angle == 0 && is_word(t[i]) && !qualified[i] && !listed(t[i], TYPE_WORDS) &&
        !follows_template)
      name = i;
  }
  if (name == t.size()) return t;
  bool typed = false;
  for (std::size_t i = 0; i < name && !typed; ++i)
    typed = is_word(t[i]) && t[i] != "const" && t[i] != "volatile";
  if (typed) t.erase(t.begin() + static_cast<std::ptrdiff_t>(name));
  return t;
}

bool has_default(std::string_view p) {
  int depth = 0;
  for (char c : p) {
    depth += (c == '(' || c == '<' || c == '[') ? 1 : (c == ')' || c == '>' || c == ']') ? -1 : 0;
    if (c == '=' && depth == 0) return true;
  }
  return false;
}

// The parameters of `name` in its signature as written, `(void)` none; nullopt when no list of
// it can be read (an operator, a list cut short).
std::optional<std::vector<std::string_view>> parameters(std::string_view sig,
                                                        std::string_view name) {
  auto open = list_start(sig, name);
  if (open == std::string_view::npos) return std::nullopt;
  std::vector<std::string_view> out;
  int depth = 0;
  auto from = open + 1;
  for (auto i = open; i < sig.size(); ++i) {
    char c = sig[i];
    if (c == '(' || c == '<' || c == '[' || c == '{') ++depth;
    if (c == ')' || c == '>' || c == ']' || c == '}') --depth;
    if ((c == ',' && depth == 1) || depth == 0) {
      auto p = sig.substr(from, i - from);
      if (p.find_first_not_of(' ') != std::string_view::npos || c == ',') out.push_back(p);
      from = i + 1;
    }
    if (depth == 0) {
      if (out.size() == 1 && type_of(out[0]) == ParameterType{"void"}) out.clear();
      return out;
    }
  }
  return std::nullopt;
}

std::string_view text_arg(sqlite3_value* v) {
  auto p = sqlite3_value_text(v);
  return p == nullptr ? std::string_view()
                      : std::string_view(reinterpret_cast<const char*>(p),
                                         static_cast<std::size_t>(sqlite3_value_bytes(v)));
}

void same_parameters_sql(sqlite3_context* ctx, int, sqlite3_value** argv) {
  sqlite3_result_int(ctx, same_parameters(text_arg(argv[0]), text_arg(argv[1]), text_arg(argv[2])));
}

void fits_sql(sqlite3_context* ctx, int, sqlite3_value** argv) {
  sqlite3_result_int(ctx, fits(text_arg(argv[0]), text_arg(argv[1]), sqlite3_value_int64(argv[2])));
}

void fit_score_sql(sqlite3_context* ctx, int, sqlite3_value** argv) {
  sqlite3_result_int(ctx, fit_score(text_arg(argv[0]), text_arg(argv[1]),
                                    sqlite3_value_int64(argv[2]), text_arg(argv[3])));
}

bool suits(char kind, const ParameterType& type) {
  auto has = [&](std::string_view w) { return listed(w, type); };
  switch (kind) {
    case 'b':
      return has("initializer_list");
    case 'w':
      return has("wchar_t") || has("wstring");
    case 's':  // a std::string takes one by conversion, which a char pointer or a template beats
      return has("char");
    case 'a':  // an array: an array reference, or a pointer it decays to
      return has("[") || has("*");
    case 'n':  // a null pointer: a pointer, a function's too
      return has("*");
    case 'c':  // an object: no array or pointer parameter takes one
      return !has("[") && !has("*") && !has("initializer_list");
    default:
      return true;
  }
}

}  // namespace

std::optional<std::vector<ParameterType>> parameter_types(std::string_view sig,
                                                          std::string_view name) {
  auto list = parameters(sig, name);
  if (!list) return std::nullopt;
  std::vector<ParameterType> out;
  for (auto p : *list) out.push_back(type_of(p));
  return out;
}

namespace {

// `...` or a pack (`Matcher<Args>... m`), not a pack inside a type (`R (*)(Args...)`).
bool variadic(std::string_view parameter) {
  int depth = 0;
  for (std::size_t i = 0; i < parameter.size(); ++i) {
    char c = parameter[i];
    depth += c == '(' || c == '<' || c == '[' ? 1 : c == ')' || c == '>' || c == ']' ? -1 : 0;
    if (depth == 0 && parameter.substr(i, 3) == "...") return true;
  }
  return false;
}

}  // namespace

bool fits(std::string_view signature, std::string_view name, std::int64_t arguments) {
  auto list = parameters(signature, name);
  if (arguments < 0 || !list) return true;
  std::int64_t required = 0;
  for (auto p : *list) {
    if (variadic(p)) return arguments >= required;
    if (!has_default(p)) ++required;
  }
  return arguments >= required && arguments <= static_cast<std::int64_t>(list->size());
}

int fit_score(std::string_view signature, std::string_view name, std::int64_t arguments,
              std::string_view kinds) {
  if (!fits(signature, name, arguments)) return 0;
  auto types = parameter_types(signature, name);
  if (kinds.empty() || !types) return 1;
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    if (i >= types->size() || !suits(kinds[i], (*types)[i])) return 1;
  }
  return 2;
}

bool same_parameters(std::string_view a, std::string_view b, std::string_view name) {
  auto pa = parameter_types(a, name);
  auto pb = parameter_types(b, name);
  return !pa || !pb || *pa == *pb;
}

void register_parameter_functions(sqlite3* db) {
  constexpr int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  sqlite3_create_function(db, "c_same_parameters", 3, flags, nullptr, same_parameters_sql, nullptr,
                          nullptr);
  sqlite3_create_function(db, "c_fits", 3, flags, nullptr, fits_sql, nullptr, nullptr);
  sqlite3_create_function(db, "c_fits", 4, flags, nullptr, fit_score_sql, nullptr, nullptr);
}

}  // namespace orvane_tamsel::indexer::c_family
