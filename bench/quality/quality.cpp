// Retrieval quality: top-1 and top-5 of the hybrid retriever beside BM25 alone, on questions
// about a Python code base whose expected symbols are listed with them.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/workers/retrieval.h"

using namespace orvane_tamsel;

namespace {

struct Question {
  std::string text;
  std::set<std::string> expected;
};

std::vector<Question> read_questions(const std::string& file) {
  std::vector<Question> questions;
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    auto tab = line.find('\t');
    if (tab == std::string::npos) continue;
    Question q{line.substr(0, tab), {}};
    std::stringstream fqns(line.substr(tab + 1));
    std::string f;
    while (std::getline(fqns, f, '|')) q.expected.insert(f);
    questions.push_back(q);
  }
  return questions;
}

// 1 when the first hit is expected, 5 when one of the first five is, 0 otherwise.
int place(index::Repository& repo, const std::vector<index::SymbolId>& ids,
          const std::set<std::string>& expected) {
  auto found = repo.symbols_with_paths(ids);
  for (std::size_t i = 0; i < ids.size() && i < 5; ++i) {
    auto it = found.find(ids[i]);
    if (it != found.end() && expected.count(it->second.first.fqn)) return i == 0 ? 1 : 5;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: tamsel_quality INDEXED_REPOSITORY QUESTIONS.tsv\n";
    return 2;
  }
  auto repo = index::open_repository(argv[1]);
  workers::HybridRetriever retriever(*repo, workers::RetrievalSettings{});
  auto questions = read_questions(argv[2]);
  int hybrid1 = 0, hybrid5 = 0, fused1 = 0, fused5 = 0, bm1 = 0, bm5 = 0;
  std::printf("%-6s %-6s %-6s question\n", "hybrid", "fused", "bm25");
  for (const auto& q : questions) {
    std::vector<index::SymbolId> hybrid, fused;
    for (const auto& h : retriever.retrieve(q.text, 5, false, true).hits) {
      hybrid.push_back(h.symbol.id);
    }
    for (const auto& h : retriever.retrieve(q.text, 5, false, false).hits) {
      fused.push_back(h.symbol.id);
    }
    std::string match;
    for (const auto& t : workers::query_terms(q.text)) {
      match += (match.empty() ? "\"" : " OR \"") + t + "\"";
    }
    std::vector<index::SymbolId> bm25;
    for (const auto& s : repo->search_text(match, 5, false)) bm25.push_back(s.id);
    int h = place(*repo, hybrid, q.expected), b = place(*repo, bm25, q.expected);
    int f = place(*repo, fused, q.expected);
    hybrid1 += h == 1, hybrid5 += h != 0, bm1 += b == 1, bm5 += b != 0;
    fused1 += f == 1, fused5 += f != 0;
    auto mark = [](int p) { return p == 1 ? "top1" : p == 5 ? "top5" : "-"; };
    std::printf("%-6s %-6s %-6s %s\n", mark(h), mark(f), mark(b), q.text.c_str());
  }
  auto pct = [&](int n) { return 100.0 * n / static_cast<double>(questions.size()); };
  std::printf("\n%zu questions\nhybrid retrieve: top-1 %d (%.0f%%), top-5 %d (%.0f%%)\n",
              questions.size(), hybrid1, pct(hybrid1), hybrid5, pct(hybrid5));
  std::printf("fused, no rerank: top-1 %d (%.0f%%), top-5 %d (%.0f%%)\n", fused1, pct(fused1),
              fused5, pct(fused5));
  std::printf("BM25 alone:       top-1 %d (%.0f%%), top-5 %d (%.0f%%)\n", bm1, pct(bm1), bm5,
              pct(bm5));
  return 0;
}
