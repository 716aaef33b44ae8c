// A call written `Cls<args>::m()` links to m of the specialization of Cls that args fit best:
// the specializations share the primary template's fqn, so name lookup alone took any of them.

#include "orvane_tamsel/indexer/languages/c_family/template_fit.h"

#include <cctype>
#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/indexer/languages/c_family/linking.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

using Tokens = std::vector<std::string_view>;

bool word_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Names, numbers, `::`, `...` and single marks. A `::` that starts a name (global scope) is
// dropped, so `::std::tuple` and `std::tuple` read alike.
Tokens tokens(std::string_view s) {
  Tokens out;
  for (std::size_t i = 0; i < s.size();) {
    if (std::isspace(static_cast<unsigned char>(s[i])) != 0) {
      ++i;
      continue;
    }
    std::size_t n = 1;
    if (word_char(s[i])) {
      while (i + n < s.size() && word_char(s[i + n])) ++n;
    } else if (s.substr(i, 2) == "::") {
      n = 2;
    } else if (s.substr(i, 3) == "...") {
      n = 3;
    }
    auto t = s.substr(i, n);
    i += n;
    if (t == "::" && (out.empty() || (!word_char(out.back().front()) && out.back() != ">")))
      continue;
    if (t == "typename") continue;
    out.push_back(t);
  }
  return out;
}

// `const T*` is a pointer to const, not a const type: a leading const moves after the type it
// qualifies (`T const *`), so a pattern `const T` no longer fits it.
Tokens const_after(Tokens t) {
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (t[i] != "const" || (i > 0 && t[i - 1] != "<" && t[i - 1] != "," && t[i - 1] != "("))
      continue;
    auto j = i + 1;
    for (int depth = 0; j < t.size(); ++j) {
      if (t[j] == "<") ++depth;
      if (t[j] == ">" && depth-- == 0) break;
      if (depth == 0 && !word_char(t[j].front()) && t[j] != "::" && t[j] != ">") break;
    }
    t.insert(t.begin() + static_cast<std::ptrdiff_t>(j), "const");
    t.erase(t.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return t;
}

// The tokens between the `<` at `open` and its matching `>`; `open` moves past that `>`.
Tokens bracketed(const Tokens& t, std::size_t& open) {
  Tokens out;
  int depth = 0;
  for (; open < t.size(); ++open) {
    if (t[open] == "<" && depth++ == 0) continue;
    if (t[open] == ">" && --depth == 0) {
      ++open;
      break;
    }
    out.push_back(t[open]);
  }
  return out;
}

// Whether a wildcard may stand for these tokens: balanced brackets, no comma outside them.
bool one_argument(const Tokens& t, std::size_t from, std::size_t to) {
  int depth = 0;
  for (auto i = from; i < to; ++i) {
    if (t[i] == "<" || t[i] == "(" || t[i] == "[") ++depth;
    if (t[i] == ">" || t[i] == ")" || t[i] == "]") --depth;
    if (depth < 0 || (depth == 0 && t[i] == ",")) return false;
  }
  return depth == 0;
}

bool fits(const Tokens& p, std::size_t pi, const Tokens& a, std::size_t ai,
          const std::set<std::string_view>& params) {
  if (pi == p.size()) return ai == a.size();
  if (params.count(p[pi]) == 0)
    return ai < a.size() && a[ai] == p[pi] && fits(p, pi + 1, a, ai + 1, params);
  for (auto end = ai + 1; end <= a.size(); ++end) {
    if (one_argument(a, ai, end) && fits(p, pi + 1, a, end, params)) return true;
  }
  return false;
}

}  // namespace

int specialization_fit(std::string_view signature, std::string_view args) {
  auto t = tokens(signature);
  std::size_t at = 0;
  std::set<std::string_view> params;
  if (!t.empty() && t[0] == "template") {
    ++at;
    auto head = bracketed(t, at);
    // each parameter's name is its last name before a default
    std::string_view last;
    int depth = 0;
    bool in_default = false;
    for (std::size_t i = 0; i <= head.size(); ++i) {
      auto h = i == head.size() ? std::string_view(",") : head[i];
      if (h == "<" || h == "(") ++depth;
      if (h == ">" || h == ")") --depth;
      if (depth == 0 && (h == "," || h == "=")) {
        if (!last.empty()) params.insert(last);
        last = {};
        in_default = h == "=";
        continue;
      }
      if (!in_default && word_char(h.front()) && h != "class" && h != "struct") last = h;
    }
  }
  while (at < t.size() && t[at] != "class" && t[at] != "struct" && t[at] != "union") ++at;
  at += 2;  // the keyword and the name
  if (at >= t.size() || t[at] != "<") return 0;
  auto pattern = const_after(bracketed(t, at));
  if (!fits(pattern, 0, const_after(tokens(args)), 0, params)) return -1;
  int literal = 0;
  for (auto p : pattern) literal += params.count(p) == 0 ? 1 : 0;
  return literal + 1;
}

// Among the symbols of the callee's fqn in its file, the one whose class the site's template
// arguments fit best; a primary template when no specialization fits.
void Linking::link_specializations(index::Database& db) {
  struct Site {
    std::int64_t id, callee, file;
    std::string args, fqn;
  };
  std::vector<Site> sites;
  {
    auto st = db.prepare(
        "SELECT c.id, c.callee_id, s.file_id, c.template_args, s.fqn FROM relink r "
        "CROSS JOIN call_sites c ON c.id = r.site_id CROSS JOIN symbols s ON s.id = c.callee_id "
        "WHERE c.template_args <> ''");
    while (st.step())
      sites.push_back({st.integer(0), st.integer(1), st.integer(2), st.text(3), st.text(4)});
  }
  if (sites.empty()) return;
  // each candidate with the class whose lines hold it
  auto candidates = db.prepare(
      "SELECT m.id, (SELECT k.signature FROM symbols k WHERE k.file_id = m.file_id "
      "AND k.fqn = m.parent_fqn AND k.start_line <= m.start_line AND k.end_line >= m.end_line "
      "ORDER BY k.start_line DESC LIMIT 1) FROM symbols m WHERE m.fqn = ? AND m.file_id = ? "
      "ORDER BY m.id");
  auto relink = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
  for (const auto& s : sites) {
    auto best = s.callee;
    int best_fit = -1, callee_fit = -1;
    candidates.bind(1, s.fqn).bind(2, s.file);
    while (candidates.step()) {
      auto fit = specialization_fit(candidates.optional_text(1).value_or(""), s.args);
      if (candidates.integer(0) == s.callee) callee_fit = fit;
      if (fit > best_fit) {
        best_fit = fit;
        best = candidates.integer(0);
      }
    }
    // an equal fit keeps what name lookup chose
    if (best_fit <= callee_fit) best = s.callee;
    candidates.reset();
    if (best != s.callee) relink.bind(1, best).bind(2, s.id).run();
  }
}

}  // namespace orvane_tamsel::indexer::c_family
