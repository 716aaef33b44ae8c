#include "orvane_tamsel/workers/sibling_terms.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace orvane_tamsel::workers {

std::vector<double> sibling_terms(std::span<const SiblingView> head, std::size_t terms) {
  std::vector<double> out(head.size(), 0.0);
  terms = std::min<std::size_t>(terms, 64);
  if (terms == 0) return out;
  // Home -> the distinct names in it and what each says (one platform's copy stands for all).
  std::map<std::string_view, std::map<std::string_view, std::uint64_t>> homes;
  for (const auto& s : head) homes[s.home].emplace(s.fqn, s.said);
  std::map<std::string_view, std::vector<double>> weights;  // per home, each term's weight
  for (const auto& [home, members] : homes) {
    if (members.size() < 2) continue;
    auto& w = weights[home];
    w.assign(terms, 0.0);
    const auto n = static_cast<double>(members.size());
    for (std::size_t i = 0; i < terms; ++i) {
      int saying = 0;
      for (const auto& [name, said] : members) saying += static_cast<int>((said >> i) & 1U);
      if (saying > 0) w[i] = std::log((n + 1) / (static_cast<double>(saying) + 1));
    }
  }
  for (std::size_t k = 0; k < head.size(); ++k) {
    auto it = weights.find(head[k].home);
    if (it == weights.end()) continue;
    double sum = 0;
    for (std::size_t i = 0; i < terms; ++i) {
      if ((head[k].said >> i) & 1U) sum += it->second[i];
    }
    out[k] = sum / static_cast<double>(terms);
  }
  return out;
}

}  // namespace orvane_tamsel::workers
