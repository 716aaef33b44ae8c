// Did-you-mean suggestions of paths and symbols that look like what was asked.

#include <algorithm>

#include "orvane_tamsel/index/similarity.h"
#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/workers/name_lookup.h"

namespace orvane_tamsel::tool_handlers {

namespace detail {

constexpr int MAX_SUGGESTIONS = 5;
// Candidates fetched from the index per suggestion kept, so that re-scoring has room to reorder.
constexpr int CANDIDATE_FACTOR = 4;
// Namesakes of a qualified target's name weighed by how their owners are spelt.
constexpr int NAMESAKE_CANDIDATES = 50;

std::string last_part(const std::string& path) {
  auto trimmed = path;
  while (!trimmed.empty() && trimmed.back() == '/') trimmed.pop_back();
  auto at = trimmed.rfind('/');
  return at == std::string::npos ? trimmed : trimmed.substr(at + 1);
}

std::string stem(const std::string& file) {
  auto at = file.rfind('.');
  return at == std::string::npos || at == 0 ? file : file.substr(0, at);
}

// Share of the target's sub-words that the candidate also has.
double word_overlap(const std::string& target, const std::string& candidate) {
  auto a = index::subwords(target);
  auto b = index::subwords(candidate);
  if (a.empty()) return 0;
  std::size_t shared = 0;
  for (const auto& w : a) shared += std::find(b.begin(), b.end(), w) != b.end();
  return static_cast<double>(shared) / static_cast<double>(a.size());
}

// How alike a path looks to the one asked for: the file name counts most, the same stem with
// another extension is a near-certain match, shared words and the whole path break ties.
double path_likeness(const std::string& target, const std::string& path) {
  auto want = last_part(target);
  auto have = last_part(path);
  double score = 0.6 * index::similarity(want, have) + 0.25 * word_overlap(stem(want), stem(have)) +
                 0.15 * index::similarity(target, path);
  if (stem(want) == stem(have) && want != have) score += 0.5;
  return score;
}

// The last `parts` dotted parts of what holds the symbol: shop.cart.Cart.total, 1 -> Cart.
std::string owner_tail(const index::Symbol& symbol, std::size_t parts) {
  std::string owner = symbol.fqn;
  std::string tail = "." + symbol.name;
  if (owner.size() > tail.size() &&
      owner.compare(owner.size() - tail.size(), tail.size(), tail) == 0)
    owner.resize(owner.size() - tail.size());
  std::size_t at = owner.size();
  for (std::size_t i = 0; i < parts && at != std::string::npos && at > 0; ++i)
    at = owner.rfind('.', at - 1);
  return at == std::string::npos ? owner : owner.substr(at + 1);
}

double name_likeness(const std::string& target, const index::Symbol& symbol) {
  auto want = workers::guessed_name(target);
  double score = 0.7 * index::similarity(want, symbol.name) + 0.3 * word_overlap(want, symbol.name);
  auto qualified = workers::dotted(target);
  if (qualified != want) {
    // The target's other parts: found in the fqn ("Cart.totl" -> shop.cart.Cart.total), or spelt
    // like its owner ("Modle.save" -> Model.save rather than Form.save).
    auto qualifier = qualified.substr(0, qualified.size() - want.size());
    auto parts = static_cast<std::size_t>(std::count(qualifier.begin(), qualifier.end(), '.'));
    qualifier.pop_back();
    score += symbol.fqn.find(qualifier + ".") != std::string::npos
                 ? 0.2
                 : 0.2 * index::similarity(qualifier, owner_tail(symbol, parts));
  }
  return score;
}

}  // namespace detail

Json suggest_paths(Json map, index::Repository& repository, const std::string& target,
                   const std::string& action) {
  using namespace detail;
  auto wanted = workers::index_path(target, repository.root());
  // The repository's own folder ("/repo", "./") is like no file in it.
  bool root = wanted.empty() && workers::index_path(target + "/x", repository.root()) == "x";
  if (wanted.empty()) wanted = target;
  std::vector<std::string> found;
  if (!root) {
    found = repository.similar_paths(wanted, MAX_SUGGESTIONS * CANDIDATE_FACTOR);
    // Paths whose stem matches but whose extension differs may lie outside the trigram candidates.
    for (const auto& p : repository.paths_with_stem(stem(last_part(wanted)), MAX_SUGGESTIONS)) {
      if (std::find(found.begin(), found.end(), p) == found.end()) found.push_back(p);
    }
  }
  std::vector<std::pair<double, std::string>> ranked;
  for (const auto& p : found) {
    if (p != wanted) ranked.emplace_back(path_likeness(wanted, p), p);
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  Json names = Json::array();
  for (const auto& r : ranked) {
    if (names.size() == MAX_SUGGESTIONS) break;
    names.push_back(r.second);
  }
  map["did_you_mean"] = names;
  Json steps = Json::array();
  if (!names.empty()) {
    steps.push_back(step("file", "Read the nearest indexed path",
                         Json{{"path", names[0]}, {"action", action}}));
  } else {
    // Nothing alike (the root itself, a path outside the repository): what there is, to start.
    steps.push_back(step("files", "Every indexed file", Json{{"path", ""}}));
  }
  map["next_steps"] = steps;
  return map;
}

Json suggest_symbols(Json map, index::Repository& repository, const std::string& target,
                     const std::string& action) {
  using namespace detail;
  auto name = workers::guessed_name(target);
  std::vector<std::pair<double, index::Symbol>> ranked;
  if (!name.empty()) {
    auto candidates = repository.similar_symbols(name, MAX_SUGGESTIONS * CANDIDATE_FACTOR);
    // A qualified target may be misspelt only in its owner: the name's namesakes are candidates.
    if (workers::dotted(target) != name) {
      for (auto& s : repository.search_symbols({name}, true, NAMESAKE_CANDIDATES).symbols) {
        bool known = std::any_of(candidates.begin(), candidates.end(),
                                 [&](const auto& c) { return c.fqn == s.fqn; });
        if (!known) candidates.push_back(std::move(s));
      }
    }
    for (auto& s : candidates) {
      if (s.fqn == workers::dotted(target)) continue;
      ranked.emplace_back(name_likeness(target, s), std::move(s));
    }
  }
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
    if (a.first != b.first) return a.first > b.first;
    return !a.second.is_test && b.second.is_test;
  });
  Json names = Json::array();
  for (const auto& r : ranked) {
    if (names.size() == MAX_SUGGESTIONS) break;
    // Declarations of one name in several headers share it: a name is suggested once.
    if (std::find(names.begin(), names.end(), r.second.fqn) != names.end()) continue;
    names.push_back(r.second.fqn);
  }
  map["did_you_mean"] = names;
  Json steps = Json::array();
  if (!names.empty()) {
    steps.push_back(step("symbol", "Look up the nearest indexed symbol",
                         Json{{"fqn", names[0]}, {"action", action}}));
  } else if (!name.empty()) {
    // No symbol is named alike; the text as asked (README.md, ns::f) may still be in the code.
    steps.push_back(
        step("search", "Search the text of the code", Json{{"action", "code"}, {"query", target}}));
  }
  map["next_steps"] = steps;
  return map;
}

}  // namespace orvane_tamsel::tool_handlers
