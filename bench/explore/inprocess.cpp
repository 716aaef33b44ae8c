// handle_explore inside one process, with a warm repository and retriever as the server holds them:
// wall time per call, and the calling thread's CPU time, which other work on the machine barely
// moves.
// Usage: inprocess REPO QUERIES.tsv RUNS
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/tool_handlers/explore.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

#include "cpu_time.h"

using namespace orvane_tamsel;

namespace {

double percentile(std::vector<double>& t, double q) {
  std::sort(t.begin(), t.end());
  return t[std::min(t.size() - 1, static_cast<std::size_t>(q * static_cast<double>(t.size())))];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: inprocess REPO QUERIES.tsv RUNS\n");
    return 1;
  }
  auto repository = index::open_repository(argv[1]);
  workers::HybridRetriever retriever(*repository, workers::load_settings(argv[1]),
                                     index::open_learned_embedder(argv[1]),
                                     workers::word_sense_embedder());
  std::vector<std::pair<std::string, std::string>> queries;
  std::ifstream in(argv[2]);
  for (std::string line; std::getline(in, line);) {
    auto tab = line.find('\t');
    if (tab != std::string::npos) queries.emplace_back(line.substr(0, tab), line.substr(tab + 1));
  }
  int runs = std::stoi(argv[3]);
  // Every query once to warm the caches and the retriever's tables; these first calls are
  // reported apart, since an answer may keep what a query asked of the index for the next.
  std::map<std::string, std::vector<double>> times, cpu, first;
  for (const auto& [route, query] : queries) {
    auto cpu_start = thread_cpu_ms();
    tool_handlers::handle_explore(*repository, query, "module", "standard", 2000, &retriever);
    first[route].push_back(thread_cpu_ms() - cpu_start);
  }
  for (int r = 0; r < runs; ++r) {
    for (const auto& [route, query] : queries) {
      auto start = std::chrono::steady_clock::now();
      auto cpu_start = thread_cpu_ms();
      auto answer =
          tool_handlers::handle_explore(*repository, query, "module", "standard", 2000, &retriever);
      cpu[route].push_back(thread_cpu_ms() - cpu_start);
      std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
      if (answer.value("route", "") != route)
        std::fprintf(stderr, "note: %s went to %s\n", query.c_str(),
                     answer.value("route", std::string("?")).c_str());
      times[route].push_back(took.count());
    }
  }
  std::printf("%-11s %6s %9s %9s %9s %9s %9s\n", "route", "calls", "p50 ms", "p95 ms", "cpu p50",
              "cpu p95", "1st cpu");
  for (auto& [route, t] : times) {
    auto& c = cpu[route];
    std::printf("%-11s %6zu %9.2f %9.2f %9.2f %9.2f %9.2f\n", route.c_str(), t.size(),
                percentile(t, 0.5), percentile(t, 0.95), percentile(c, 0.5), percentile(c, 0.95),
                percentile(first[route], 0.5));
  }
  return 0;
}
