#include "orvane_tamsel/workers/retrieval.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace orvane_tamsel::workers {

RetrievalSettings load_settings(const std::filesystem::path& repository_root) {
  RetrievalSettings settings;
  auto file = repository_root / ".tamsel" / "settings.json";
  std::ifstream in(file);
  if (!in) return settings;
  std::stringstream buf;
  buf << in.rdbuf();
  nlohmann::json doc;
  try {
    doc = nlohmann::json::parse(buf.str());
  } catch (const nlohmann::json::parse_error& e) {
    // byte offset -> line, so the message names where to look
    auto text = buf.str();
    std::size_t line = 1;
    for (std::size_t i = 0; i < e.byte && i < text.size(); ++i) line += text[i] == '\n';
    throw std::runtime_error(file.string() + ":" + std::to_string(line) +
                             ": not valid JSON: " + e.what());
  }
  if (doc.contains("jev.explore_rerank_results")) {
    const auto& v = doc["jev.explore_rerank_results"];
    if (!v.is_boolean()) {
      throw std::runtime_error(file.string() +
                               ": \"jev.explore_rerank_results\" must be true or false");
    }
    settings.rerank_results = v.get<bool>();
  }
  return settings;
}

HybridRetriever::HybridRetriever(index::Repository& repository,
                                 std::optional<RetrievalSettings> settings,
                                 std::shared_ptr<Embedder> embedder)
    : repository_(repository),
      settings_(settings ? *settings : load_settings(repository.root())),
      embedder_(std::move(embedder)) {}

RetrievalResult HybridRetriever::retrieve(const std::string& query, int limit, bool include_tests,
                                          bool rerank) {
  (void)rerank;
  RetrievalResult result;
  auto terms = query_terms(query);
  if (terms.empty() || limit <= 0) return result;
  std::string match;
  for (const auto& t : terms) {
    if (!match.empty()) match += " OR ";
    match += "\"" + t + "\"";
  }
  auto scored = repository_.search_text(match, limit, include_tests);
  std::vector<index::SymbolId> ids;
  for (const auto& s : scored) ids.push_back(s.id);
  auto found = repository_.symbols_with_paths(ids);
  for (const auto& s : scored) {
    auto it = found.find(s.id);
    if (it == found.end()) continue;
    result.hits.push_back({{s.id, it->second.second}, s.score});
  }
  return result;
}

}  // namespace orvane_tamsel::workers
