#include "orvane_tamsel/index/name_split.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "orvane_tamsel/index/subwords.h"

namespace orvane_tamsel::index {

namespace {

// The shortest run worth splitting is two short words; longer runs are rarely names.
constexpr std::size_t MIN_RUN = 5;
constexpr std::size_t MAX_RUN = 40;
// The repository's own name parts may be short (is, kw, dir); an English word found only in the
// dictionary needs four letters, as its short entries join by chance (cab+let+ron).
constexpr std::size_t MIN_PART = 2;
constexpr std::size_t MIN_ENGLISH_PART = 4;
constexpr std::size_t SHORT_PART = 3;
constexpr std::size_t MAX_PART = 20;
// Parts that are no English word are split again, this many times at most.
constexpr int MAX_DEPTH = 2;
// Bounds the splits kept.
constexpr std::size_t MAX_MADE = 100000;

bool letters(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

// How good a split is, lower first: fewest parts, then the longest shortest part (make+dirs
// before maked+irs), then fewest parts that are no English word. A split holds at most one part
// of two letters (not mu+tat+or).
using Cost = std::tuple<int, int, int>;

}  // namespace

NameSplitter::NameSplitter(const std::vector<std::string>& repository_words,
                           const EnglishWords& english)
    : repository_(repository_words.begin(), repository_words.end()), english_(english) {}

std::vector<std::string> NameSplitter::split_once(std::string_view run) const {
  const std::size_t n = run.size();
  struct Best {
    bool reached = false;
    Cost cost;
    std::size_t from = 0;
    bool plain = false;  // the prefix before the last part holds no short part
  };
  // Two tables: the best split of each prefix with no short part, and with one.
  std::vector<Best> best(n + 1), best_short(n + 1);
  best[0] = {true, {0, -static_cast<int>(MAX_PART), 0}, 0};
  for (std::size_t end = MIN_PART; end <= n; ++end) {
    for (std::size_t len = MIN_PART; len <= MAX_PART && len <= end; ++len) {
      std::size_t from = end - len;
      if ((!best[from].reached && !best_short[from].reached) || len == n) continue;
      auto part = run.substr(from, len);
      bool own = repository_.find(part) != repository_.end();
      bool english = len >= MIN_ENGLISH_PART && english_.knows(part);
      if (!own && !english) continue;
      bool short_part = len < SHORT_PART;
      auto extend = [&](const Best& before, Best& after) {
        if (!before.reached) return;
        auto [parts, shortest, foreign] = before.cost;
        Cost cost{parts + 1, std::max(shortest, -static_cast<int>(len)), foreign + !english};
        if (!after.reached || cost < after.cost) after = {true, cost, from, &before == &best[from]};
      };
      if (short_part) {
        extend(best[from], best_short[end]);
      } else {
        extend(best[from], best[end]);
        extend(best_short[from], best_short[end]);
      }
    }
  }
  std::vector<std::string> parts;
  const Best* at = &best[n];
  if (!at->reached || (best_short[n].reached && best_short[n].cost < at->cost)) {
    at = &best_short[n];
  }
  if (!at->reached) return parts;
  for (std::size_t end = n; end > 0;) {
    parts.emplace_back(run.substr(at->from, end - at->from));
    end = at->from;
    // A prefix reached through a short part came from the table without one.
    at = at->plain ? &best[end] : &best_short[end];
  }
  std::reverse(parts.begin(), parts.end());
  return parts;
}

void NameSplitter::split_into(std::string_view run, int depth,
                              std::vector<std::string>& out) const {
  auto parts = split_once(run);
  if (parts.empty()) {
    out.emplace_back(run);
    return;
  }
  for (auto& p : parts) {
    if (depth < MAX_DEPTH && p.size() >= MIN_RUN && !english_.knows(p)) {
      split_into(p, depth + 1, out);
    } else {
      out.push_back(std::move(p));
    }
  }
}

std::vector<std::string> NameSplitter::split(std::string_view run) const {
  std::vector<std::string> out;
  if (run.size() < MIN_RUN || run.size() > MAX_RUN || !letters(run)) return out;
  if (auto it = made_.find(run); it != made_.end()) return it->second;
  if (!english_.knows(run) && !split_once(run).empty()) split_into(run, 1, out);
  if (made_.size() >= MAX_MADE) made_.clear();
  made_.emplace(run, out);
  return out;
}

std::vector<std::string> NameSplitter::words_of(std::string_view name) const {
  auto words = subwords(name);
  const std::size_t own = words.size();
  for (std::size_t i = 0; i < own; ++i) {
    for (auto& w : split(words[i])) {
      if (std::find(words.begin(), words.end(), w) == words.end()) words.push_back(std::move(w));
    }
  }
  return words;
}

std::vector<std::string> repository_words(const std::vector<std::string>& names) {
  std::map<std::string, int> named;
  for (const auto& name : names) {
    auto parts = subwords(name);
    if (parts.size() < 2) continue;
    std::sort(parts.begin(), parts.end());
    parts.erase(std::unique(parts.begin(), parts.end()), parts.end());
    for (auto& p : parts) {
      if (p.size() >= MIN_PART && p.size() <= MAX_PART && letters(p)) ++named[p];
    }
  }
  std::vector<std::string> words;
  for (auto& [w, n] : named) {
    if (n >= 2) words.push_back(w);
  }
  return words;
}

std::string name_text(std::string_view name, const NameSplitter* splitter) {
  if (!splitter) return index::name_text(name);
  std::string text(name);
  for (const auto& w : splitter->words_of(name)) text += " " + w;
  return text;
}

}  // namespace orvane_tamsel::index
