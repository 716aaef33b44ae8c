#pragma once
// Scripted stand-ins for the index, the retriever and the memory lookup, recording what they were
// asked.

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvane_tamsel/index/memories.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/workers/retrieval.h"

namespace fakes {

using namespace orvane_tamsel;
using index::Json;

struct NeighbourCall {
  std::vector<index::SymbolId> ids;
  index::TestFilter tests;
  int limit;
  std::optional<std::vector<index::Relation>> relations;
};

class FakeRepository : public index::Repository {
 public:
  std::map<std::string, index::FileRecord> files;
  std::map<std::string, std::pair<std::vector<std::string>, std::int64_t>> folders;
  std::map<std::string, std::vector<std::string>> stems;
  std::map<index::FileId, std::vector<index::Symbol>> symbols_by_file;
  std::map<std::string, index::Symbol> by_fqn;
  std::map<std::string, std::string> skipped;  // path -> reason
  std::vector<index::Symbol> namesakes;
  std::map<index::SymbolId, std::string> paths;  // symbol id -> file path
  std::map<index::SymbolId, std::pair<index::Symbol, std::string>> by_id;
  std::vector<index::Neighbour> neighbours;
  std::map<std::string, index::TestsOfFile> tests_for;
  std::map<std::string, std::string> placement;
  bool components_throw = false;

  std::vector<NeighbourCall> neighbour_calls;
  std::vector<std::pair<std::string, int>> stem_calls;
  std::vector<std::vector<std::string>> search_calls;

  std::optional<index::FileRecord> get_file_by_path(const std::string& path) override {
    auto it = files.find(path);
    if (it == files.end()) return std::nullopt;
    return it->second;
  }
  std::pair<std::vector<std::string>, std::int64_t> paths_under(const std::string& folder,
                                                                int limit) override {
    auto it = folders.find(folder);
    if (it == folders.end()) return {};
    auto listed = it->second.first;
    if (static_cast<int>(listed.size()) > limit) listed.resize(limit);
    return {listed, it->second.second};
  }
  std::vector<std::string> paths_with_stem(const std::string& stem, int limit) override {
    stem_calls.emplace_back(stem, limit);
    auto found = stems[stem];
    if (static_cast<int>(found.size()) > limit) found.resize(limit);
    return found;
  }
  std::vector<index::Symbol> get_symbols_by_file(index::FileId id) override {
    return symbols_by_file[id];
  }
  std::optional<index::Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    auto it = by_fqn.find(fqn);
    if (it == by_fqn.end()) return std::nullopt;
    return it->second;
  }
  index::SymbolSearch search_symbols(const std::vector<std::string>& names, bool,
                                     int limit) override {
    search_calls.push_back(names);
    auto found = namesakes;
    if (static_cast<int>(found.size()) > limit) found.resize(limit);
    return {found, static_cast<std::int64_t>(found.size()), false};
  }
  std::map<index::SymbolId, std::string> get_file_paths_batch(
      const std::vector<index::Symbol>& symbols) override {
    std::map<index::SymbolId, std::string> out;
    for (const auto& s : symbols)
      if (s.id && paths.count(*s.id)) out[*s.id] = paths[*s.id];
    return out;
  }
  std::map<index::SymbolId, std::pair<index::Symbol, std::string>> symbols_with_paths(
      const std::vector<index::SymbolId>& ids) override {
    std::map<index::SymbolId, std::pair<index::Symbol, std::string>> out;
    for (auto id : ids)
      if (by_id.count(id)) out.emplace(id, by_id.at(id));
    return out;
  }
  std::vector<index::Neighbour> evidence_neighbours(
      const std::vector<index::SymbolId>& ids, index::TestFilter tests, int limit,
      const std::optional<std::vector<index::Relation>>& relations) override {
    neighbour_calls.push_back({ids, tests, limit, relations});
    auto out = neighbours;
    if (static_cast<int>(out.size()) > limit) out.resize(limit);
    return out;
  }
  index::TestsOfFile get_tests_for(const std::string& path) override {
    auto it = tests_for.find(path);
    return it == tests_for.end() ? index::TestsOfFile{} : it->second;
  }
  std::map<std::string, std::string> components_of(const std::vector<std::string>& paths) override {
    if (components_throw) throw std::runtime_error("components down");
    std::map<std::string, std::string> out;
    for (const auto& p : paths)
      if (placement.count(p)) out[p] = placement[p];
    return out;
  }

  // Read by the suggestions of the explore routes: nothing looks alike.
  std::filesystem::path root() const override { return {}; }
  std::vector<std::string> similar_paths(const std::string&, int) override { return {}; }
  std::optional<std::string> skip_reason(const std::string& path) override {
    auto it = skipped.find(path);
    return it == skipped.end() ? std::nullopt : std::optional<std::string>(it->second);
  }
  std::vector<index::Symbol> similar_symbols(const std::string&, int) override { return {}; }

  // Reads of the retriever and the host tools: a route that starts reading one fails its test.
  std::vector<index::ScoredSymbol> search_text(const std::string&, int, bool) override {
    return unscripted<std::vector<index::ScoredSymbol>>("search_text");
  }
  std::vector<index::TermShares> term_shares(const std::vector<std::string>&, bool) override {
    return unscripted<std::vector<index::TermShares>>("term_shares");
  }
  std::map<index::SymbolId, std::int64_t> caller_counts(
      const std::vector<index::SymbolId>&) override {
    return unscripted<std::map<index::SymbolId, std::int64_t>>("caller_counts");
  }
  std::map<index::SymbolId, index::Importers> importers(
      const std::vector<index::SymbolId>&) override {
    return unscripted<std::map<index::SymbolId, index::Importers>>("importers");
  }
  std::map<index::SymbolId, index::FileOrigin> file_origins(
      const std::vector<index::SymbolId>&) override {
    return unscripted<std::map<index::SymbolId, index::FileOrigin>>("file_origins");
  }
  std::vector<std::string> names_matching_text(const std::string&, int) override {
    return unscripted<std::vector<std::string>>("names_matching_text");
  }
  std::pair<std::map<std::string, std::int64_t>, std::int64_t> name_word_counts(
      const std::vector<std::string>&) override {
    return unscripted<std::pair<std::map<std::string, std::int64_t>, std::int64_t>>(
        "name_word_counts");
  }
  std::vector<index::CallSite> call_sites(index::SymbolId, const index::Relation&, int) override {
    return unscripted<std::vector<index::CallSite>>("call_sites");
  }
  std::vector<index::ImportRecord> imports_of_file(const std::string&, int) override {
    return unscripted<std::vector<index::ImportRecord>>("imports_of_file");
  }
  std::vector<index::ImportRecord> importers_of_file(const std::string&, int) override {
    return unscripted<std::vector<index::ImportRecord>>("importers_of_file");
  }
  std::vector<index::ImportRecord> importers_of_symbol(index::SymbolId, int) override {
    return unscripted<std::vector<index::ImportRecord>>("importers_of_symbol");
  }
  std::vector<index::FileLink> linked_files(const std::string&, const index::Relation&,
                                            int) override {
    return unscripted<std::vector<index::FileLink>>("linked_files");
  }
  std::pair<std::vector<std::string>, std::int64_t> paths_page(const std::string&, int,
                                                               int) override {
    return unscripted<std::pair<std::vector<std::string>, std::int64_t>>("paths_page");
  }
  index::IndexStats stats() override { return unscripted<index::IndexStats>("stats"); }

 private:
  template <typename T>
  static T unscripted(const char* read) {
    throw std::logic_error(std::string("FakeRepository: ") + read + " is not scripted");
  }
};

class FakeRetriever : public workers::Retriever {
 public:
  workers::RetrievalResult result;
  struct Call {
    std::string query;
    int limit;
    bool include_tests;
    bool rerank;
  };
  std::vector<Call> calls;
  workers::RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                                    bool rerank) override {
    calls.push_back({query, limit, include_tests, rerank});
    return result;
  }
};

class FakeMemoryLookup : public index::MemoryLookup {
 public:
  std::vector<index::Memory> memories;
  std::vector<index::Memory> operator()(const std::string&) override { return memories; }
};

inline index::Symbol symbol(index::SymbolId id, const std::string& fqn, const std::string& kind,
                            std::int64_t line = 1, index::FileId file = 1) {
  index::Symbol s;
  s.id = id;
  s.fqn = fqn;
  s.name = fqn.substr(fqn.rfind('.') == std::string::npos ? 0 : fqn.rfind('.') + 1);
  s.kind = kind;
  s.file_id = file;
  s.start_line = line;
  return s;
}

inline index::Neighbour neighbour(index::SymbolId id, const std::string& fqn,
                                  const std::string& path, std::int64_t line,
                                  index::SymbolId of = 0, const std::string& relation = "caller") {
  index::Neighbour n;
  n.id = id;
  n.fqn = fqn;
  n.name = fqn.substr(fqn.rfind('.') == std::string::npos ? 0 : fqn.rfind('.') + 1);
  n.kind = "function";
  n.path = path;
  n.line = line;
  n.of = of;
  n.relation = relation;
  return n;
}

}  // namespace fakes
