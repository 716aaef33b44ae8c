#include "orvane_tamsel/indexer/languages/cpp/preparse.h"

#include <array>
#include <cstddef>
#include <vector>

namespace orvane_tamsel::indexer::cpp {

namespace {

bool ident_char(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// A macro's name by convention: no lower-case letter, at least one upper-case one.
bool macro_like(std::string_view word) {
  bool upper = false;
  for (char c : word) {
    if (c >= 'a' && c <= 'z') return false;
    upper = upper || (c >= 'A' && c <= 'Z');
  }
  return upper;
}

bool ends_with_any(std::string_view word, const auto& suffixes) {
  for (std::string_view s : suffixes) {
    if (word.ends_with(s)) return true;
  }
  return false;
}

// libstdc++'s keywords and attributes spelled as macros, and the brackets of its versioned,
// container and ABI namespaces. Dropping the brackets leaves its classes directly in `std`,
// where its users name them (`std::basic_string`, not `std::__cxx11::basic_string`).
constexpr std::array<std::string_view, 15> LIBSTDCXX_PLAIN = {
    "_CONSTEXPR",     "_NOEXCEPT",        "_NODISCARD", "_NORETURN", "_NOTHROW",  "_INLINE",
    "_INTRINSIC",     "_DEPRECATED",      "_PURE",      "_CONST",    "_TXN_SAFE", "_SAFE_DYN",
    "_ABI_TAG_CXX11", "_DEFAULT_ABI_TAG", "_EXTERN_C"};
constexpr std::array<std::string_view, 5> LIBSTDCXX_CALLED = {
    "_VISIBILITY", "_NOEXCEPT_IF", "_DEPRECATED_SUGGEST", "_DEPRECATED", "_THROW"};
// Export and visibility macros before a class's or a function's name (`class GTEST_API_ Foo`).
constexpr std::array<std::string_view, 5> EXPORT_SUFFIXES = {"_API", "_API_", "_EXPORT", "_EXPORTS",
                                                             "_EXPORT_"};
// glibc's attributes spelled as macros, mostly after a prototype's parameters
// (`__THROW __nonnull ((1)) __wur;`), and its `extern "C"` brackets: read as names they turn
// the prototype into an error the grammar drops. `__attribute__` itself the grammar knows.
constexpr std::array<std::string_view, 11> GLIBC_PLAIN = {"__wur",
                                                          "__nonnull",
                                                          "__returns_nonnull",
                                                          "__COLD",
                                                          "__LEAF",
                                                          "__BEGIN_DECLS",
                                                          "__END_DECLS",
                                                          "__extern_inline",
                                                          "__fortify_function",
                                                          "__extern_always_inline",
                                                          "__fortified_attr_access"};

bool glibc_decoration(std::string_view w) {
  if (w.starts_with("__THROW") || w.starts_with("__attr_")) return true;
  if (w.starts_with("__attribute_") && w != "__attribute__") return true;
  for (std::string_view m : GLIBC_PLAIN) {
    if (w == m) return true;
  }
  return false;
}

class Blanker {
 public:
  explicit Blanker(std::string_view src) : src_(src) {}

  std::string run() {
    bool line_start = true;
    for (i_ = 0; i_ < src_.size();) {
      char c = src_[i_];
      if (c == '\n') {
        line_start = true;
        ++i_;
      } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
        ++i_;
      } else if (line_start && c == '#') {
        skip_directive();
      } else if (c == '/' && next(1) == '/') {
        skip_until("\n");
      } else if (c == '/' && next(1) == '*') {
        i_ += 2;
        skip_until("*/");
        i_ += 2;
      } else if (c == '"' || c == '\'') {
        skip_literal(c);
        line_start = false;
      } else if (ident_char(c)) {
        word();
        line_start = false;
      } else {
        ++i_;
        line_start = false;
      }
    }
    return std::move(out_);
  }

 private:
  char next(std::size_t k) const { return i_ + k < src_.size() ? src_[i_ + k] : '\0'; }

  void skip_until(std::string_view end) {
    auto at = src_.find(end, i_);
    i_ = at == std::string_view::npos ? src_.size() : at;
  }

  // A directive runs to the end of its line and of the lines its backslashes continue.
  void skip_directive() {
    while (i_ < src_.size()) {
      auto nl = src_.find('\n', i_);
      if (nl == std::string_view::npos) {
        i_ = src_.size();
        return;
      }
      auto last = nl;
      while (last > i_ && (src_[last - 1] == '\r' || src_[last - 1] == ' ')) --last;
      bool continued = last > 0 && src_[last - 1] == '\\';
      // a block comment on a continued line (`= delete; /* NOLINT */ \`) ends the grammar's
      // macro value there, and the rest of the macro is read as code
      for (auto c = src_.find("/*", i_); continued && c < nl; c = src_.find("/*", c + 2)) {
        auto end = src_.find("*/", c + 2);
        if (end < nl) blank(c, end + 2);
      }
      i_ = nl + 1;
      if (!continued) return;
    }
  }

  void skip_literal(char quote) {
    for (++i_; i_ < src_.size() && src_[i_] != quote && src_[i_] != '\n'; ++i_) {
      if (src_[i_] == '\\') ++i_;
    }
    ++i_;
  }

  void word() {
    auto start = i_;
    while (i_ < src_.size() && ident_char(src_[i_])) ++i_;
    std::string_view w = src_.substr(start, i_ - start);
    if (w[0] >= '0' && w[0] <= '9') return;
    auto after = src_.find_first_not_of(" \t\r\n", i_);
    char follow = after == std::string_view::npos ? '\0' : src_[after];
    if (glibc_decoration(w)) return follow == '(' ? blank_call(start, after) : blank(start, i_);
    if (!macro_like(w)) return;
    if (follow == '(' && annotates_definition(start, after)) return blank_call(start, after);
    if (w.starts_with("_GLIBCXX")) {
      if (follow == '(' && ends_with_any(w, LIBSTDCXX_CALLED)) return blank_call(start, after);
      if (w.find("_NAMESPACE") != std::string_view::npos || ends_with_any(w, LIBSTDCXX_PLAIN))
        blank(start, i_);
      return;
    }
    if (ends_with_any(w, EXPORT_SUFFIXES) && ident_char(follow)) blank(start, i_);
  }

  // A macro call between a function's parameters and its body (`void f() const
  // GTEST_LOCK_EXCLUDED_(mu) {`, thread-safety annotations): read as a name it makes the
  // definition an error the grammar drops.
  bool annotates_definition(std::size_t start, std::size_t open) const {
    auto code = code_before(start);
    if (!code.ends_with(")") && !code.ends_with(") const")) return false;
    int depth = 0;
    for (auto j = open; j < src_.size(); ++j) {
      if (src_[j] == '(') ++depth;
      if (src_[j] == ')' && --depth == 0) {
        auto next = src_.find_first_not_of(" \t\r\n", j + 1);
        return next != std::string_view::npos && src_[next] == '{';
      }
    }
    return false;
  }

  // The code before a byte, up to it, without the comment lines, directives and blank lines
  // between (`// Tests f()` before `TEST(A, B) {` is no parameter list).
  std::string_view code_before(std::size_t at) const {
    for (auto end = at; end > 0;) {
      auto bol = src_.rfind('\n', end - 1);
      bol = bol == std::string_view::npos ? 0 : bol + 1;
      auto line = src_.substr(bol, end - bol);
      line = line.substr(0, line.find("//"));
      auto first = line.find_first_not_of(" \t\r");
      auto last = line.find_last_not_of(" \t\r\\");
      if (first != std::string_view::npos && line[first] != '#')
        return src_.substr(0, bol + last + 1);
      end = bol == 0 ? 0 : bol - 1;
    }
    return {};
  }

  // The macro and its parenthesized arguments, when they close.
  void blank_call(std::size_t start, std::size_t open) {
    int depth = 0;
    for (auto j = open; j < src_.size(); ++j) {
      if (src_[j] == '(') ++depth;
      if (src_[j] == ')' && --depth == 0) {
        blank(start, j + 1);
        i_ = j + 1;
        return;
      }
    }
  }

  void blank(std::size_t from, std::size_t to) {
    if (out_.empty()) out_.assign(src_);
    for (auto j = from; j < to; ++j) {
      if (out_[j] != '\n') out_[j] = ' ';
    }
  }

  std::string_view src_;
  std::size_t i_ = 0;
  std::string out_;
};

// Preprocessor conditionals whose branches are fragments of declarations (see preparse.h).
class Conditionals {
 public:
  explicit Conditionals(std::string& text) : text_(text) {}

  // Whether any branch was blanked.
  bool run() {
    std::vector<std::vector<Directive>> open;
    for (std::size_t at = 0; at < text_.size();) {
      auto first = text_.find_first_not_of(" \t", at);
      if (first == std::string::npos) break;
      if (text_[first] != '#') {
        auto nl = text_.find('\n', first);
        at = nl == std::string::npos ? text_.size() : nl + 1;
        continue;
      }
      Directive d{at, directive_end(first), word_after(first + 1)};
      at = d.end;
      if (d.word == "if" || d.word == "ifdef" || d.word == "ifndef") {
        open.push_back({d});
      } else if ((d.word == "elif" || d.word == "else") && !open.empty()) {
        open.back().push_back(d);
      } else if (d.word == "endif" && !open.empty()) {
        open.back().push_back(d);
        settle(open.back());
        open.pop_back();
      }
    }
    return changed_;
  }

 private:
  struct Directive {
    std::size_t begin = 0, end = 0;  // its lines, continuations included
    std::string_view word;
  };

  std::size_t directive_end(std::size_t from) const {
    for (;;) {
      auto nl = text_.find('\n', from);
      if (nl == std::string::npos) return text_.size();
      auto last = nl;
      while (last > from && (text_[last - 1] == '\r' || text_[last - 1] == ' ')) --last;
      if (last == from || text_[last - 1] != '\\') return nl + 1;
      from = nl + 1;
    }
  }

  std::string_view word_after(std::size_t from) const {
    auto start = text_.find_first_not_of(" \t", from);
    if (start == std::string::npos) return {};
    auto end = start;
    while (end < text_.size() && ident_char(text_[end])) ++end;
    return std::string_view(text_).substr(start, end - start);
  }

  // A branch holding part of a declaration: its braces or parentheses do not balance, or its
  // code ends other than with `;` or `}`.
  bool is_fragment(std::size_t from, std::size_t to) const {
    int braces = 0, parens = 0;
    char last = '\0';
    bool line_start = true;
    for (auto i = from; i < to;) {
      char c = text_[i];
      if (c == '\n') {
        line_start = true;
        ++i;
        continue;
      }
      if (c == ' ' || c == '\t' || c == '\r') {
        ++i;
        continue;
      }
      if (line_start && c == '#') {
        i = directive_end(i);
        continue;
      }
      line_start = false;
      if (c == '/' && i + 1 < to && text_[i + 1] == '/') {
        auto nl = text_.find('\n', i);
        i = nl == std::string::npos ? to : nl;
        continue;
      }
      if (c == '/' && i + 1 < to && text_[i + 1] == '*') {
        auto end = text_.find("*/", i + 2);
        i = end == std::string::npos ? to : end + 2;
        continue;
      }
      if (c == '"' || c == '\'') {
        for (++i; i < to && text_[i] != c && text_[i] != '\n'; ++i) {
          if (text_[i] == '\\') ++i;
        }
      }
      braces += c == '{' ? 1 : c == '}' ? -1 : 0;
      parens += c == '(' ? 1 : c == ')' ? -1 : 0;
      last = c;
      ++i;
    }
    return braces != 0 || parens != 0 || (last != '\0' && last != ';' && last != '}');
  }

  // Keeps one branch of a group that has a fragment: the first, or the second after `#if 0`.
  void settle(const std::vector<Directive>& group) {
    bool fragment = false;
    for (std::size_t k = 0; k + 1 < group.size() && !fragment; ++k)
      fragment = is_fragment(group[k].end, group[k + 1].begin);
    if (!fragment) return;
    const auto& open = group.front();
    auto operand =
        text_.find_first_not_of(" \t", open.word.data() - text_.data() + open.word.size());
    std::size_t kept = open.word == "if" && word_after(operand) == "0" ? 1 : 0;
    for (std::size_t k = 0; k < group.size(); ++k) {
      blank(group[k].begin, group[k].end);
      if (k + 1 < group.size() && k != kept) blank(group[k].end, group[k + 1].begin);
    }
  }

  void blank(std::size_t from, std::size_t to) {
    for (auto j = from; j < to; ++j) {
      if (text_[j] != '\n') text_[j] = ' ';
    }
    changed_ = changed_ || from < to;
  }

  std::string& text_;
  bool changed_ = false;
};

}  // namespace

std::string blank_macros(std::string_view source) {
  return Blanker(source).run();
}

std::string preparse(std::string_view source) {
  auto out = Blanker(source).run();
  bool blanked = !out.empty();
  if (!blanked) out.assign(source);
  if (Conditionals(out).run() || blanked) return out;
  return {};
}

std::size_t closing_brace(std::string_view text, std::size_t from) {
  int depth = 1;
  bool line_start = false;
  for (auto i = from; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\n') {
      line_start = true;
      continue;
    }
    if (c == ' ' || c == '\t' || c == '\r') continue;
    if (line_start && c == '#') {  // to the end of the directive's last line
      while (i < text.size() && text[i] != '\n') i += text[i] == '\\' ? 2 : 1;
      line_start = true;  // at the newline that ends it
      continue;
    }
    line_start = false;
    if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
      auto nl = text.find('\n', i);
      i = nl == std::string_view::npos ? text.size() : nl - 1;
    } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '*') {
      auto end = text.find("*/", i + 2);
      i = end == std::string_view::npos ? text.size() : end + 1;
    } else if (c == '"' || c == '\'') {
      for (++i; i < text.size() && text[i] != c && text[i] != '\n'; ++i) {
        if (text[i] == '\\') ++i;
      }
    } else if (c == '{') {
      ++depth;
    } else if (c == '}' && --depth == 0) {
      return i;
    }
  }
  return text.size();
}

}  // namespace orvane_tamsel::indexer::cpp
