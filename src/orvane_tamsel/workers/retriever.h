#pragma once
// The retriever port: ranks code symbols for a free-text question. The tools depend on this only.

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

// Why the hits say less than the question asked; the tools turn it into the client's note.
enum class Shortfall {
  none,
  no_searchable_words,  // every word of the question is a stop word
  no_symbol_matches,    // the index holds nothing for any of its words
  words_unmatched,      // some of its words match no symbol: see `unmatched`
};

struct RetrievalResult {
  std::vector<Hit> hits;  // best first
  Shortfall shortfall = Shortfall::none;
  std::vector<std::string> unmatched;  // the question's terms no symbol matches, in their order
  // The index holds no meaning vectors: the question was matched by its own words only.
  bool meaning_off = false;
  // The meaning vectors were learned before many of the symbols changed.
  bool meaning_stale = false;
};

// Anything that ranks symbols for a question.
class Retriever {
 public:
  virtual ~Retriever() = default;
  virtual RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                                   bool rerank) = 0;
};

}  // namespace orvane_tamsel::workers
