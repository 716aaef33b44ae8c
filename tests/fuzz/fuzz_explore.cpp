// One query into handle_explore on a small real index; the first bytes pick scope, depth and
// budget.

#include <spdlog/spdlog.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/tool_handlers/explore.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/workers/retrieval.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace {

using namespace orvane_tamsel;

struct Index {
  indexer_test::TempRepo repo{"explore_shop"};
  std::unique_ptr<index::Repository> repository;
  std::unique_ptr<workers::HybridRetriever> retriever;
  Index() {
    spdlog::set_level(spdlog::level::off);
    indexer::update_index(repo.root());
    repository = index::open_repository(repo.root());
    retriever = std::make_unique<workers::HybridRetriever>(
        *repository, std::nullopt, index::open_learned_embedder(repo.root()),
        workers::word_sense_embedder());
  }
};

const char* const SCOPES[] = {"file", "module", "project", "", "galaxy"};
const char* const DEPTHS[] = {"quick", "standard", "deep", "", "abyss"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Index index;
  if (size < 4) return 0;
  const char* scope = SCOPES[data[0] % 5];
  const char* depth = DEPTHS[data[1] % 5];
  std::int16_t raw = 0;
  std::memcpy(&raw, data + 2, sizeof raw);
  long long budget = raw;  // negative, zero and past the maximum all come up
  std::string query(reinterpret_cast<const char*>(data + 4), size - 4);
  try {
    (void)tool_handlers::handle_explore(*index.repository, query, scope, depth, budget,
                                        index.retriever.get());
  } catch (const tool_handlers::ToolError&) {
    // A refusal the client can act on is a fine answer.
  }
  return 0;
}
