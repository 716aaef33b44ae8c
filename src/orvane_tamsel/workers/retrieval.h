#pragma once
// The hybrid retriever: BM25 over the symbol text, exact names, and a decision model that reorders
// the head, with the settings it reads.

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/index/embedder.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/workers/retriever.h"

namespace orvane_tamsel::workers {

// Host settings read from .tamsel/settings.json.
struct RetrievalSettings {
  bool rerank_results = true;  // "jev.explore_rerank_results"
};
// Reads DIR/.tamsel/settings.json; a missing file gives the defaults; a malformed one throws with
// the file and line.
RetrievalSettings load_settings(const std::filesystem::path& repository_root);

// The symbol kinds the retriever ranks.
extern const std::set<std::string> RETRIEVABLE_KINDS;

class HybridRetriever : public Retriever {
 public:
  // Without settings, those of the repository's root. `embedder` holds the symbols' vectors (the
  // one learned from the repository): without it, or when it holds none, the meaning signal is
  // off. `word_senses` compares the question with each name's words in the rerank (WordNet).
  explicit HybridRetriever(index::Repository& repository,
                           std::optional<RetrievalSettings> settings = std::nullopt,
                           std::shared_ptr<index::Embedder> embedder = nullptr,
                           std::shared_ptr<index::Embedder> word_senses = nullptr);
  RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                           bool rerank) override;

 private:
  index::Repository& repository_;
  RetrievalSettings settings_;
  std::shared_ptr<index::Embedder> embedder_;
  std::shared_ptr<index::Embedder> word_senses_;
};

}  // namespace orvane_tamsel::workers
