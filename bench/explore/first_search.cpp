// What a process pays for the meaning vectors before its first answer, apart from the rest of a
// question: opening the learned embedder and embedding a question, then the first nearest-symbol
// search, which reads every symbol's row, and a second one, which only scans them. CPU time of the
// calling thread, p50 over RUNS fresh embedders.
// Usage: first_search REPO RUNS
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "orvane_tamsel/index/sqlite_embedder.h"

#include "cpu_time.h"

using namespace orvane_tamsel;

namespace {

double median(std::vector<double> t) {
  std::sort(t.begin(), t.end());
  return t[t.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: first_search REPO RUNS\n");
    return 2;
  }
  std::vector<double> open, first, again;
  for (int run = 0; run < std::max(1, std::atoi(argv[2])); ++run) {
    double start = thread_cpu_ms();
    auto embedder = index::open_learned_embedder(argv[1]);
    if (!embedder->symbol_vectors().held) {
      std::fprintf(stderr, "the index holds no meaning vectors\n");
      return 1;
    }
    auto asked = embedder->embed("where are csrf tokens checked");
    double opened = thread_cpu_ms();
    embedder->nearest(asked, 20, false);
    double read = thread_cpu_ms();
    embedder->nearest(asked, 20, false);
    open.push_back(opened - start);
    first.push_back(read - opened);
    again.push_back(thread_cpu_ms() - read);
  }
  std::printf("%-11s %9.2f %9.2f %9.2f\n", "meaning", median(open), median(first), median(again));
}
