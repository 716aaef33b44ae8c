#pragma once
// Ranking code symbols for a free-text question, and the query helpers around it.

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::workers {

struct HitSymbol {
  index::SymbolId id = 0;
  std::string path;
};

struct Hit {
  HitSymbol symbol;
  double score = 0;
};

struct RetrievalResult {
  std::vector<Hit> hits;  // best first
  std::optional<std::string> note;
};

// Anything that ranks symbols for a question; the explore tool depends on this port only.
class Retriever {
 public:
  virtual ~Retriever() = default;
  virtual RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                                   bool rerank) = 0;
};

// Turns text into a vector; optional, absent by default.
class Embedder {
 public:
  virtual ~Embedder() = default;
  virtual std::vector<float> embed(const std::string& text) = 0;
};

// Host settings read from .tamsel/settings.json.
struct RetrievalSettings {
  bool rerank_results = true;  // "jev.explore_rerank_results"
};
// Reads DIR/.tamsel/settings.json; a missing file gives the defaults; a malformed one throws with
// the file and line.
RetrievalSettings load_settings(const std::filesystem::path& repository_root);

// Without an embedder, the WordNet one when its dictionary is installed.
class HybridRetriever : public Retriever {
 public:
  explicit HybridRetriever(index::Repository& repository,
                           std::optional<RetrievalSettings> settings = std::nullopt,
                           std::shared_ptr<Embedder> embedder = nullptr);
  RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                           bool rerank) override;

 private:
  index::Repository& repository_;
  RetrievalSettings settings_;
  std::shared_ptr<Embedder> embedder_;
};

// The meaningful keywords of a query, lower-cased; code words kept whole and also split.
std::vector<std::string> query_terms(const std::string& query);
bool is_test_query(const std::vector<std::string>& terms);
// Whether one word is spelled like code (snake_case, camelCase, PascalCase, digits inside, ...).
bool reads_as_code(const std::string& word);
// The symbol kinds the retriever ranks.
extern const std::set<std::string> RETRIEVABLE_KINDS;

}  // namespace orvane_tamsel::workers
