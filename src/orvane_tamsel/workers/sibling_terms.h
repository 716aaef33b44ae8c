#pragma once
// What tells a symbol from its siblings: the definitions of one module or package share most of
// a question's words, and BM25's idf is the whole repository's, so a word every sibling says
// weighs as much as the one word only the answer says ("take an item from a queue without
// blocking": get_nowait, not put_nowait).

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace orvane_tamsel::workers {

// One symbol of the reranked head as its siblings see it.
struct SiblingView {
  std::string_view fqn;
  std::string_view home;   // its file, or its folder where a folder is a package
  std::uint64_t said = 0;  // bit i: its text says the question's i-th term
};

// Per symbol: the question's terms it says, each weighing log((n + 1) / (d + 1)) where n symbols
// of its home are in the head and d of them say the term, over the question's term count; 0
// without a sibling. A name defined more than once in one home counts once.
std::vector<double> sibling_terms(std::span<const SiblingView> head, std::size_t terms);

}  // namespace orvane_tamsel::workers
